#!/usr/bin/env bash
# kzdump as a batch tool over 100,000 files: files per second and peak
# resident memory of a run over a list of paths (-@) and of a directory walk
# with four workers and JSON output.
#
#   bench/batch_bench.sh        from the project root
#
# The 100,000 files are FILES (default 2000) files written by kz_bench_corpus
# and hard-linked into DIRS (default 50) directories: 100,000 paths and
# directory entries for the walk, 115 MB on disk and in the page cache
# rather than 5.7 GB.  Environment: RUNS (default 3) runs of each command;
# BUILD_DIR (default build-bench).  Needs /usr/bin/time (Debian package time).
set -euo pipefail

cd "$(dirname "$0")/.."
FILES=${FILES:-2000}
DIRS=${DIRS:-50}
RUNS=${RUNS:-3}
BUILD_DIR=${BUILD_DIR:-build-bench}
BIN=$PWD/$BUILD_DIR/bin
MEMORY_GOAL_KB=$((16 * 1024))

[[ -x /usr/bin/time ]] || { echo "batch_bench.sh: /usr/bin/time is needed (apt-get install time)" >&2; exit 1; }

# ---- Build -----------------------------------------------------------------------
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=Release -DKZ_ID3_BUILD_TESTS=OFF >/dev/null
cmake --build "$BUILD_DIR" -j2 --target kzdump kz_id3 kz_bench_corpus >/dev/null

# ---- Files -------------------------------------------------------------------------
WORK=$(mktemp -d "${TMPDIR:-/tmp}/kz_batch.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
TREE=$WORK/tree
mkdir -p "$TREE/d00"
"$BIN/kz_bench_corpus" "$TREE/d00" "$FILES"
for ((d = 1; d < DIRS; ++d)); do
    cp -al "$TREE/d00" "$TREE/$(printf 'd%02d' "$d")"
done
LIST=$WORK/list
find "$TREE" -type f | sort >"$LIST"
count=$(wc -l <"$LIST")
# Every run reads the files from the page cache.
cat "$TREE"/d00/* >/dev/null

# ---- Runs --------------------------------------------------------------------------
# One command, RUNS times after a warm-up: "median wall seconds, median CPU
# seconds (user + system), largest peak resident KB".  kzdump must read
# every file (exit status 0).
measure() {
    local walls=() cpus=() peaks=() wall user system peak
    median() { printf '%s\n' "$@" | sort -n | sed -n "$(((RUNS + 1) / 2))p"; }
    for ((run = 0; run <= RUNS; ++run)); do
        /usr/bin/time -o "$WORK/time" -f '%e %U %S %M' "$@" >/dev/null 2>"$WORK/err" ||
            { echo "batch_bench.sh: failed: $*" >&2; cat "$WORK/err" >&2; exit 1; }
        read -r wall user system peak <"$WORK/time"
        ((run == 0)) && continue
        walls+=("$wall")
        cpus+=("$(awk -v u="$user" -v s="$system" 'BEGIN { print u + s }')")
        peaks+=("$peak")
    done
    echo "$(median "${walls[@]}") $(median "${cpus[@]}") $(printf '%s\n' "${peaks[@]}" | sort -n | tail -1)"
}

load_before=$(cut -d' ' -f1-3 /proc/loadavg)
list=$(measure "$BIN/kzdump" -@ "$LIST")
progress=$(measure "$BIN/kzdump" --progress -@ "$LIST")
walk=$(measure "$BIN/kzdump" -r -j 4 --json "$TREE")
load_after=$(cut -d' ' -f1-3 /proc/loadavg)
read -r list_wall list_cpu list_peak <<<"$list"
read -r progress_wall progress_cpu progress_peak <<<"$progress"
read -r walk_wall walk_cpu walk_peak <<<"$walk"

# ---- Report ---------------------------------------------------------------------------
echo
echo "$count paths: $FILES files of $(du -sb "$TREE/d00" | cut -f1 | awk '{printf "%.0f", $1 / 1e6}') MB" \
     "hard-linked into $DIRS directories; median wall and CPU seconds of $RUNS runs, files per wall" \
     "second, largest peak resident memory"
printf '%-28s %8s %8s %10s %10s\n' command seconds "CPU s" files/s "peak KB"
row() {
    printf '%-28s %8.2f %8.2f %10.0f %10d\n' "$1" "$2" "$3" \
        "$(awk -v n="$count" -v s="$2" 'BEGIN { print n / s }')" "$4"
}
row "kzdump -@ LIST" "$list_wall" "$list_cpu" "$list_peak"
row "kzdump --progress -@ LIST" "$progress_wall" "$progress_cpu" "$progress_peak"
row "kzdump -r -j 4 --json DIR" "$walk_wall" "$walk_cpu" "$walk_peak"
if ((walk_peak <= MEMORY_GOAL_KB)); then verdict="within"; else verdict="ABOVE"; fi
echo "kzdump -r -j 4 --json: peak $walk_peak KB, $verdict the goal of $MEMORY_GOAL_KB KB (16 MB)"
echo "$(date -u '+%Y-%m-%d %H:%M UTC'); $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo |
     cut -d: -f2- | sed 's/^ //'); load average before $load_before, after $load_after"
