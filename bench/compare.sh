#!/usr/bin/env bash
# Times kzdump against peer ID3 readers and an I/O floor over a generated
# corpus like a music library, and measures kzdump's peak memory.
#
#   bench/compare.sh            from the project root
#
# Environment: SHAPE (library, the default, or tagger: files as a common
# Python tagger writes them) and FILES (default 2000) of the corpus; RUNS (default 5)
# timed runs of the fast programs, SLOW_RUNS (default 2) of exiftool and
# mutagen; BUILD_DIR (default build-bench); KEEP_CORPUS=1 keeps the corpus.
# Needs hyperfine; TagLib, exiftool and mutagen are timed when installed.
set -euo pipefail

cd "$(dirname "$0")/.."
FILES=${FILES:-2000}
SHAPE=${SHAPE:-library}
RUNS=${RUNS:-5}
SLOW_RUNS=${SLOW_RUNS:-2}
BUILD_DIR=${BUILD_DIR:-build-bench}
BIN=$PWD/$BUILD_DIR/bin

command -v hyperfine >/dev/null || { echo "compare.sh: hyperfine is needed" >&2; exit 1; }

# ---- Build -----------------------------------------------------------------------
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=Release -DKZ_ID3_BUILD_TESTS=OFF >/dev/null
targets=(kzdump kz_id3 kz_bench_corpus kz_io_floor)
if cmake --build "$BUILD_DIR" --target help | grep kz_taglib_reader >/dev/null; then
    targets+=(kz_taglib_reader)
fi
cmake --build "$BUILD_DIR" -j2 --target "${targets[@]}" >/dev/null

# ---- Corpus ------------------------------------------------------------------------
WORK=$(mktemp -d "${TMPDIR:-/tmp}/kz_compare.XXXXXX")
cleanup() { if [[ ${KEEP_CORPUS:-0} == 1 ]]; then echo "corpus kept in $WORK"; else rm -rf "$WORK"; fi; }
trap cleanup EXIT
CORPUS=$WORK/corpus
mkdir "$CORPUS"
"$BIN/kz_bench_corpus" "$CORPUS" "$FILES" "$SHAPE"
LIST=$WORK/files
find "$CORPUS" -type f -name '*.mp3' | sort >"$LIST"
count=$(wc -l <"$LIST")
bytes=$(du -sb "$CORPUS" | cut -f1)
# Every program below reads the corpus from the page cache.
xargs -a "$LIST" cat >/dev/null

# kzdump must read every file whole, or its times mean nothing.
xargs -a "$LIST" "$BIN/kzdump" -j 1 >/dev/null || { echo "compare.sh: kzdump failed" >&2; exit 1; }

# ---- Timing ------------------------------------------------------------------------
fast=(-n "kzdump -j 1" "xargs -a $LIST $BIN/kzdump -j 1"
      -n "kzdump -j 2" "xargs -a $LIST $BIN/kzdump -j 2")
if [[ -x $BIN/kz_taglib_reader ]]; then
    fast+=(-n "TagLib reader" "xargs -a $LIST $BIN/kz_taglib_reader")
fi
fast+=(-n "I/O floor" "xargs -a $LIST $BIN/kz_io_floor")
# The directory walked as kzdump -r walks it, against the smallest reads a
# tag reader needs: the 10-byte header, the declared tag, the last 128 bytes.
fast+=(-n "kzdump -r -j 1" "$BIN/kzdump -r -j 1 $CORPUS"
       -n "minimal floor" "$BIN/kz_io_floor --minimal -r $CORPUS")
# Threads: the corpus read five times over.
fast+=(-n "5x -r -j 1" "$BIN/kzdump -r -j 1 $CORPUS $CORPUS $CORPUS $CORPUS $CORPUS"
       -n "5x -r -j 2" "$BIN/kzdump -r -j 2 $CORPUS $CORPUS $CORPUS $CORPUS $CORPUS")

slow=()
if command -v exiftool >/dev/null; then
    slow+=(-n "exiftool" "exiftool -q -ID3:All $CORPUS")
fi
MUTAGEN_PY=/usr/bin/python3
if "$MUTAGEN_PY" -c 'import mutagen' 2>/dev/null; then
    cat >"$WORK/mutagen_read.py" <<'EOF'
