"""A persistent SQLite index of a collection's tags.

``update(db, paths)`` walks the paths, reads every regular file into the
database, and on the next run reads again only the files whose size or
modification time changed, and removes the files under the paths that
vanished.  Files outside this run's paths stay as they are.  Each batch of
files is one transaction: a run that is interrupted keeps every batch it
committed, and a file's row and its fields are always written together.
One writer at a time; readers (any SQLite client) may read meanwhile.

Schema (``PRAGMA user_version`` 1)::

    CREATE TABLE files (
        id       INTEGER PRIMARY KEY,
        path     TEXT NOT NULL UNIQUE, -- absolute path as walked
        size     INTEGER NOT NULL,     -- bytes, as seen before the read
        mtime_ns INTEGER NOT NULL,     -- modification time, ns since the epoch
        type     TEXT,                 -- type name the module gave; NULL on error
        status   TEXT NOT NULL,        -- 'tags', 'none' (nothing to read), 'error'
        error    TEXT                  -- why the file could not be read
    );
    CREATE TABLE fields (
        file_id     INTEGER NOT NULL REFERENCES files (id) ON DELETE CASCADE,
        position    INTEGER NOT NULL,  -- order in the file, from 0
        kind        TEXT NOT NULL,     -- 'field', 'outside', 'failure'
        ident       TEXT NOT NULL,     -- 'TIT2', 'ID3v1 title', 'TXXX', ...
        number      INTEGER NOT NULL,  -- field number (118 for TIT2 ...)
        tag         INTEGER NOT NULL,  -- tag number; the code of a failure
        description TEXT,              -- user-defined fields (TXXX, WXXX)
        text        TEXT NOT NULL,
        id3v1       INTEGER NOT NULL,  -- 1: a field of the ID3v1 trailer
        PRIMARY KEY (file_id, position)
    ) WITHOUT ROWID;
    CREATE INDEX fields_by_text ON fields (ident, text);

For example, the albums of an artist::

    SELECT DISTINCT album.text FROM fields AS artist
      JOIN fields AS album ON album.file_id = artist.file_id AND album.ident = 'TALB'
     WHERE artist.ident = 'TPE1' AND artist.text = 'Some Artist';
"""

from __future__ import annotations

import collections
import os
import sqlite3
import stat
import time
from dataclasses import dataclass
from typing import Dict, Iterable, Iterator, List, Optional, Sequence, Set, Tuple

from ._reader import PathLike, read_many
from ._tags import NOTHING_TO_READ, Tags
from ._walk import walk

SCHEMA_VERSION = 1

_SCHEMA = """
CREATE TABLE IF NOT EXISTS files (
    id       INTEGER PRIMARY KEY,
    path     TEXT NOT NULL UNIQUE,
    size     INTEGER NOT NULL,
    mtime_ns INTEGER NOT NULL,
    type     TEXT,
    status   TEXT NOT NULL,
    error    TEXT
);
CREATE TABLE IF NOT EXISTS fields (
    file_id     INTEGER NOT NULL REFERENCES files (id) ON DELETE CASCADE,
    position    INTEGER NOT NULL,
    kind        TEXT NOT NULL,
    ident       TEXT NOT NULL,
    number      INTEGER NOT NULL,
    tag         INTEGER NOT NULL,
    description TEXT,
    text        TEXT NOT NULL,
    id3v1       INTEGER NOT NULL,
    PRIMARY KEY (file_id, position)
) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS fields_by_text ON fields (ident, text);
"""


@dataclass
class Summary:
    """What one :func:`update` did."""

    files: int = 0      #: regular files found under the paths
    read: int = 0       #: files read in this run: new or changed
    unchanged: int = 0  #: files skipped: same size and modification time
    removed: int = 0    #: files gone from the paths, removed from the index
    errors: int = 0     #: files of this run that could not be read
    seconds: float = 0.0

    def __str__(self) -> str:
        return (f"{self.files} files: {self.read} read, {self.unchanged} unchanged, "
                f"{self.removed} removed, {self.errors} could not be read "
                f"({self.seconds:.2f} s)")


