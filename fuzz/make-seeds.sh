#!/usr/bin/env bash
# Makes the seed corpora under fuzz/corpus/ from real files: the example's
# document written in both byte orderings by the example program, the
# registry files of tests/data, and what qvreg exports after importing them
# (UTF-8 and UTF-16); the compiled test resource module in its three forms
# and QVKernelRes12, and the tagged structures of the test module. Scripted targets get the document behind a script that
# reads it as the example's reader does. Run it again when the document or
# a target's input layout changes, and commit the result.
#
#   fuzz/make-seeds.sh          (builds the linux preset's example and qvreg)
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"

cmake --preset linux >/dev/null
cmake --build --preset linux --target qvbase_example qvbase_message_log qvreg ResourceTest \
  ResourceTestImage ResourceTestImage32 QVKernelRes12 >/dev/null
bin="$root/build/linux/bin"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# The example's document, "II" and "MM".
"$bin/qvbase_example" "$work/document-ii.qvd" >/dev/null
"$bin/qvbase_example" "$work/document-mm.qvd" --mm >/dev/null
# The message log example's traffic, "II" and "MM".
"$bin/qvbase_message_log" "$work/messages-ii.qvd" >/dev/null
"$bin/qvbase_message_log" "$work/messages-mm.qvd" --mm >/dev/null

# Registry files: the test data imported into a store of their own, then
# exported in both encodings, and the store itself.
export QVBASE_REGISTRY="$work/store.reg"
sed 's/@KEY@/Software\\qvbase-seeds/' tests/data/export-input.reg >"$work/import.reg"
"$bin/qvreg" import "$work/import.reg"
"$bin/qvreg" export 'HKCU\Software\qvbase-seeds' "$work/export-utf8.reg"
"$bin/qvreg" export --utf16 'HKCU\Software\qvbase-seeds' "$work/export-utf16.reg"

python3 - "$work" "$root" "$root/build/linux" <<'EOF'
import os, shutil, struct, sys

work, root, build = sys.argv[1], sys.argv[2], sys.argv[3]
corpus = os.path.join(root, "fuzz", "corpus")
ii = open(os.path.join(work, "document-ii.qvd"), "rb").read()
mm = open(os.path.join(work, "document-mm.qvd"), "rb").read()

def fresh(target):
    path = os.path.join(corpus, target)
    shutil.rmtree(path, ignore_errors=True)
    os.makedirs(path)
    return path

def put(target, name, data):
    with open(os.path.join(corpus, target, name), "wb") as f:
        f.write(data)

def scripted(flags, script, content):
    assert len(script) < 256
    return bytes([flags, len(script)]) + bytes(script) + content

# TypedReadFuzz: the document read value by value, headers included.
# Op codes as TypedReadFuzz.cpp numbers them.
CHAR, SHORT, LONG, INT64, BOOL, FLOAT, DOUBLE, TEXT, TERMINATED, ID, TIME, DATE, \
    CHARS, SHORTS, LONGS, INT64S, FLOATS, DOUBLES, MARKER, MOVETO, SWITCH = range(21)
header = [ID, LONG, INT64]
document_values = header + [LONG, TEXT, ID, DATE, TIME] + header + [TEXT, LONG]
thumbnail = header + [CHARS, 8]
summary = header + [TEXT]
whole = document_values + thumbnail + summary
fresh("TypedReadFuzz")
put("TypedReadFuzz", "document-ii", scripted(0, whole, ii))
put("TypedReadFuzz", "document-mm", scripted(1, whole, mm))
put("TypedReadFuzz", "document-as-arrays", scripted(0, [LONGS, 7, SHORTS, 9, INT64S, 4,
                                                        TERMINATED, 0, BOOL, CHAR, DOUBLE,
                                                        FLOAT, MOVETO, 0, SWITCH, LONG], ii))
put("TypedReadFuzz", "marker-then-mm", scripted(0, [MARKER, ID, LONG, INT64], b"MM" + mm))

