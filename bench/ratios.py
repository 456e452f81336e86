#!/usr/bin/env python3
"""Prints, per scenario and size, each peer's time divided by qvbase's.

Benchmarks are named "<scenario>/<implementation>/<size>"; implementations
whose name starts with "qvbase" are ours (a scenario may have several, one
per back end), every other one is a peer. Above 1 means qvbase is faster.
"""
import json
import sys
from collections import OrderedDict


UNITS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def readable(ns):
    """A time with a unit that keeps three or four significant digits."""
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if ns >= size:
            return "%.3g %s" % (ns / size, unit)
    return "%.3g ns" % ns


def main(path):
    with open(path) as f:
        data = json.load(f)
    times = OrderedDict()  # (scenario, size) -> {impl: ns}
    for b in data["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        parts = b["name"].split("/")
        if len(parts) < 3:
            continue
        scenario, impl, size = parts[0], parts[1], parts[2]
        scale = UNITS[b.get("time_unit", "ns")]
        times.setdefault((scenario, size), OrderedDict())[impl] = b["cpu_time"] * scale

    rows = []
    for (scenario, size), impls in times.items():
        ours = [i for i in impls if i.startswith("qvbase")]
        peers = [i for i in impls if not i.startswith("qvbase")]
        for q in ours:
            label = scenario if q == "qvbase" else scenario + " (" + q[len("qvbase_"):] + ")"
            cells = ["%s %.3g" % (p, impls[p] / impls[q]) for p in peers]
            rows.append((label, size, readable(impls[q]), "  ".join(cells)))

    head = ("scenario", "size", "qvbase time", "peer time / qvbase time")
    widths = [max(len(r[i]) for r in rows + [head]) for i in range(3)]
    fmt = "| {:<%d} | {:>%d} | {:>%d} | {} |" % tuple(widths)
    print(fmt.format(*head))
    print("|" + "|".join("-" * (w + 2) for w in widths) + "|---|")
    for r in rows:
        print(fmt.format(*r))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "build/bench/results.json")
