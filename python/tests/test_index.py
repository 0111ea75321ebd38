import base64
import errno
import fcntl
import os
import shutil
import sqlite3
import subprocess
import sys
import threading

import pytest

import kz_id3
from kz_id3 import index
from kz_id3.__main__ import printable
from conftest import SAMPLES, frame, run_cli, tag

ABBA = tag(frame("TPE1", "ABBA"), frame("TIT2", "Waterloo"),
           frame("TXXX", "MusicBrainz Album Id", "m-1"))
QUEEN = tag(frame("TPE1", "Queen"), frame("TIT2", "Bicycle Race"), frame("TXXX", "Mood", "m-1"))


def contents(db):  # every file and field, without row ids
    with sqlite3.connect(db) as connection:
        return connection.execute(
            "SELECT path, size, mtime_ns, type, status, error, position, kind, ident, number, "
            "tag, description, text, id3v1 FROM files LEFT JOIN fields ON file_id = id "
            "ORDER BY path, position").fetchall()


def paths_of(db):
    return list(dict.fromkeys(row[0] for row in contents(db)))


def tree_of(root, files):
    for name, data in files.items():
        path = os.path.join(os.fsencode(root), os.fsencode(name))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)
    return root


@pytest.fixture
def music(tmp_path):
    return tree_of(tmp_path / "music", {"abba.mp3": ABBA, "q/queen.mp3": QUEEN, "empty.mp3": b""})


def test_update_equals_fresh_index(tmp_path):
    tree = tmp_path / "tree"
    for folder in ("a", "b"):
        (tree / folder).mkdir(parents=True)
        for sample in SAMPLES:
            shutil.copy(sample, tree / folder)
    db, count = tmp_path / "index.db", 2 * len(SAMPLES)
    first = index.update(db, tree, workers=2)
    assert (first.files, first.read, first.removed, first.errors) == (count, count, 0, 0)
    changed = tree / "a" / os.path.basename(SAMPLES[0])
    changed.write_bytes(ABBA)
    os.utime(changed, ns=(0, 1))
    (tree / "b" / os.path.basename(SAMPLES[0])).unlink()
    (tree / "new.mp3").write_bytes(QUEEN)
    second = index.update(db, [tree], workers=2, batch_size=1)
    assert str(second).startswith(f"{count} files: 2 read, {count - 2} unchanged, 1 removed, "
                                  f"0 could not be read (")
    fresh = tmp_path / "fresh.db"
    index.update(fresh, [tree], workers=1)
    assert contents(db) == contents(fresh)
    assert [row[7:] for row in contents(db) if row[0] == str(changed)] == [
        ("field", "TPE1", 132, 1, None, "ABBA", 0), ("field", "TIT2", 118, 2, None, "Waterloo", 0),
        ("field", "TXXX/WXXX", 503, 503, "MusicBrainz Album Id", "m-1", 0)]


@pytest.fixture(scope="module")
def indexed(tmp_path_factory):
    music = tree_of(tmp_path_factory.mktemp("indexed") / "music",
                    {"abba.mp3": ABBA, "q/queen.mp3": QUEEN, "empty.mp3": b""})
    os.mkfifo(music / "fifo.mp3")
    summary = index.update(music.parent / "i.db", music, workers=1)
    assert (summary.files, summary.read, summary.errors) == (3, 3, 0)
    return music.parent / "i.db", f"{music}/abba.mp3", f"{music}/empty.mp3", f"{music}/q/queen.mp3"


def test_rows_of_files(indexed):
    db, abba, empty, queen = indexed
    with sqlite3.connect(db) as connection:
        assert connection.execute("SELECT path, size, type, status, error FROM files ORDER BY "
                                  "path").fetchall() == [
            (abba, len(ABBA), "ID3 Ver 2.x", "tags", None),
            (empty, 0, "MPEG-1 audio - Layer 3", "none", None),
            (queen, len(QUEEN), "ID3 Ver 2.x", "tags", None)]
        assert connection.execute("PRAGMA user_version").fetchone() == (3,)