import sys
import mutagen.id3
for path in sys.argv[1:]:
    try:
        print(mutagen.id3.ID3(path).pprint())
    except mutagen.id3.ID3NoHeaderError:
        pass
EOF
    slow+=(-n "mutagen" "xargs -a $LIST $MUTAGEN_PY $WORK/mutagen_read.py")
fi

hyperfine -N --style basic --runs "$RUNS" --warmup 1 --output null \
    --export-json "$WORK/fast.json" "${fast[@]}" >"$WORK/fast.log"
if ((${#slow[@]})); then
    hyperfine --style basic --runs "$SLOW_RUNS" --warmup 0 --output null \
        --export-json "$WORK/slow.json" "${slow[@]}" >"$WORK/slow.log"
fi

# ---- Peak memory ---------------------------------------------------------------------
peak_kb() {
    { /usr/bin/time -f '%M' xargs -a "$LIST" "$BIN/kzdump" "$@" >/dev/null; } 2>&1 | tail -1
}
peak1=$(peak_kb -j 1)
peak2=$(peak_kb -j 2)
largest=$(python3 - "$LIST" <<'EOF'
import sys
largest = 0
for path in open(sys.argv[1]).read().split("\n"):
    if not path:
        continue
    data = open(path, "rb").read(1 << 20)
    if data[:3] != b"ID3":
        continue
    major = data[3]
    end = 10 + (data[6] << 21 | data[7] << 14 | data[8] << 7 | data[9])
    pos = 10
    while pos + 10 <= end and data[pos] != 0:
        raw = data[pos + 4:pos + 8]
        size = (raw[0] << 21 | raw[1] << 14 | raw[2] << 7 | raw[3]) if major == 4 \
            else int.from_bytes(raw, "big")
        largest = max(largest, size)
        pos += 10 + size
print(largest)
EOF
)

# ---- Report ---------------------------------------------------------------------------
python3 - "$count" "$bytes" "$WORK/fast.json" "$WORK/slow.json" <<'EOF'
import json, os, statistics, sys
count, corpus_bytes = int(sys.argv[1]), int(sys.argv[2])
results = []
for path in sys.argv[3:]:
    if os.path.exists(path):
        results += json.load(open(path))["results"]
median = {r["command"]: statistics.median(r["times"]) for r in results}
runs = {r["command"]: len(r["times"]) for r in results}
# hyperfine keeps the mean CPU time (user + system) of the runs.
cpu = {r["command"]: r["user"] + r["system"] for r in results}
base = count / median["kzdump -j 1"]
# The five-times runs read five corpora: their rates are per file too.
scale = {"5x -r -j 1": 5, "5x -r -j 2": 5}
print(f"\n{count} files, {corpus_bytes / 1e6:.1f} MB; wall seconds: median of the runs; "
      f"CPU seconds: mean user + system; ratio: files/s to kzdump -j 1's")
print(f"{'program':<15} {'runs':>4} {'seconds':>9} {'CPU s':>7} {'files/s':>10} {'MB/s':>8} {'ratio':>7}")
for command, seconds in median.items():
    rate = count * scale.get(command, 1) / seconds
    print(f"{command:<15} {runs[command]:>4} {seconds:>9.3f} {cpu[command]:>7.3f} {rate:>10.0f} "
          f"{corpus_bytes * scale.get(command, 1) / seconds / 1e6:>8.0f} {rate / base:>7.2f}")
print(f"kzdump -r -j 1 / minimal floor: wall {median['kzdump -r -j 1'] / median['minimal floor']:.2f}, "
      f"CPU {cpu['kzdump -r -j 1'] / cpu['minimal floor']:.2f}; "
      f"{5 * count} files, -j 1 / -j 2 wall: {median['5x -r -j 1'] / median['5x -r -j 2']:.2f}")
EOF
echo
echo "kzdump peak resident memory: -j 1 ${peak1} KB, -j 2 ${peak2} KB;" \
     "largest frame body in the corpus ${largest} bytes;" \
     "target below $(( (20 * 1024 * 1024 + largest) / 1024 )) KB"
echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //')," \
     "load average $(cut -d' ' -f1-3 /proc/loadavg)"
