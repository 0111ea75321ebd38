import base64
import errno
import fcntl
import json
import os
import shutil
import sqlite3
import subprocess
import sys
import threading

import pytest

import kz_id3
from kz_id3 import index
from conftest import (SAMPLES, needs_nobody, run_cli, shared_directory, tag, text_frame,
                      user_frame)

ABBA = tag(text_frame("TPE1", "ABBA"), text_frame("TIT2", "Waterloo"),
           user_frame("MusicBrainz Album Id", "m-1"))
QUEEN = tag(text_frame("TPE1", "Queen"), text_frame("TIT2", "Bicycle Race"),
            user_frame("Mood", "m-1"))


def contents(db):  # every file and field, without row ids
    with sqlite3.connect(db) as connection:
        return connection.execute(
            "SELECT path, size, mtime_ns, type, status, error, position, kind, ident, number, "
            "tag, description, text, id3v1 FROM files LEFT JOIN fields ON file_id = id "
            "ORDER BY path, position").fetchall()


def paths_of(db):
    with sqlite3.connect(db) as connection:
        return [path for (path,) in connection.execute("SELECT path FROM files ORDER BY path")]


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
    db = tmp_path / "index.db"
    first = index.update(db, tree, workers=2)
    assert (first.files, first.read, first.removed, first.errors) == \
        (2 * len(SAMPLES), 2 * len(SAMPLES), 0, 0)

    names = sorted(os.listdir(tree / "a"))
    changed = tree / "a" / names[0]
    changed.write_bytes(ABBA)
    os.utime(changed, ns=(0, 1))
    (tree / "b" / names[0]).unlink()
    (tree / "new.mp3").write_bytes(QUEEN)
    second = index.update(db, [tree], workers=2, batch_size=1)
    assert (second.read, second.unchanged, second.removed) == (2, 2 * len(SAMPLES) - 2, 1)
    assert str(second).startswith(f"{2 * len(SAMPLES)} files: 2 read, {2 * len(SAMPLES) - 2} "
                                  f"unchanged, 1 removed, 0 could not be read (")

    fresh = tmp_path / "fresh.db"
    index.update(fresh, [tree], workers=1)
    assert contents(db) == contents(fresh)
    fields = [row[7:] for row in contents(db) if row[0] == str(changed)]
    assert fields == [("field", "TPE1", 132, 1, None, "ABBA", 0),
                      ("field", "TIT2", 118, 2, None, "Waterloo", 0),
                      ("field", "TXXX/WXXX", 503, 503, "MusicBrainz Album Id", "m-1", 0)]
    assert index.query(db, [("TIT2", "Waterloo")]) == [str(changed)]


def test_files_rows_and_unreadable_files(music, tmp_path):
    db = tmp_path / "i.db"
    os.mkfifo(music / "fifo.mp3")
    summary = index.update(db, music, workers=1)
    assert (summary.files, summary.read, summary.errors) == (3, 3, 0)
    with sqlite3.connect(db) as connection:
        rows = connection.execute("SELECT path, size, type, status, error FROM files "
                                  "ORDER BY path").fetchall()
        assert connection.execute("PRAGMA user_version").fetchone() == (2,)
    assert rows == [(f"{music}/abba.mp3", len(ABBA), "ID3 Ver 2.x", "tags", None),
                    (f"{music}/empty.mp3", 0, "MPEG-1 audio - Layer 3", "none", None),
                    (f"{music}/q/queen.mp3", len(QUEEN), "ID3 Ver 2.x", "tags", None)]


def test_names_that_are_not_utf8_are_stored_exactly(tmp_path):
    root = tmp_path / "m"
    tree_of(root, {b"caf\xe9.mp3": ABBA, "caf\\xe9.mp3": QUEEN})
    db = tmp_path / "i.db"
    index.update(db, root)
    raw = os.fsencode(root) + b"/caf\xe9.mp3"
    assert paths_of(db) == [f"{root}/caf\\xe9.mp3", raw]
    assert index.query(db, {"TPE1": "ABBA"}) == [os.fsdecode(raw)]
    assert kz_id3.read(os.fsencode(index.query(db, {"TPE1": "ABBA"})[0]))["TPE1"] == ["ABBA"]
    lines = run_cli("query", "--json", str(db), "TIT2=Waterloo").stdout.decode()
    assert json.loads(lines) == {"path": f"{root}/caf\ufffd.mp3",
                                 "path_base64": base64.b64encode(raw).decode()}
    assert run_cli("query", str(db), "TPE1=Queen").stdout == os.fsencode(f"{root}/caf\\\\xe9.mp3\n")
    assert run_cli("query", str(db), "TPE1=ABBA").stdout == os.fsencode(f"{root}/caf\\xE9.mp3\n")
    assert index.update(db, root).unchanged == 2
    tree_of(root, {"\x01\x7f\x85\x9f\x1f .mp3": ABBA})
    index.update(db, root)
    assert run_cli("query", str(db), "TPE1=ABBA").stdout.decode().splitlines()[0] == \
        f"{root}/\\x01\\x7F\\xC2\\x85\\xC2\\x9F\\x1F .mp3"


