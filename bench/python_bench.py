#!/usr/bin/python3
"""Figures for the Python package kz_id3, printed as tables.

    /usr/bin/python3 bench/python_bench.py [--files 2000] [--large 20000]
                                           [--index-files N] [--runs 3]

Builds the kit, the module and the corpus writer in build-bench/ (Release),
uses the package staged there with its kit inside (as pip installs it),
writes corpora like a
music library with kz_bench_corpus (into a temporary directory, or --keep
DIR to keep and reuse them) and measures, with every file in the page cache:

1. read_many(workers=1) against mutagen reading the same frames to strings
   (pprint()), on --files files: read_many alone (Tags built lazily) and
   with every field's text taken out; the bytes and read calls per file;
2. read_many with workers=2 against workers=1, on --files and --large files;
3. on an already started LocalCluster of two worker processes, on --large
   files, against read_many(workers=2): scans counting the fields per
   identifier on the workers with kz_id3.dask.count_fields (only the counts
   come back), of Tags (scan_tags) and of records (scan, dicts); the same
   scans gathering every Tags or record to the client; index shards
   written by the workers, and their merge.  read_many and the counting
   scans run in turns, and read_many's figure is its best run before the
   cluster started or between the scans;
4. the index: a first run into a new database and a second run over the
   unchanged tree, on --index-files files (default: the --large corpus).

Times are wall-clock seconds, the best of --runs runs (at most two for
mutagen, one for the shards and the index).  --only read|dask|index picks
parts.  Needs python3-mutagen for 1 and Dask (python3-dask,
python3-distributed, python3-pandas) for 3.
"""

import argparse
import collections
import importlib
import os
import pickle
import resource
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# Imported by main() from the build tree's package, once it is built.
kz_id3 = None
index = None


def build(build_dir: Path) -> None:
    subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build_dir), "-DCMAKE_BUILD_TYPE=Release",
                    "-DKZ_ID3_BUILD_TESTS=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(build_dir), "-j2", "--target", "kz_id3_python",
                    "kz_bench_corpus"], check=True, stdout=subprocess.DEVNULL)


def corpus(build_dir: Path, directory: Path, count: int) -> list:
    if directory.is_dir() and len(os.listdir(directory)) == count:
        return warm(sorted(str(path) for path in directory.iterdir()))
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir()
    subprocess.run([str(build_dir / "bin" / "kz_bench_corpus"), str(directory), str(count)],
                   check=True, stdout=subprocess.DEVNULL)
    return warm(sorted(str(path) for path in directory.iterdir()))


def warm(paths: list) -> list:
    for path in paths:  # into the page cache
        with open(path, "rb") as file:
            while file.read(1 << 20):
                pass
    return paths


Timing = collections.namedtuple("Timing", "wall cpu")


def cpu_seconds():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def best(function, runs: int, cpu: bool = True) -> Timing:
    """The run with the shortest wall time, and the CPU time this process
    spent in it (all its threads; None when the work is done elsewhere)."""
    timings = []
    for _ in range(runs):
        started, cpu_started = time.perf_counter(), cpu_seconds()
        function()
        timings.append(Timing(time.perf_counter() - started,
                              cpu_seconds() - cpu_started if cpu else None))
    return min(timings)


def lazy(paths, workers):
    with kz_id3.read_many(paths, workers=workers) as results:
        for _, tags in results:
            if not isinstance(tags, kz_id3.Tags):
                raise tags


def strings(paths, workers):
    with kz_id3.read_many(paths, workers=workers) as results:
        for _, tags in results:
            [field.text for field in tags]


def mutagen_strings(paths):
    # pprint(): mutagen's text of any frame (str() of a picture frame would
    # be the repr of its bytes, far slower).
    import mutagen.id3
    for path in paths:
        try:
            [frame.pprint() for frame in mutagen.id3.ID3(path).values()]
        except mutagen.id3.ID3NoHeaderError:
            pass


def io_counters():
    with open("/proc/self/io") as counters:
        values = dict(line.split(": ") for line in counters.read().splitlines())
    return int(values["rchar"]), int(values["syscr"])


def io_per_file(paths):
    before = io_counters()
    lazy(paths, 1)
    after = io_counters()
    size = sum(os.path.getsize(path) for path in paths) / len(paths)
    print(f"per file: {(after[0] - before[0]) / len(paths) / 1024:.1f} KiB read in "
          f"{(after[1] - before[1]) / len(paths):.2f} read calls; files average "
          f"{size / 1024:.1f} KiB")


def row(name, count, timing, base=None):
    ratio = f"{base.wall / timing.wall:8.2f}" if base else " " * 8
    cpu = f"{timing.cpu / count * 1e6:10.1f}" if timing.cpu is not None else f"{'-':>10}"
    print(f"{name:<44} {count:>7} {timing.wall:9.3f} {count / timing.wall:10.0f} {ratio} {cpu}")


def header(title):
    print(f"\n{title}\n{'':<44} {'files':>7} {'seconds':>9} {'files/s':>10} {'ratio':>8} "
          f"{'CPU us/f':>10}")


