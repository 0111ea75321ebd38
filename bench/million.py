#!/usr/bin/python3
"""A million files, measured: kzdump, the SQLite index and Dask at 10^4, 10^5
and 10^6 files, so that the trend shows.

    /usr/bin/python3 bench/million.py [--counts 10000,100000,1000000]
                                      [--work DIR] [--build DIR] [--skip-dask]

Needs GNU time (Debian's package `time`).  Builds kzdump and the Python
package's kit in the Release tree --build
(default build-bench) unless it is there, writes the 2,000-file benchmark
library with kz_bench_corpus, and hard-links it into trees of N files in
N / 1,000 folders of 1,000 each (kept in --work for the next run: a million
hard links are some 100 MB of directories, no file data).  Every file is in
the page cache after the first pass, so the figures are the programs'
work, not the disk's.  For each N it prints:

- kzdump -r -j 1 (text) and -r -j 2 --json over the tree, each as files per
  second against the same command over the 2,000 files of the library in
  the same run (a ratio near 1 means the cost grows linearly), and its peak
  resident memory;
- the index (python3 -m kz_id3 index): the first run, a run with nothing
  changed, a run after 1,000 files were changed, deleted or added, the
  database's bytes per file, and two typical queries (the files of one
  artist; a TXXX chosen by its description), best of three;
- on a LocalCluster of two worker processes, count_fields(scan_tags(...))
  against read_many(workers=2) counting the same fields in this process,
  and the index built on the workers (index_shards, then merge), its rows
  compared with the single-machine index and its time with that run's.
"""
import argparse
import collections
import os
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LIBRARY_FILES = 2000
PER_FOLDER = 1000


def run(command, **options):
    """Runs a command to its end; its wall seconds, CPU seconds and peak
    resident memory in KB, as GNU time measures them (a child forked from
    this process would count this process's memory as its own)."""
    with tempfile.NamedTemporaryFile("r") as figures:
        start = time.perf_counter()
        done = subprocess.run(["/usr/bin/time", "-f", "%U %S %M", "-o", figures.name] +
                              [str(part) for part in command], stdout=subprocess.DEVNULL,
                              stderr=subprocess.PIPE, **options)
        wall = time.perf_counter() - start
        user, system, peak = figures.read().split()[-3:]
    if done.returncode not in (0, 1):
        sys.exit(f"million.py: {' '.join(map(str, command))} ended with {done.returncode}: "
                 f"{done.stderr.decode(errors='replace')}")
    return wall, float(user) + float(system), int(peak)


def build(tree):
    if not (tree / "bin" / "kzdump").exists() or not (tree / "python" / "kz_id3").exists():
        subprocess.run(["cmake", "-S", ROOT, "-B", tree, "-DCMAKE_BUILD_TYPE=Release",
                        "-DKZ_ID3_BUILD_TESTS=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", tree, "-j2", "--target", "kzdump", "kz_bench_corpus",
                    "kz_id3_python"], check=True, stdout=subprocess.DEVNULL)


def library(work, tree):
    directory = work / "library"
    if len(list(directory.glob("*.mp3"))) != LIBRARY_FILES:
        shutil.rmtree(directory, ignore_errors=True)
        directory.mkdir(parents=True)
        subprocess.run([tree / "bin" / "kz_bench_corpus", directory, str(LIBRARY_FILES)], check=True)
    return sorted(directory.glob("*.mp3"))


def link_name(folder, item):
    return f"d{folder:04d}/t{item:04d}.mp3"


def tree_of(work, count, files):
    """The tree of `count` hard links, made once."""
    directory = work / f"tree-{count}"
    done = work / f"tree-{count}.done"
    if done.exists():
        return directory
    shutil.rmtree(directory, ignore_errors=True)
    for number in range(count):
        folder, item = divmod(number, PER_FOLDER)
        if item == 0:
            (directory / f"d{folder:04d}").mkdir(parents=True)
        os.link(files[number % len(files)], directory / link_name(folder, item))
    done.touch()
    return directory


def change_files(tree, count, files):
    """Changes 334 files (each a copy of another library file), deletes 333
    and adds 333; returns the undo."""
    step = count // 1000
    changed = [tree / link_name(*divmod(n * step, PER_FOLDER)) for n in range(0, 1000, 3)]
    deleted = [tree / link_name(*divmod(n * step + 1, PER_FOLDER)) for n in range(0, 999, 3)]
    added = tree / "added"
    added.mkdir()
    for number, path in enumerate(changed):
        copy = path.with_suffix(".new")
        shutil.copyfile(files[(number + 7) % len(files)], copy)
        os.replace(copy, path)
    for path in deleted:
        path.unlink()
    for number in range(333):
        os.link(files[number], added / f"a{number:04d}.mp3")

    def undo():
        shutil.rmtree(added)
        for path in changed + deleted:
            number = int(path.parent.name[1:]) * PER_FOLDER + int(path.stem[1:])
            path.unlink(missing_ok=True)
            os.link(files[number % len(files)], path)
    return undo


def best_of_three(function):
    times = []
    for _ in range(3):
        start = time.perf_counter()
        result = function()
        times.append(time.perf_counter() - start)
    return min(times), result


def fields_of(db):
    with sqlite3.connect(f"file:{db}?mode=ro", uri=True) as connection:
        return connection.execute(
            "SELECT count(*), total(length(text)) FROM fields").fetchone()