V1_SCHEMA = """CREATE TABLE files (id INTEGER PRIMARY KEY, path TEXT NOT NULL UNIQUE,
size INTEGER NOT NULL, mtime_ns INTEGER NOT NULL, type TEXT, status TEXT NOT NULL, error TEXT);
CREATE TABLE fields (file_id INTEGER NOT NULL REFERENCES files (id) ON DELETE CASCADE, position
INTEGER NOT NULL, kind TEXT NOT NULL, ident TEXT NOT NULL, number INTEGER NOT NULL, tag INTEGER
NOT NULL, description TEXT, text TEXT NOT NULL, id3v1 INTEGER NOT NULL, PRIMARY KEY (file_id,
position)) WITHOUT ROWID; CREATE INDEX fields_by_text ON fields (ident, text);
PRAGMA user_version = 1;"""


def test_index_of_schema_1_is_migrated(tmp_path):
    root = tmp_path / "m"
    tree_of(root, {b"caf\xe0.mp3": ABBA, "lit\\xe9ral.mp3": QUEEN})
    db = tmp_path / "old.db"
    escaped, literal = f"{root}/caf\\xe0.mp3", f"{root}/lit\\xe9ral.mp3"
    rows = [(1, escaped, os.fsencode(root) + b"/caf\xe0.mp3", "ABBA"),
            (2, literal, os.fsencode(literal), "Queen"), (7, None, None, "orphan")]
    with sqlite3.connect(db) as connection:
        connection.executescript(V1_SCHEMA)
        for file_id, stored, path, text in rows:
            if stored is not None:
                stamp = os.stat(path)
                connection.execute("INSERT INTO files VALUES (?, ?, ?, ?, 'ID3 Ver 2.x', 'tags', "
                                   "NULL)", (file_id, stored, stamp.st_size, stamp.st_mtime_ns))
            connection.execute("INSERT INTO fields VALUES (?, 0, 'field', 'TPE1', 132, 1, NULL, "
                               "?, 0)", (file_id, text))
    summary = index.update(db, root)
    assert (summary.read, summary.unchanged, summary.removed) == (0, 2, 0)
    assert paths_of(db) == [literal, os.fsencode(root) + b"/caf\xe0.mp3"]
    with sqlite3.connect(db) as connection:
        assert connection.execute("SELECT file_id, text FROM fields ORDER BY file_id").fetchall() \
            == [(1, "ABBA"), (2, "Queen")]
        assert connection.execute("PRAGMA user_version").fetchone() == (2,)


def test_missing_root_is_an_error_that_removes_nothing(music, tmp_path):
    db = tmp_path / "i.db"
    index.update(db, music)
    before = contents(db)
    moved = tmp_path / "moved"
    os.rename(music, moved)
    with pytest.raises(kz_id3.ReadError) as raised:
        index.update(db, [music])
    assert (raised.value.errno, raised.value.filename) == (errno.ENOENT, str(music))
    assert contents(db) == before
    done = run_cli("index", str(tmp_path / "never.db"), str(music))
    assert (done.returncode, done.stdout, done.stderr.decode()) == \
        (2, b"", f"kz_id3: {music}: no such file or directory: nothing was updated\n")
    assert not (tmp_path / "never.db").exists()


def test_empty_root_is_an_error_unless_pruned(music, tmp_path):
    db = tmp_path / "i.db"
    other = tree_of(tmp_path / "other", {"x.mp3": ABBA})
    index.update(db, [music, other])
    before = contents(db)
    shutil.rmtree(music)
    music.mkdir()
    with pytest.raises(index.EmptyRoot) as raised:
        index.update(db, [music, other])
    assert raised.value.roots == [str(music)]
    assert contents(db) == before
    done = run_cli("index", str(db), str(music))
    assert (done.returncode, done.stderr.decode()) == (2, (
        f"kz_id3: no file found under {music}, where the index holds some (an unmounted "
        f"drive?): nothing was removed; prune_empty=True (--prune-empty) removes them\n"))
    pruned = index.update(db, [music, other], prune_empty=True)
    assert (pruned.files, pruned.removed) == (1, 3)
    assert paths_of(db) == [f"{other}/x.mp3"]
    assert index.update(tmp_path / "new.db", music).files == 0  # nothing indexed: no error