# SectionFuzz: the example's reader: peek, open by identifier, read, nested
# chapter, close, skip the unknown section, read the summary.
OPEN_ANY, OPEN_ID, PEEK, SKIP, CLOSE, READ_LONG, READ_TEXT, READ_ID, READ_CHARS, \
    MOVE_TO, MOVE_FROM_END, QUERY = range(12)
DOCUMENT, CHAPTER, THUMBNAIL, SUMMARY, MISSING = range(5)
reader = [PEEK, OPEN_ID, DOCUMENT, READ_LONG, READ_TEXT, READ_ID, READ_CHARS, 16,
          OPEN_ID, CHAPTER, READ_TEXT, READ_LONG, QUERY, CLOSE, CLOSE,
          PEEK, SKIP, PEEK, OPEN_ID, SUMMARY, READ_TEXT, QUERY, CLOSE]
nested = [OPEN_ANY, OPEN_ANY, MOVE_FROM_END, 0, QUERY, CLOSE, MOVE_TO, 28, OPEN_ID, MISSING,
          CLOSE, OPEN_ANY, OPEN_ANY, OPEN_ANY, QUERY, CLOSE, CLOSE, CLOSE]
fresh("SectionFuzz")
put("SectionFuzz", "reader-ii", scripted(0, reader, ii))
put("SectionFuzz", "reader-mm", scripted(1, reader, mm))
put("SectionFuzz", "nested-ii", scripted(0, nested, ii))
put("SectionFuzz", "nested-mm", scripted(1, nested, mm))

# MemoryStreamFuzz: the document written in pieces, read back, resized,
# moved in, at a few granularities. Op codes as MemoryStreamFuzz.cpp.
WRITE, READ, SEEK, SET_SIZE, REOPEN, FLUSH, SET_OPEN_MODE = range(7)
RW = 2 | 1 | 8
session = [REOPEN, RW, WRITE, 200, 1, WRITE, 3, 1, SEEK, 2, 0, 0, READ, 1, 1, 0, 4,
           READ, 0, 40, 4, SEEK, 3, 0, 10, SET_SIZE, 0, 100, READ, 2, 0, 1,
           WRITE, 8, 3, SEEK, 1, 0, 4, FLUSH, SET_SIZE, 1, 1, 2, SEEK, 4, 0, 0,
           SET_OPEN_MODE, 1 | 8, READ, 0, 8, 1, REOPEN, 2]
fresh("MemoryStreamFuzz")
put("MemoryStreamFuzz", "document-16", scripted(4, session, ii))
put("MemoryStreamFuzz", "document-256", scripted(8, session, mm))
put("MemoryStreamFuzz", "document-65536", scripted(16, session, ii))

# TextStreamFuzz: handlers over the document, shared and dropped.
fresh("TextStreamFuzz")
put("TextStreamFuzz", "sharing", scripted(0, [0, 0, 0, 7, 1, 1, 0, 0, 2, 1, 0, 3, 2, 1,
                                              7, 2, 1, 8, 1, 0, 5, 0, 0, 4, 1, 0, 6, 1, 0,
                                              0, 3, 0, 40, 3, 3, 3], ii))

# QvdumpFuzz: the document in both orderings, with and without hex bodies.
fresh("QvdumpFuzz")
for flags, name, doc in ((0, "ii", ii), (2, "ii-hex", ii), (1, "mm", mm), (3, "mm-hex", mm)):
    put("QvdumpFuzz", name, bytes([flags]) + doc)

# IdentifierTextFuzz: the document's identifiers as qvdump prints them.
def guid_text(raw16):
    d1, d2, d3 = struct.unpack("<IHH", raw16[:8])
    d4 = raw16[8:]
    return "{%08X-%04X-%04X-%s-%s}" % (d1, d2, d3, d4[:2].hex().upper(), d4[2:].hex().upper())
