#!/usr/bin/env python3
"""Prints, per scenario and size, each peer's time divided by qvbase's.

Benchmarks are named "<scenario>/<implementation>/<size>"; implementations
whose name starts with "qvbase" are ours (a scenario may have several, one
per back end or setting), every other one is a peer. Above 1 means qvbase is
faster.

    ratios.py RESULTS.json                    the ratio table
    ratios.py RESULTS.json --before OLD.json  and qvbase's time in OLD.json
                                              with the speed-up since then
"""
import argparse
import json
from collections import OrderedDict

UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def readable(ns):
    """A time with a unit that keeps about three significant digits."""
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return "%.3g %s" % (ns / size, unit)
    return "%.3g ns" % ns


def load(path):
    """{(scenario, size): {implementation: CPU time in ns}} in the order the
    program registers them (the file's order is random when the runs were
    interleaved): scenarios as registered, each size from small to large,
    implementations as registered."""
    with open(path) as f:
        data = json.load(f)
    entries = []
    # With repetitions, the median of each benchmark stands for it; a single
    # run stands for itself.
    medians = {b["run_name"] for b in data["benchmarks"]
               if b.get("run_type") == "aggregate" and b.get("aggregate_name") == "median"}
    for b in data["benchmarks"]:
        if b.get("run_type") == "aggregate":
            if b.get("aggregate_name") != "median":
                continue
        elif b.get("run_name", b["name"]) in medians:
            continue
        parts = b.get("run_name", b["name"]).split("/")
        if len(parts) < 3:
            continue
        scenario, impl, size = parts[0], parts[1], parts[2]
        scale = UNITS[b.get("time_unit", "ns")]
        family = b.get("family_index", len(entries))
        instance = b.get("per_family_instance_index", 0)
        entries.append((family, instance, scenario, impl, size, b["cpu_time"] * scale))
    first = {}
    for family, _, scenario, _, _, _ in entries:
        first[scenario] = min(first.get(scenario, family), family)
    entries.sort(key=lambda e: (first[e[2]], e[1], e[0]))
    times = OrderedDict()
    for _, _, scenario, impl, size, ns in entries:
        times.setdefault((scenario, size), OrderedDict())[impl] = ns
    return times


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("results", nargs="?", default="build/bench/results.json")
    parser.add_argument("--before", help="an earlier results file to compare qvbase with")
    args = parser.parse_args()
    times = load(args.results)
    before = load(args.before) if args.before else None

    head = ["scenario", "size", "qvbase time"]
    if before is not None:
        head += ["before", "speed-up"]
    head.append("peer time / qvbase time")
    rows = []
    for (scenario, size), impls in times.items():
        ours = [i for i in impls if i.startswith("qvbase")]
        peers = [i for i in impls if not i.startswith("qvbase")]
        for q in ours:
            label = scenario if q == "qvbase" else scenario + " (" + q[len("qvbase_"):] + ")"
            row = [label, size, readable(impls[q])]
            if before is not None:
                old = before.get((scenario, size), {}).get(q)
                row += [readable(old), "%.3gx" % (old / impls[q])] if old else ["-", "-"]
            row.append("  ".join("%s %.3g" % (p, impls[p] / impls[q]) for p in peers))
            rows.append(row)

    widths = [max(len(r[i]) for r in rows + [head]) for i in range(len(head) - 1)]
    aligns = ["<", ">"] + [">"] * (len(head) - 3)
    fmt = "| " + " | ".join("{:%s%d}" % (a, w) for a, w in zip(aligns, widths)) + " | {} |"
    print(fmt.format(*head))
    print("|" + "|".join("-" * (w + 2) for w in widths) + "|---|")
    for r in rows:
        print(fmt.format(*r))


if __name__ == "__main__":
    main()