def test_second_writer_fails_or_waits(music, tmp_path):
    db = tmp_path / "i.db"
    index.update(db, music)
    with open(db, "rb") as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        with pytest.raises(index.IndexBusy) as busy:
            index.update(db, music)
        assert str(busy.value) == f"{db}: another process is writing this index (an index or " \
            f"merge run); wait until it has finished, or wait for it with wait=True (--wait)"
        with pytest.raises(index.IndexBusy):
            index.merge(db, [db])
        done = run_cli("index", str(db), str(music))
        assert (done.returncode, done.stderr.count(b"\n")) == (2, 1)
        assert b"--wait" in done.stderr
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
    outputs = sorted(run.communicate()[0].decode() for run in runs)
    assert [run.returncode for run in runs] == [0, 0]
    assert outputs[0].startswith("300 files: 0 read, 300 unchanged, 0 removed")
    assert outputs[1].startswith("300 files: 300 read, 0 unchanged, 0 removed")
    index.update(alone, tree)
    assert contents(db) == contents(alone)
    with sqlite3.connect(db) as connection:
        assert connection.execute("SELECT count(*) FROM fields").fetchone() == (900,)


def test_query_cases_descriptions_and_read_only(music, tmp_path):
    db = tmp_path / "i.db"
    index.update(db, music)
    abba, queen = f"{music}/abba.mp3", f"{music}/q/queen.mp3"
    for terms, ignore_case, found in [
            ([("TPE1", "abba")], False, []), ([("tpe1", "abba")], True, [abba]),
            ([("TXXX", "m-1")], False, [abba, queen]), ([("TXXX:Mood", "m-1")], False, [queen]),
            ([("TXXX:mood", "M-1")], False, []), ([("TXXX:mood", "M-1")], True, [queen]),
            ([("TXXX", "m-1"), ("TPE1", "ABBA")], False, [abba]),
            ({}, False, [abba, f"{music}/empty.mp3", queen])]:
        assert index.query(db, terms, ignore_case=ignore_case) == found, terms
    with pytest.raises(TypeError):
        index.query(db, [["TPE1", "ABBA"]])
    with pytest.raises(TypeError) as raised:
        index.query(db, ["TPE1=ABBA"])
    assert str(raised.value) == "a query term is a pair of str (IDENT, TEXT) or " \
        "(IDENT:DESCRIPTION, TEXT), not 'TPE1=ABBA'"
    done = run_cli("query", "-i", "--json", str(db), "TXXX:MOOD=m-1", "tit2=BICYCLE RACE")
    assert (done.returncode, done.stdout) == (0, json.dumps({"path": queen}).replace(" ", "")
                                              .encode() + b"\n")

    # Where SQLite cannot make the shared-memory file a WAL database needs
    # (here a directory stands in its way, as a read-only directory would):
    # read all the same, the database unchanged.
    snapshot = tmp_path / "snapshot"
    snapshot.mkdir()
    shutil.copy(db, snapshot / "i.db")
    (snapshot / "i.db-shm").mkdir()
    before = (snapshot / "i.db").read_bytes()
    assert index.query(snapshot / "i.db", {"TPE1": "ABBA"}) == [abba]
    assert (snapshot / "i.db").read_bytes() == before
    needs_nobody()
    shared = shared_directory()
    try:
        shutil.copy(db, shared / "i.db")
        (shared / "i.db").chmod(0o444)
        shared.chmod(0o555)
        before = sorted(os.listdir(shared))
        done = run_cli("query", str(shared / "i.db"), "TPE1=Queen", as_nobody=True)
        assert (done.returncode, done.stdout, done.stderr) == (0, queen.encode() + b"\n", b"")
        assert sorted(os.listdir(shared)) == before == ["i.db"]
        assert index.query(shared / "i.db", [("TPE1", "ABBA")]) == [abba]
    finally:
        shared.chmod(0o755)
        shutil.rmtree(shared)


def test_query_of_a_missing_database_creates_nothing(tmp_path):
    with pytest.raises(FileNotFoundError):
        index.query(tmp_path / "none.db", [("TPE1", "ABBA")])
    done = run_cli("query", str(tmp_path / "none.db"), "TPE1=ABBA")
    assert (done.returncode, done.stdout) == (2, b"")
    assert done.stderr == f"kz_id3: {tmp_path}/none.db: no such index database\n".encode()
    assert os.listdir(tmp_path) == []
    (tmp_path / "text.db").write_text("not a database at all, but long enough to be read " * 20)
    with pytest.raises(kz_id3.Error, match="not an index database"):
        index.query(tmp_path / "text.db", [("TPE1", "ABBA")])