@pytest.mark.parametrize("terms, ignore_case, found", [
    ([("TPE1", "abba")], False, []), ({"tpe1": "abba"}, True, ["abba"]),
    ([("TXXX", "m-1")], False, ["abba", "queen"]), ([("WXXX", "m-1")], False, ["abba", "queen"]),
    ([("TXXX:Mood", "m-1")], False, ["queen"]), ([("TXXX:mood", "M-1")], False, []),
    ([("TXXX:mood", "M-1")], True, ["queen"]), ([("TXXX", "m-1"), ("TPE1", "ABBA")], False, ["abba"]),
    ({}, False, ["abba", "empty", "queen"]),
])
def test_query(indexed, terms, ignore_case, found):
    db, *paths = indexed
    names = dict(zip(["abba", "empty", "queen"], paths))
    assert index.query(db, terms, ignore_case=ignore_case) == [names[name] for name in found]


@pytest.mark.parametrize("terms", [[["TPE1", "ABBA"]], ["TPE1=ABBA"], [("TPE1", "A", "B")],
                                   [("TPE1", 1)]])
def test_query_terms_that_are_not_pairs_of_str(indexed, terms):
    with pytest.raises(TypeError) as raised:
        index.query(indexed[0], terms)
    assert str(raised.value) == "a query term is a pair of str (IDENT, TEXT) or " \
        f"(IDENT:DESCRIPTION, TEXT), not {terms[0]!r}"


def test_query_of_a_missing_or_unusual_database(indexed, tmp_path):
    with pytest.raises(FileNotFoundError):
        index.query(tmp_path / "none.db", [("TPE1", "ABBA")])
    done = run_cli("query", str(tmp_path / "none.db"), "TPE1=ABBA")
    assert (done.returncode, done.stdout, done.stderr) == \
        (2, b"", f"kz_id3: {tmp_path}/none.db: no such index database\n".encode())
    assert os.listdir(tmp_path) == []
    (tmp_path / "text.db").write_text("not a database at all, but long enough to be read " * 20)
    with pytest.raises(kz_id3.Error, match=f"^{tmp_path}/text.db: not an index database"):
        index.query(tmp_path / "text.db", [("TPE1", "ABBA")])
    # Where SQLite cannot make the shared-memory file a WAL database needs
    # (here a directory stands in its way, as a read-only directory would):
    # read all the same, the database unchanged.
    shutil.copy(indexed[0], tmp_path / "i.db")
    (tmp_path / "i.db-shm").mkdir()
    before = (tmp_path / "i.db").read_bytes()
    assert index.query(tmp_path / "i.db", {"TPE1": "ABBA"}) == [indexed[1]]
    assert (tmp_path / "i.db").read_bytes() == before


def test_query_of_a_read_only_index_of_another_user(indexed, shared):
    shutil.copy(indexed[0], shared / "i.db")
    (shared / "i.db").chmod(0o444)
    shared.chmod(0o555)
    done = run_cli("query", "-i", "--json", str(shared / "i.db"), "TXXX:MOOD=m-1",
                   "tit2=BICYCLE RACE", as_nobody=True)
    assert (done.returncode, done.stdout, done.stderr) == \
        (0, b'{"path":"' + indexed[3].encode() + b'"}\n', b"")
    assert os.listdir(shared) == ["i.db"]


@pytest.mark.parametrize("path, printed", [
    (b"a\\b", "a\\\\b"),
    (b"caf\xe9 \x80\xff.mp3", "caf\\xE9 \\x80\\xFF.mp3"),
    (os.fsdecode(b"caf\xe9.mp3"), "caf\\xE9.mp3"),
    ("\x01\x1f ~\x7f\x85\x9f\xa0\xe9", "\\x01\\x1F ~\\x7F\\xC2\\x85\\xC2\\x9F\xa0\xe9"),
])
def test_printed_paths(path, printed):
    assert printable(path) == printed