def bench_dask(paths, runs, partition_size, work):
    try:
        import distributed
        import kz_id3.dask
    except ImportError as error:
        print(f"\nDask scan skipped: {error}")
        return
    dask_scan = kz_id3.dask
    threads = best(lambda: lazy(paths, 2), runs)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        client.run(lambda: kz_id3.read(paths[0]).status)  # each worker loads the kit once
        counted = []

        def count(scan):
            bag = scan(paths, partition_size=partition_size)
            counted.append(dask_scan.count_fields(bag).compute())

        def gather(scan):
            bag = scan(paths, partition_size=partition_size)
            assert len(bag.compute()) == len(paths)

        # Taken in turns with read_many, so that the other load of a shared
        # machine falls on all three alike; read_many's best counts also the
        # runs before the cluster started.
        tags_counted, records_counted = [], []
        for _ in range(runs):
            threads = min(threads, best(lambda: lazy(paths, 2), 1))
            tags_counted.append(best(lambda: count(dask_scan.scan_tags), 1, cpu=False))
            records_counted.append(best(lambda: count(dask_scan.scan), 1, cpu=False))
        tags_counted, records_counted = min(tags_counted), min(records_counted)
        tags_gathered = best(lambda: gather(dask_scan.scan_tags), runs, cpu=False)
        records_gathered = best(lambda: gather(dask_scan.scan), runs, cpu=False)
        shard_dir = Path(tempfile.mkdtemp(prefix="kz_shards.", dir=work))
        shards = []
        sharded = best(lambda: shards.extend(dask_scan.index_shards(
            paths, shard_dir, partition_size=partition_size).compute()), 1, cpu=False)
    merged = best(lambda: index.merge(shard_dir / "merged.db", shards), 1)
    header(f"Dask LocalCluster, 2 worker processes x 1 thread, partitions of {partition_size}")
    row("read_many(workers=2)", len(paths), threads, threads)
    row("scan_tags, fields counted on the workers", len(paths), tags_counted, threads)
    row("scan (dicts), fields counted on the workers", len(paths), records_counted, threads)
    row("scan_tags, every Tags gathered to the client", len(paths), tags_gathered, threads)
    row("scan, every record gathered to the client", len(paths), records_gathered, threads)
    row("index_shards: an SQLite file per partition", len(paths), sharded, threads)
    row("index.merge of those shards (one process)", len(paths), merged, threads)
    assert all(counts == counted[0] for counts in counted)
    print(f"({sum(counted[0].values())} fields counted; ratio: read_many's time / this time)")
    read = [tags for _, tags in kz_id3.read_many(paths[:1000])]
    records = [tags.as_dict() for tags in read]
    print(f"pickled: a Tags {len(pickle.dumps(read)) / len(read):.0f} bytes, a record "
          f"{len(pickle.dumps(records)) / len(records):.0f} bytes on average")
    shutil.rmtree(shard_dir)


def bench_index(paths, work: Path):
    tree = Path(paths[0]).parent
    db = work / "index.db"
    for stale in work.glob("index.db*"):
        stale.unlink()
    first = index.update(db, [tree], workers=2)
    second = index.update(db, [tree], workers=2)
    print(f"\nIndex of {first.files} files (workers=2), database {db.stat().st_size >> 20} MB")
    print(f"first run:  {first}")
    print(f"second run: {second}")
    print(f"second / first: {second.seconds / first.seconds:.3f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--files", type=int, default=2000)
    parser.add_argument("--large", type=int, default=20000)
    parser.add_argument("--index-files", type=int, default=0,
                        help="files in the index's tree (default: the --large corpus)")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--partition-size", type=int, default=1000)
    parser.add_argument("--build-dir", default=str(ROOT / "build-bench"))
    parser.add_argument("--only", choices=["read", "dask", "index"], action="append")
    parser.add_argument("--keep", metavar="DIR",
                        help="write the corpora into DIR and keep them; reused when there")
    options = parser.parse_args()
    build_dir = Path(options.build_dir)
    build(build_dir)
    global kz_id3, index
    sys.path.insert(0, str(build_dir / "python"))
    kz_id3 = importlib.import_module("kz_id3")
    index = importlib.import_module("kz_id3.index")
    only = set(options.only or ["read", "dask", "index"])
    print("load average %.2f %.2f %.2f at the start; CPU us/f: CPU time of this process, all "
          "its threads, per file" % os.getloadavg())
    with tempfile.TemporaryDirectory(prefix="kz_python_bench.") as temporary:
        work = Path(options.keep or temporary)
        work.mkdir(exist_ok=True)
        small = corpus(build_dir, work / "small", options.files)
        if "read" in only:
            header(f"Reading {len(small)} files (kit {kz_id3.kit_version()})")
            try:
                base = best(lambda: mutagen_strings(small), min(options.runs, 2))
                row("mutagen, every frame's pprint()", len(small), base, base)
            except ImportError:
                base = None
                print("mutagen not installed: skipped")
            for workers in (1, 2):
                row(f"read_many(workers={workers})", len(small),
                    best(lambda: lazy(small, workers), options.runs), base)
                row(f"read_many(workers={workers}), every field's text", len(small),
                    best(lambda: strings(small, workers), options.runs), base)
        large = corpus(build_dir, work / "large", options.large)
        if "read" in only:
            io_per_file(small)
            header(f"Reading {len(large)} files")
            one = best(lambda: lazy(large, 1), options.runs)
            row("read_many(workers=1)", len(large), one, one)
            row("read_many(workers=2)", len(large), best(lambda: lazy(large, 2), options.runs), one)
            one = best(lambda: strings(large, 1), options.runs)
            row("read_many(workers=1), every field's text", len(large), one, one)
            row("read_many(workers=2), every field's text", len(large),
                best(lambda: strings(large, 2), options.runs), one)
        if "dask" in only:
            bench_dask(large, options.runs, options.partition_size, work)
        if "index" in only:
            tree = large
            if options.index_files:
                tree = corpus(build_dir, work / "tree", options.index_files)
            bench_index(tree, work)
    print("\nload average %.2f %.2f %.2f at the end" % os.getloadavg())


if __name__ == "__main__":
    main()