def connect(db: PathLike) -> sqlite3.Connection:
    """Opens (and creates) an index database."""
    connection = sqlite3.connect(db, isolation_level=None)
    version = connection.execute("PRAGMA user_version").fetchone()[0]
    if version not in (0, SCHEMA_VERSION):
        connection.close()
        raise ValueError(f"{db}: an index of schema version {version}, not {SCHEMA_VERSION}")
    connection.execute("PRAGMA journal_mode = WAL")
    connection.execute("PRAGMA synchronous = NORMAL")
    connection.execute("PRAGMA cache_size = -65536")  # KiB: the text index outgrows the default
    connection.executescript(_SCHEMA)
    connection.execute(f"PRAGMA user_version = {SCHEMA_VERSION}")
    return connection


def _key(path: str) -> str:
    """The path as stored: bytes that are not UTF-8 written as \\xNN."""
    try:
        path.encode()
        return path
    except UnicodeEncodeError:
        return os.fsencode(path).decode("utf-8", "backslashreplace")


def _under(path: str, roots: Set[str]) -> bool:
    """Whether `path` is one of `roots` or lies under one (roots absolute and
    normalised): a walk up its parents, so that many roots cost nothing."""
    while path not in roots:
        parent = os.path.dirname(path)
        if parent == path:
            return False
        path = parent
    return True


def _regular_files(roots: Sequence[str], unlisted: List[str]
                   ) -> Iterator[Tuple[str, os.stat_result]]:
    for root in roots:
        if os.path.isdir(root):
            for entry in walk(root, sort=False, onerror=lambda path, _: unlisted.append(path)):
                try:
                    status = entry.stat()
                except OSError:
                    continue
                if stat.S_ISREG(status.st_mode):
                    yield entry.path, status
        else:
            try:
                status = os.stat(root)
            except OSError:
                continue
            if stat.S_ISREG(status.st_mode):
                yield root, status


def update(db: PathLike, paths: Iterable[PathLike], *, workers: Optional[int] = None,
           batch_size: int = 1000, file_type: Optional[int] = None) -> Summary:
    """Brings the index ``db`` up to date with the files under ``paths``.

    Reads new and changed files on ``workers`` threads (see
    :func:`kz_id3.read_many`) and writes them ``batch_size`` files per
    transaction; then removes the files under ``paths`` that are gone.
    Files under a directory that could not be listed are kept.
    """
    started = time.perf_counter()
    roots = [os.path.abspath(os.fspath(path)) for path in paths]
    summary = Summary()
    connection = connect(db)
    try:
        known: Dict[str, Tuple[int, int, int]] = {
            path: (size, mtime, file_id) for file_id, path, size, mtime
            in connection.execute("SELECT id, path, size, mtime_ns FROM files")}
        if not known:
            # Filling an empty index: the text index is built once at the end,
            # sorted, rather than row by row (connect() builds it again if the
            # run is cut short).
            connection.execute("DROP INDEX IF EXISTS fields_by_text")
        seen: Set[str] = set()
        unlisted: List[str] = []
        waiting: "collections.deque[Tuple[str, int, int, Optional[int]]]" = collections.deque()

        def changed() -> Iterator[str]:
            for path, status in _regular_files(roots, unlisted):
                key = _key(path)
                seen.add(key)
                summary.files += 1
                old = known.get(key)
                if old is not None and old[0] == status.st_size and old[1] == status.st_mtime_ns:
                    summary.unchanged += 1
                    continue
                waiting.append((key, status.st_size, status.st_mtime_ns,
                                old[2] if old is not None else None))
                yield path

        batch: List[Tuple[str, int, int, Optional[int], object]] = []
        # read_many keeps the order of changed(): its results pair with `waiting`.
        for _, tags in read_many(changed(), workers=workers, file_type=file_type):
            key, size, mtime, old_id = waiting.popleft()
            batch.append((key, size, mtime, old_id, tags))
            summary.read += 1
            summary.errors += isinstance(tags, Exception)
            if len(batch) >= batch_size:
                _write(connection, batch)
                batch = []
        _write(connection, batch)

        walked, skipped = set(roots), set(unlisted)
        gone = [file_id for path, (_, _, file_id) in known.items()
                if path not in seen and _under(path, walked) and not _under(path, skipped)]
        for start in range(0, len(gone), batch_size):
            part = [(file_id,) for file_id in gone[start:start + batch_size]]
            connection.execute("BEGIN IMMEDIATE")
            connection.executemany("DELETE FROM fields WHERE file_id = ?", part)
            connection.executemany("DELETE FROM files WHERE id = ?", part)
            connection.execute("COMMIT")
        summary.removed = len(gone)
        connection.executescript(_SCHEMA)
    finally:
        connection.close()
    summary.seconds = time.perf_counter() - started
    return summary


