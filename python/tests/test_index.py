import os
import shutil
import sqlite3

from kz_id3 import index, read
from conftest import SAMPLES


def contents(db):
    """Every file and field of an index, without row ids."""
    with sqlite3.connect(db) as connection:
        return connection.execute(
            "SELECT path, size, mtime_ns, type, status, error, position, kind, ident, number, "
            "tag, description, text, id3v1 FROM files LEFT JOIN fields ON file_id = id "
            "ORDER BY path, position").fetchall()


def test_update_equals_fresh_index(tmp_path):
    tree = tmp_path / "tree"
    for folder in ("a", "b"):
        (tree / folder).mkdir(parents=True)
        for sample in SAMPLES:
            shutil.copy(sample, tree / folder)
    db = tmp_path / "index.db"
    first = index.update(db, [tree], workers=2)
    assert (first.files, first.read, first.removed) == (2 * len(SAMPLES), 2 * len(SAMPLES), 0)

    names = sorted(os.listdir(tree / "a"))
    changed = tree / "a" / names[0]
    changed.write_bytes(open(SAMPLES[1], "rb").read() + b"\0")
    os.utime(changed, ns=(0, 1))
    (tree / "b" / names[0]).unlink()
    shutil.copy(SAMPLES[2], tree / "new.mp3")
    second = index.update(db, [tree], workers=2)
    assert (second.read, second.unchanged, second.removed) == (2, 2 * len(SAMPLES) - 2, 1)

    fresh = tmp_path / "fresh.db"
    index.update(fresh, [tree], workers=1)
    assert contents(db) == contents(fresh)
    fields = [row[7:] for row in contents(db) if row[0] == str(changed)]
    assert fields == [(f.kind, f.ident, f.number, f.tag, f.description, f.text, int(f.id3v1))
                      for f in read(changed)]
    assert str(changed) in index.query(db, [("TIT2", read(changed).get("TIT2"))])