def test_names_that_are_not_utf8_are_stored_exactly(tmp_path):
    root = tree_of(tmp_path / "m", {b"caf\xe9.mp3": ABBA, "caf\\xe9.mp3": QUEEN})
    db, raw = tmp_path / "i.db", os.fsencode(root) + b"/caf\xe9.mp3"
    index.update(db, root)
    assert paths_of(db) == [f"{root}/caf\\xe9.mp3", raw]
    assert index.query(db, {"TPE1": "ABBA"}) == [os.fsdecode(raw)]
    assert run_cli("query", "--json", str(db), "TIT2=Waterloo").stdout == \
        f'{{"path":"{root}/caf\ufffd.mp3","path_base64":"{base64.b64encode(raw).decode()}"}}\n' \
        .encode()
    assert run_cli("query", str(db), "TPE1=Queen").stdout == os.fsencode(f"{root}/caf\\\\xe9.mp3\n")
    assert run_cli("query", str(db), "TPE1=ABBA").stdout == os.fsencode(f"{root}/caf\\xE9.mp3\n")
    assert index.update(db, root).unchanged == 2


def test_index_of_schema_1_is_migrated(tmp_path):
    # Version 1 stored the bytes of a name that is not UTF-8 as \xNN, and
    # could leave fields whose file row was gone; before version 3 no text
    # had its case folding stored.
    root = tree_of(tmp_path / "m", {b"caf\xe0.mp3": ABBA, "lit\\xe9ral.mp3": QUEEN})
    db, raw = tmp_path / "old.db", os.fsencode(root) + b"/caf\xe0.mp3"
    index.update(db, root)
    with sqlite3.connect(db) as connection:
        connection.executescript("DROP INDEX fields_by_fold; ALTER TABLE fields DROP COLUMN fold")
        connection.execute("UPDATE files SET path = ? WHERE path = ?", (f"{root}/caf\\xe0.mp3", raw))
        connection.execute("INSERT INTO fields VALUES (7, 0, 'field', 'TPE1', 132, 1, NULL, 'x', 0)")
        connection.execute("PRAGMA user_version = 1")
    index.merge(tmp_path / "merged.db", db)
    assert index.query(tmp_path / "merged.db", {"tpe1": "abba"}, ignore_case=True) == \
        [f"{root}/caf\\xe0.mp3"]
    summary = index.update(db, root)
    assert (summary.read, summary.unchanged, summary.removed) == (0, 2, 0)
    assert paths_of(db) == [f"{root}/lit\\xe9ral.mp3", raw]
    assert index.query(db, {"tpe1": "abba"}, ignore_case=True) == [os.fsdecode(raw)]
    with sqlite3.connect(db) as connection:
        assert connection.execute("SELECT count(*) FROM fields WHERE file_id = 7").fetchone() == (0,)
        assert connection.execute("PRAGMA user_version").fetchone() == (3,)


def test_a_missing_or_emptied_root_removes_nothing(music, tmp_path):
    db = tmp_path / "i.db"
    other = tree_of(tmp_path / "other", {"x.mp3": ABBA})
    index.update(db, [music, other])
    before = contents(db)
    os.rename(music, tmp_path / "moved")
    with pytest.raises(kz_id3.ReadError) as raised:
        index.update(db, [music])
    assert (raised.value.errno, raised.value.filename) == (errno.ENOENT, str(music))
    done = run_cli("index", str(tmp_path / "never.db"), str(music))
    assert (done.returncode, done.stdout, done.stderr.decode()) == \
        (2, b"", f"kz_id3: {music}: no such file or directory: nothing was updated\n")
    music.mkdir()
    with pytest.raises(index.EmptyRoot) as raised:
        index.update(db, [music, other])
    assert raised.value.roots == [str(music)]
    done = run_cli("index", str(db), str(music))
    assert (done.returncode, done.stderr.decode()) == (2, (
        f"kz_id3: no file found under {music}, where the index holds some (an unmounted "
        f"drive?): nothing was removed; prune_empty=True (--prune-empty) removes them\n"))
    assert contents(db) == before and not (tmp_path / "never.db").exists()
    pruned = index.update(db, [music, other], prune_empty=True)
    assert (pruned.files, pruned.removed, paths_of(db)) == (1, 3, [f"{other}/x.mp3"])
    assert index.update(tmp_path / "new.db", music).files == 0  # nothing indexed: no error