def _write(connection: sqlite3.Connection, batch: List[Tuple[str, int, int, Optional[int], object]]
           ) -> None:
    if not batch:
        return
    connection.execute("BEGIN IMMEDIATE")
    try:
        next_id = connection.execute("SELECT coalesce(max(id), 0) + 1 FROM files").fetchone()[0]
        files = []
        fields = []
        stale = []
        for key, size, mtime, old_id, tags in batch:
            if old_id is None:
                file_id, next_id = next_id, next_id + 1
            else:
                file_id = old_id
                stale.append((old_id,))
            if isinstance(tags, Tags):
                status = "none" if tags.status == NOTHING_TO_READ else "tags"
                files.append((file_id, key, size, mtime, tags.type_name, status, None))
                fields += [(file_id, position, f.kind, f.ident, f.number, f.tag, f.description,
                            f.text, int(f.id3v1)) for position, f in enumerate(tags.fields)]
            else:
                files.append((file_id, key, size, mtime, None, "error", _reason(tags)))
        connection.executemany("DELETE FROM fields WHERE file_id = ?", stale)
        connection.executemany("INSERT OR REPLACE INTO files VALUES (?, ?, ?, ?, ?, ?, ?)", files)
        connection.executemany("INSERT INTO fields VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)", fields)
        connection.execute("COMMIT")
    except BaseException:
        connection.execute("ROLLBACK")
        raise


def merge(db: PathLike, shards: Iterable[PathLike]) -> int:
    """Merges index databases (the shards that
    :func:`kz_id3.dask.index_shards` writes, or any other index) into
    ``db``, one transaction per shard; a path already in ``db`` takes the
    shard's row and fields.  Returns the number of files merged."""
    connection = connect(db)
    merged = 0
    try:
        if connection.execute("SELECT count(*) FROM files").fetchone()[0] == 0:
            connection.execute("DROP INDEX IF EXISTS fields_by_text")  # built once, below
        for shard in shards:
            connection.execute("ATTACH DATABASE ? AS shard", (os.fspath(shard),))
            try:
                connection.execute("BEGIN IMMEDIATE")
                connection.execute("DELETE FROM fields WHERE file_id IN (SELECT id FROM files "
                                   "WHERE path IN (SELECT path FROM shard.files))")
                connection.execute("DELETE FROM files WHERE path IN (SELECT path FROM shard.files)")
                offset = connection.execute("SELECT coalesce(max(id), 0) FROM files").fetchone()[0]
                merged += connection.execute(
                    "INSERT INTO files SELECT id + ?, path, size, mtime_ns, type, status, error "
                    "FROM shard.files", (offset,)).rowcount
                connection.execute("INSERT INTO fields SELECT file_id + ?, position, kind, ident, "
                                   "number, tag, description, text, id3v1 FROM shard.fields",
                                   (offset,))
                connection.execute("COMMIT")
            except BaseException:
                if connection.in_transaction:
                    connection.execute("ROLLBACK")
                raise
            finally:
                connection.execute("DETACH DATABASE shard")
        connection.executescript(_SCHEMA)
    finally:
        connection.close()
    return merged


def _reason(error: object) -> str:
    if isinstance(error, OSError) and error.strerror:
        return error.strerror
    return str(error)


def query(db: PathLike, terms: Iterable[Tuple[str, str]]) -> List[str]:
    """The paths of the indexed files that have a field of each
    ``(ident, text)`` pair, sorted."""
    terms = list(terms)
    match = "EXISTS (SELECT 1 FROM fields WHERE file_id = files.id AND ident = ? AND text = ?)"
    where = " AND ".join([match] * len(terms)) or "1"
    connection = connect(db)
    try:
        rows = connection.execute(f"SELECT path FROM files WHERE {where} ORDER BY path",
                                  [value for term in terms for value in term])
        return [path for (path,) in rows]
    finally:
        connection.close()