def test_merge_checks_every_shard_first(music, tmp_path):
    shard = tmp_path / "shard.db"
    index.update(shard, music)
    db = tmp_path / "merged.db"
    with pytest.raises(kz_id3.ReadError, match="no such index database"):
        index.merge(db, [shard, tmp_path / "s"])
    with pytest.raises(kz_id3.ReadError):
        index.merge(db, "s.db")
    with sqlite3.connect(tmp_path / "later.db") as later:
        later.executescript("CREATE TABLE files (x); CREATE TABLE fields (y); "
                            "PRAGMA user_version = 7;")
    with pytest.raises(kz_id3.Error) as raised:
        index.merge(db, tmp_path / "later.db")
    assert str(raised.value) == f"{tmp_path}/later.db: not an index database of this package " \
        f"(schema version 7): nothing was merged"
    (tmp_path / "plain.txt").write_text("x" * 4096)
    with pytest.raises(kz_id3.Error, match="not an index database"):
        index.merge(db, [shard, tmp_path / "plain.txt"])
    assert not any(os.path.exists(tmp_path / name) for name in ("s", "s.db", "merged.db"))
    assert index.merge(db, shard) == 3
    assert contents(db) == contents(shard)
    assert index.merge(db, [shard]) == 3
    assert contents(db) == contents(shard)


def test_write_files_stores_every_path_given(tmp_path):
    db = tmp_path / "w.db"
    missing = str(tmp_path / "missing.mp3")
    listed = [SAMPLES[0], missing, kz_id3.ReadError(errno.EACCES, "Permission denied", "/d")]
    assert index.write_files(db, listed) == 2
    with sqlite3.connect(db) as connection:
        rows = connection.execute("SELECT path, size, mtime_ns, status, error FROM files") \
            .fetchall()
    assert rows[1] == (missing, -1, -1, "error", "No such file or directory")
    assert rows[0][0] == SAMPLES[0] and rows[0][3] == "tags"


def test_unlisted_directory_is_named_and_kept(music, tmp_path):
    needs_nobody()
    shared = shared_directory()
    try:
        root = tree_of(shared / "m", {"a.mp3": ABBA, "locked/b.mp3": QUEEN, "z.mp3": QUEEN})
        for directory in (root, root / "locked"):
            directory.chmod(0o777)
        db = shared / "i.db"
        index.update(db, root)
        os.chmod(db, 0o666)
        (root / "locked").chmod(0)
        done = run_cli("index", str(db), str(root), as_nobody=True)
        assert done.returncode == 1
        assert done.stderr.decode() == (f"kz_id3: {root}/locked: cannot list the directory: "
                                        f"Permission denied (the files under it stay in the "
                                        f"index)\n")
        assert done.stdout.decode().startswith("2 files: 0 read, 2 unchanged, 0 removed, 0 could "
                                               "not be read, 1 directories could not be listed")
        assert paths_of(db) == [f"{root}/a.mp3", f"{root}/locked/b.mp3", f"{root}/z.mp3"]
    finally:
        (shared / "m" / "locked").chmod(0o755)
        shutil.rmtree(shared)


def test_command_line_usage_and_write_errors(music, tmp_path):
    for arguments in ([], [SAMPLES[0]], ["--json", SAMPLES[0]]):
        done = run_cli(*arguments)
        assert (done.returncode, done.stdout, done.stderr.count(b"kzdump FILE...")) == (2, b"", 1)
    assert run_cli("--help").returncode == 0
    for arguments in (["query", "db"], ["query", "db", "TPE1"], ["index", "-j", "0", "db", "x"],
                      ["index", "--type", "65536", "db", "x"], ["index", "--type", "x", "db", "x"]):
        done = run_cli(*arguments)
        assert done.returncode == 2 and done.stderr.count(b"\n") == 1, arguments
    db = tmp_path / "i.db"
    for arguments in (["index", str(db), str(music)], ["query", str(db), "TPE1=ABBA"]):
        with open("/dev/full", "w") as full:
            done = run_cli(*arguments, stdout=full)
        assert (done.returncode, done.stderr) == (4, b"kz_id3: write error: No space left on "
                                                      b"device\n")
    for file_type in ("0", "65535"):
        done = run_cli("index", "--ext", "txt", "--exclude", "q", "--type", file_type,
                       str(tmp_path / "j.db"), str(music))
        assert (done.returncode, done.stdout[:34]) == (0, b"0 files: 0 read, 0 unchanged, 0 re")
    with open(music / "huge.mp3", "wb") as huge:  # sparse: 4 GiB, beyond the module
        huge.truncate(1 << 32)
    done = run_cli("index", str(db), str(music))
    assert (done.returncode, done.stderr.decode()) == (1, f"kz_id3: {music}/huge.mp3: File too "
                                                          f"large\n")
    assert done.stdout.startswith(b"4 files: 1 read, 3 unchanged, 0 removed, 1 could not be read")