fresh("IdentifierTextFuzz")
put("IdentifierTextFuzz", "document", b"\0" + guid_text(ii[:16]).encode())
put("IdentifierTextFuzz", "document-lower", b"\0" + guid_text(ii[:16]).lower().encode())
put("IdentifierTextFuzz", "document-ignored", b"\1" + guid_text(ii[:16]).encode())
put("IdentifierTextFuzz", "null", b"\0{00000000-0000-0000-0000-000000000000}")
put("IdentifierTextFuzz", "unbraced", b"\1" + guid_text(ii[:16])[1:-1].encode())

# NumberTextFuzz: numbers of the document as text.
fresh("NumberTextFuzz")
for name, text in (("words", b"1200"), ("ticks", b"17952192000000000"), ("negative", b"-3"),
                   ("hex", guid_text(ii[:16])[1:9].encode()), ("hex-lower", b"0000ffff"),
                   ("float", b"0.5"), ("exponent", b"1e-7")):
    put("NumberTextFuzz", name, text)

# StringParameterFuzz: the time format the example prints with, and texts
# with the escape and indexed placeholders.
fresh("StringParameterFuzz")
put("StringParameterFuzz", "time-format", b"\1^HH^:^mm^:^ss^\0mm\0" + b"30")
put("StringParameterFuzz", "escape", b"\0cost ^^ of ^0^ and ^1^\0" + b"0\0" + b"x")
put("StringParameterFuzz", "unicode", b"\2^name^ and ^NAME^\0name\0" + "é".encode())

# RegFileFuzz: the test data as it stands, and the same keys as exported.
fresh("RegFileFuzz")
for name in sorted(os.listdir(os.path.join(root, "tests", "data"))):
    if name.endswith(".reg"):
        shutil.copy(os.path.join(root, "tests", "data", name), os.path.join(corpus, "RegFileFuzz", name))
for name in ("export-utf8.reg", "export-utf16.reg", "store.reg"):
    shutil.copy(os.path.join(work, name), os.path.join(corpus, "RegFileFuzz", name))

# ResourceModuleFuzz: the test module as a compiled resource file and as PE
# images of both widths, and the library's own module.
fresh("ResourceModuleFuzz")
for source, name in (("bin/ResourceTest.res", "ResourceTest.res"),
                     ("bin/ResourceTestImage.dll", "ResourceTestImage.dll"),
                     ("bin/ResourceTestImage32.dll", "ResourceTestImage32.dll"),
                     ("lib/QVKernelRes12.res", "QVKernelRes12.res")):
    shutil.copy(os.path.join(build, source), os.path.join(corpus, "ResourceModuleFuzz", name))

# ResourceStructFuzz: the raw data (type 10) of the test module, each
# record's bytes as one seed.
fresh("ResourceStructFuzz")
res = open(os.path.join(build, "bin", "ResourceTest.res"), "rb").read()
at = 0
while at + 8 <= len(res):
    size, header = struct.unpack_from("<II", res, at)
    kind, number = struct.unpack_from("<HH", res, at + 8)
    name_marker, name = struct.unpack_from("<HH", res, at + 12)
    if kind == 0xFFFF and number == 10 and name_marker == 0xFFFF and name >= 200:
        put("ResourceStructFuzz", "struct-%d" % name, res[at + header:at + header + size])
    at = (at + header + size + 3) & ~3

# MessageLogFuzz: the example's log in both orderings (flags bit 0: "MM"),
# a placeholder followed by it, and the log cut inside its last section.
fresh("MessageLogFuzz")
mii = open(os.path.join(work, "messages-ii.qvd"), "rb").read()
mmm = open(os.path.join(work, "messages-mm.qvd"), "rb").read()
placeholder = bytes(20) + struct.pack("<Q", 28)
put("MessageLogFuzz", "log-ii", b"\0" + mii)
put("MessageLogFuzz", "log-mm", b"\1" + mmm)
put("MessageLogFuzz", "placeholder-ii", b"\0" + placeholder + mii)
put("MessageLogFuzz", "cut-ii", b"\0" + mii[:-6])
EOF
echo "seeds written to fuzz/corpus/"