def test_second_writer_fails_or_waits(music, tmp_path):
    db = tmp_path / "i.db"
    index.update(db, music)
    with open(db, "rb") as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        with pytest.raises(index.IndexBusy) as busy:
            index.update(db, music)
        with pytest.raises(index.IndexBusy):
            index.merge(db, [db])
        with pytest.raises(index.IndexBusy):
            index.write_files(db, [])
        done = run_cli("index", str(db), str(music))
        assert (done.returncode, done.stderr.decode()) == (2, f"kz_id3: {busy.value}\n")
        assert str(busy.value) == f"{db}: another process is writing this index (an index or " \
            f"merge run); wait until it has finished, or wait for it with wait=True (--wait)"
        waited = []
        waiter = threading.Thread(target=lambda: waited.append(index.update(db, music, wait=True)))
        waiter.start()
        waiter.join(0.5)
        assert waited == []
    waiter.join()
    assert waited[0].unchanged == 3


def test_two_runs_at_once_leave_the_database_of_one(tmp_path):
    tree = tmp_path / "tree"
    tree.mkdir()
    for number in range(300):
        (tree / f"{number:03}.mp3").write_bytes(ABBA if number % 2 else QUEEN)
    db, alone = tmp_path / "both.db", tmp_path / "alone.db"
    command = [sys.executable, "-m", "kz_id3", "index", "--wait", "-j", "1", str(db), str(tree)]
    runs = [subprocess.Popen(command, stdout=subprocess.PIPE) for _ in range(2)]
    outputs = sorted(run.communicate()[0].decode()[:50] for run in runs)
    assert [run.returncode for run in runs] == [0, 0]
    assert outputs == ["300 files: 0 read, 300 unchanged, 0 removed, 0 cou",
                       "300 files: 300 read, 0 unchanged, 0 removed, 0 cou"]
    index.update(alone, tree)
    assert contents(db) == contents(alone) and len(contents(db)) == 900


def test_merge_checks_every_shard_first(music, tmp_path):
    shard, db = tmp_path / "shard.db", tmp_path / "merged.db"
    index.update(shard, music)
    with sqlite3.connect(tmp_path / "later.db") as later:
        later.executescript("CREATE TABLE files (x); CREATE TABLE fields (y); "
                            "PRAGMA user_version = 7;")
    (tmp_path / "plain.txt").write_text("x" * 4096)
    for shards, message in [
            ([shard, tmp_path / "s"], f"[Errno 2] no such index database: nothing was merged: "
                                      f"'{tmp_path}/s'"),
            ("s.db", "[Errno 2] no such index database: nothing was merged: "
                     f"'{os.getcwd()}/s.db'"),
            (tmp_path / "later.db", f"{tmp_path}/later.db: not an index database of this package "
                                    f"(schema version 7): nothing was merged"),
            ([shard, tmp_path / "plain.txt"], f"{tmp_path}/plain.txt: not an index database "
                                              f"(file is not a database): nothing was merged")]:
        with pytest.raises(kz_id3.Error) as raised:
            index.merge(db, shards)
        assert str(raised.value) == message
    assert not any(os.path.exists(tmp_path / name) for name in ("s", "s.db", "merged.db"))
    for shards in (shard, [shard]):
        assert index.merge(db, shards) == 3
        assert contents(db) == contents(shard)


def test_write_files_stores_every_path_given(tmp_path):
    db, missing = tmp_path / "w.db", str(tmp_path / "missing.mp3")
    listed = [SAMPLES[0], missing, kz_id3.ReadError(errno.EACCES, "Permission denied", "/d")]
    assert index.write_files(db, listed) == 2
    with sqlite3.connect(db) as connection:
        rows = connection.execute("SELECT path, size, mtime_ns, type, status, error FROM files "
                                  "ORDER BY id").fetchall()
    assert rows == [(SAMPLES[0], os.path.getsize(SAMPLES[0]), os.stat(SAMPLES[0]).st_mtime_ns,
                     kz_id3.read(SAMPLES[0]).type_name, "tags", None),
                    (missing, -1, -1, None, "error", "No such file or directory")]