def measure(count, work, tree, files, python_env, skip_dask):
    import kz_id3
    from kz_id3 import index

    kzdump = tree / "bin" / "kzdump"
    directory = tree_of(work, count, files)
    lines = []

    def show(name, value):
        lines.append(f"  {name:<52} {value}")

    # ---- kzdump
    for options in (["-r", "-j", "1"], ["-r", "-j", "2", "--json"]):
        run([kzdump, *options, work / "library"])  # the page cache warm
        small = run([kzdump, *options, work / "library"])
        large = run([kzdump, *options, directory])
        rate, base = count / large[0], LIBRARY_FILES / small[0]
        show(f"kzdump {' '.join(options)}", f"{rate:10.0f} files/s, {rate / base:.2f} of the "
             f"library's {base:.0f}/s; peak {large[2]} KB")

    # ---- the index
    db = work / f"index-{count}.db"
    for stale in work.glob(f"index-{count}.db*"):
        stale.unlink()
    command = [sys.executable, "-m", "kz_id3", "index", db, directory]
    first = run(command, env=python_env)
    again = run(command, env=python_env)
    undo = change_files(directory, count, files)
    try:
        changed = run(command, env=python_env)
    finally:
        undo()
    show("index, first run", f"{first[0]:10.2f} s ({count / first[0]:.0f} files/s)")
    show("index, nothing changed", f"{again[0]:10.2f} s ({again[0] / first[0]:.3f} of the first)")
    show("index, 1,000 files changed, deleted or added", f"{changed[0]:10.2f} s")
    show("index, bytes per file", f"{os.path.getsize(db) / count:10.0f}")
    sample = kz_id3.read(files[0])
    artist = sample.get("TPE1")
    user = next(field for field in sample if field.ident.startswith(("TXXX", "WXXX")))
    key = f"TXXX:{user.description}"
    seconds, found = best_of_three(lambda: index.query(db, [("TPE1", artist)]))
    show("query: the files of one artist", f"{seconds * 1000:10.1f} ms, {len(found)} files")
    seconds, found = best_of_three(lambda: index.query(db, [(key, user.text)], ignore_case=True))
    show("query: a TXXX by its description, any case", f"{seconds * 1000:10.1f} ms, {len(found)} files")
    # The index again, so that it holds the tree as it is now.
    run(command, env=python_env)

    if not skip_dask:
        from dask.distributed import Client, LocalCluster
        from kz_id3 import dask as kz_dask
        paths = [str(directory / link_name(*divmod(n, PER_FOLDER))) for n in range(count)]
        with LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                          dashboard_address=None) as cluster, Client(cluster) as client:
            client.run(lambda: __import__("kz_id3").read_bytes(b"").status)
            start = time.perf_counter()
            counted = kz_dask.count_fields(kz_dask.scan_tags(paths, partition_size=2000)).compute()
            on_workers = time.perf_counter() - start
            start = time.perf_counter()
            local = collections.Counter()
            with kz_id3.read_many(paths, workers=2) as results:
                for _, tags in results:
                    local.update(tags.field_idents())
            here = time.perf_counter() - start
            if counted != local:
                sys.exit("million.py: the fields counted on the workers differ from read_many's")
            show("Dask count_fields(scan_tags), 2 workers", f"{on_workers:10.2f} s, "
                 f"{on_workers / here:.2f} times read_many(workers=2)'s {here:.2f} s")
            shards = Path(tempfile.mkdtemp(dir=work))
            merged = work / f"merged-{count}.db"
            for stale in work.glob(f"merged-{count}.db*"):
                stale.unlink()
            start = time.perf_counter()
            written = kz_dask.index_shards(paths, shards, partition_size=20000).compute()
            index.merge(merged, written)
            built = time.perf_counter() - start
            shutil.rmtree(shards)
            same = fields_of(merged) == fields_of(db)
            show("index on the workers (index_shards, merge)", f"{built:10.2f} s, "
                 f"{built / first[0]:.2f} of the single-machine first run; rows "
                 f"{'equal' if same else 'DIFFER'}")
            if not same:
                sys.exit("million.py: the index built on the workers differs")
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--counts", default="10000,100000,1000000")
    parser.add_argument("--work", default=os.path.join(tempfile.gettempdir(), "kz_million"))
    parser.add_argument("--build", default=str(ROOT / "build-bench"))
    parser.add_argument("--skip-dask", action="store_true")
    options = parser.parse_args()
    counts = [int(count) for count in options.counts.split(",")]
    if any(count < 1000 or count % 1000 for count in counts):
        parser.error("every count is a multiple of 1,000")
    work = Path(options.work)
    work.mkdir(parents=True, exist_ok=True)
    tree = Path(options.build).resolve()
    build(tree)
    # The package as the build stages it, here, in the index runs and on
    # the Dask workers.
    sys.path.insert(0, str(tree / "python"))
    os.environ["PYTHONPATH"] = str(tree / "python")
    python_env = dict(os.environ)
    files = library(work, tree)
    load = os.getloadavg()[0]
    print(f"million.py: {os.cpu_count()} cores, load average {load:.2f}, "
          f"{time.strftime('%Y-%m-%d %H:%M UTC', time.gmtime())}")
    started = time.perf_counter()
    for count in counts:
        print(f"{count} files ({count // PER_FOLDER} folders of {PER_FOLDER} hard links "
              f"to the {LIBRARY_FILES}-file library):", flush=True)
        for line in measure(count, work, tree, files, python_env, options.skip_dask):
            print(line, flush=True)
    print(f"million.py: {time.perf_counter() - started:.0f} s in all, load average "
          f"{os.getloadavg()[0]:.2f} at the end")


if __name__ == "__main__":
    main()