def test_unlisted_directory_is_named_and_kept(shared):
    root = tree_of(shared / "m", {"a.mp3": ABBA, "locked/b.mp3": QUEEN, "z.mp3": QUEEN})
    for directory in (root, root / "locked"):
        directory.chmod(0o777)
    db = shared / "i.db"
    index.update(db, root)
    os.chmod(db, 0o666)
    (root / "locked").chmod(0)
    done = run_cli("index", str(db), str(root), as_nobody=True)
    assert (done.returncode, done.stderr.decode()) == (1, (
        f"kz_id3: {root}/locked: cannot list the directory: Permission denied (the files under "
        f"it stay in the index)\n"))
    assert done.stdout.decode().startswith("2 files: 0 read, 2 unchanged, 0 removed, 0 could "
                                           "not be read, 1 directories could not be listed")
    assert paths_of(db) == [f"{root}/a.mp3", f"{root}/locked/b.mp3", f"{root}/z.mp3"]


USAGE = "usage: python3 -m kz_id3 index [-j N] [--wait] [--prune-empty] DB ROOT..."


def misused(command, message):
    return f"python3 -m kz_id3 {command}: {message} (see python3 -m kz_id3 {command} --help)"


@pytest.mark.parametrize("arguments, status, first_line", [
    ([], 2, USAGE), ([SAMPLES[0]], 2, USAGE), (["--help"], 0, USAGE),
    (["query", "db"], 2, misused("query", "the following arguments are required: IDENT=TEXT")),
    (["query", "db", "TPE1"], 2, misused("query", "'TPE1' is not IDENT=TEXT")),
    (["index", "-j", "0", "db", "x"], 2,
     misused("index", "argument -j/--jobs: bad number for -j: '0' (1 or more)")),
    (["index", "-j", "x", "db", "x"], 2,
     misused("index", "argument -j/--jobs: bad number for -j: 'x' (1 or more)")),
    (["index", "--type", "65536", "db", "x"], 2,
     misused("index", "argument --type: bad number for --type: '65536' (0 to 65535)")),
    (["index", "--type", "x", "db", "x"], 2,
     misused("index", "argument --type: bad number for --type: 'x' (0 to 65535)")),
])
def test_command_line_usage(arguments, status, first_line):
    done = run_cli(*arguments)
    shown, other = (done.stdout, done.stderr) if status == 0 else (done.stderr, done.stdout)
    assert (done.returncode, shown.decode().partition("\n")[0], other) == (status, first_line, b"")


def test_command_line_write_errors_and_unreadable_files(music, tmp_path):
    db = tmp_path / "i.db"
    for arguments in (["index", str(db), str(music)], ["query", str(db), "TPE1=ABBA"]):
        with open("/dev/full", "w") as full:
            done = run_cli(*arguments, stdout=full)
        assert (done.returncode, done.stderr) == (4, b"kz_id3: write error: No space left on "
                                                      b"device\n")
    for file_type in ("0", "65535"):
        done = run_cli("index", "--ext", "txt", "--exclude", "q", "--type", file_type, "-j", "1",
                       str(tmp_path / "j.db"), str(music))
        assert (done.returncode, done.stdout[:34]) == (0, b"0 files: 0 read, 0 unchanged, 0 re")
    with open(music / "huge.mp3", "wb") as huge:  # sparse: 4 GiB, beyond the module
        huge.truncate(1 << 32)
    done = run_cli("index", str(db), str(music))
    assert (done.returncode, done.stderr.decode()) == (1, f"kz_id3: {music}/huge.mp3: File too "
                                                          f"large\n")
    assert done.stdout.startswith(b"4 files: 1 read, 3 unchanged, 0 removed, 1 could not be read")
