"""A persistent SQLite index of a collection's tags.

``update(db, roots)`` walks the roots, reads every file into the database,
and on the next run reads again only the files whose size or modification
time changed, and removes the files under the roots that are gone.  Files
outside this run's roots stay as they are.  Each batch of files is one
transaction: a run that is interrupted keeps every batch it committed, and
a file's row and its fields are always written together.

One writer at a time: :func:`update` and :func:`merge` lock the database
file (``flock``) for their whole run, and a second writer fails at once
with :class:`IndexBusy`, or waits with ``wait=True``.  Readers (:func:`query`
or any SQLite client) read meanwhile.

Nothing is removed by mistake: a root that does not exist is an error that
leaves the index as it was, and so is a root that yields no file where the
index holds some (an unmounted drive leaves an empty mount point), unless
``prune_empty=True``.  The files under a directory that could not be listed
are kept.

Schema (``PRAGMA user_version`` 3; an index of version 1 or 2 is brought
to version 3 by the first :func:`update` or :func:`merge` into it)::

    CREATE TABLE files (
        id       INTEGER PRIMARY KEY,
        path     NOT NULL UNIQUE,      -- absolute path as walked, exactly: TEXT when
                                       -- its bytes are UTF-8, else a BLOB of its bytes
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
        fold        TEXT,              -- text.casefold() where that differs from text
        PRIMARY KEY (file_id, position)
    ) WITHOUT ROWID;
    CREATE INDEX fields_by_text ON fields (ident, text);
    -- what query(..., ignore_case=True) looks up
    CREATE INDEX fields_by_fold ON fields (lower(ident), coalesce(fold, text));

For example, the albums of an artist::

    SELECT DISTINCT album.text FROM fields AS artist
      JOIN fields AS album ON album.file_id = artist.file_id AND album.ident = 'TALB'
     WHERE artist.ident = 'TPE1' AND artist.text = 'Some Artist';
"""

from __future__ import annotations

import collections
import contextlib
import errno
import fcntl
import os
import re
import sqlite3
import stat
import time
import urllib.parse
from dataclasses import dataclass, field
from typing import (Any, Dict, Iterable, Iterator, List, Mapping, Optional, Set, Tuple, Union)

from ._errors import Error, ReadError, reason
from ._reader import (PathLike, check_count, check_file_type, fspath, is_path, read_many, walk)
from ._tags import NOTHING_TO_READ, Tags, idents_of, split_key

SCHEMA_VERSION = 3

_SCHEMA = """
CREATE TABLE IF NOT EXISTS files (
    id       INTEGER PRIMARY KEY,
    path     NOT NULL UNIQUE,
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
    fold        TEXT,
    PRIMARY KEY (file_id, position)
) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS fields_by_text ON fields (ident, text);
CREATE INDEX IF NOT EXISTS fields_by_fold ON fields (lower(ident), coalesce(fold, text));
"""
# Filling an empty index, the text indexes are built once at the end, sorted,
# rather than row by row (_prepare builds them again if the run is cut short).
_DROP_INDEXES = "DROP INDEX IF EXISTS fields_by_text; DROP INDEX IF EXISTS fields_by_fold;"


class IndexBusy(Error):
    """Another process (or thread) is writing the index: an update or a merge."""


class EmptyRoot(Error):
    """A root yielded no file while the index holds files under it; nothing
    was removed.  ``roots`` names them."""

    def __init__(self, message: str, roots: List[str]) -> None:
        super().__init__(message)
        self.roots = roots


IndexBusy.__module__ = EmptyRoot.__module__ = "kz_id3.index"


@dataclass
class Summary:
    """What one :func:`update` did."""

    files: int = 0      #: regular files found under the roots
    read: int = 0       #: files read in this run: new or changed
    unchanged: int = 0  #: files skipped: same size and modification time
    removed: int = 0    #: files gone from the roots, removed from the index
    errors: int = 0     #: files of this run that could not be read
    #: the directories that could not be listed, as :class:`kz_id3.ReadError`
    #: (the files under them stay in the index)
    unlisted: List[ReadError] = field(default_factory=list)
    #: the files of this run that could not be read, as the exceptions of
    #: :func:`kz_id3.read`
    failed: List[Exception] = field(default_factory=list)
    seconds: float = 0.0

    def __str__(self) -> str:
        text = (f"{self.files} files: {self.read} read, {self.unchanged} unchanged, "
                f"{self.removed} removed, {self.errors} could not be read")
        if self.unlisted:
            text += f", {len(self.unlisted)} directories could not be listed"
        return f"{text} ({self.seconds:.2f} s)"


# ---- Paths as stored ----------------------------------------------------------------
def _stored(raw: bytes) -> Union[str, bytes]:
    """The value of files.path for a path's bytes: TEXT when they are UTF-8,
    else a BLOB of the bytes, so that no two paths share a row."""
    try:
        return raw.decode("utf-8")
    except UnicodeDecodeError:
        return raw


def _raw(stored: Union[str, bytes]) -> bytes:
    return stored.encode("utf-8") if isinstance(stored, str) else stored


def _uri(db: PathLike, mode: str) -> str:
    path = os.path.abspath(os.fsencode(fspath(db)))
    return f"file:{urllib.parse.quote_from_bytes(path)}?mode={mode}"


def _roots(name: str, paths: Any) -> List[bytes]:
    """One path, or an iterable of paths, as absolute bytes paths."""
    items = [paths] if is_path(paths) else list(paths)
    if not items:
        raise ValueError(f"{name}: no path given")
    return [os.path.abspath(os.fsencode(fspath(item))) for item in items]


# ---- Writing ------------------------------------------------------------------------
@contextlib.contextmanager
def _writing(db: PathLike, wait: bool) -> Iterator[sqlite3.Connection]:
    """The database opened for writing (created if missing, brought to the
    current schema), locked against every other writer while it is open."""
    name = os.fsdecode(fspath(db))
    lock = os.open(fspath(db), os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o666)
    try:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX if wait else fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise IndexBusy(f"{name}: another process is writing this index (an index or "
                            f"merge run); wait until it has finished, or wait for it with "
                            f"wait=True (--wait)") from None
        connection = sqlite3.connect(_uri(db, "rwc"), uri=True, isolation_level=None)
        try:
            _prepare(connection, name)
            yield connection
        finally:
            connection.close()
    finally:
        os.close(lock)


def _prepare(connection: sqlite3.Connection, name: str) -> None:
    version = connection.execute("PRAGMA user_version").fetchone()[0]
    if version not in (0, 1, 2, SCHEMA_VERSION):
        raise Error(f"{name}: an index of schema version {version}, newer than this package's "
                    f"({SCHEMA_VERSION})")
    connection.execute("PRAGMA journal_mode = WAL")
    connection.execute("PRAGMA synchronous = NORMAL")
    connection.execute("PRAGMA cache_size = -65536")  # KiB: the text index outgrows the default
    connection.create_function("kz_fold", 1, _fold, deterministic=True)
    if version == 1:
        _migrate_from_1(connection)
    if version in (1, 2):
        _migrate_from_2(connection)
    connection.executescript(_SCHEMA)
    connection.execute(f"PRAGMA user_version = {SCHEMA_VERSION}")


_ESCAPE = re.compile(rb"\\x([0-9a-f]{2})")


def _migrate_from_1(connection: sqlite3.Connection) -> None:
    """Version 1 wrote a path's bytes that are not UTF-8 as \\xNN (so that
    "caf\\xe9.mp3" stood for two names), and two runs at once could leave
    fields whose file row was gone.  A path with such an escape becomes the
    name that exists on disk, the bytes when only they do; orphaned fields
    go."""
    connection.execute("BEGIN IMMEDIATE")
    try:
        connection.execute("DELETE FROM fields WHERE file_id NOT IN (SELECT id FROM files)")
        escaped = connection.execute(
            "SELECT id, path FROM files WHERE instr(path, '\\x') > 0").fetchall()
        for file_id, path in escaped:
            literal = path.encode()
            unescaped = _ESCAPE.sub(lambda match: bytes((int(match[1], 16),)), literal)
            if not os.path.lexists(literal) and os.path.lexists(unescaped):
                connection.execute("UPDATE files SET path = ? WHERE id = ?",
                                   (_stored(unescaped), file_id))
        connection.execute("PRAGMA user_version = 2")
        connection.execute("COMMIT")
    except BaseException:
        connection.execute("ROLLBACK")
        raise


def _migrate_from_2(connection: sqlite3.Connection) -> None:
    """Version 3 stores each text's case folding, for queries that ignore case."""
    connection.execute("BEGIN IMMEDIATE")
    try:
        connection.execute("ALTER TABLE fields ADD COLUMN fold TEXT")
        connection.execute(f"UPDATE fields SET fold = {_FOLD_OF_TEXT}")
        connection.execute(f"PRAGMA user_version = {SCHEMA_VERSION}")
        connection.execute("COMMIT")
    except BaseException:
        connection.execute("ROLLBACK")
        raise


_Pending = Tuple[bytes, int, int, Optional[int], Any]


def _write(connection: sqlite3.Connection, batch: List[_Pending]) -> None:
    """Writes files and their fields in one transaction: (path, size, mtime,
    id of its row or None, Tags or exception) each."""
    if not batch:
        return
    connection.execute("BEGIN IMMEDIATE")
    try:
        next_id = connection.execute("SELECT coalesce(max(id), 0) + 1 FROM files").fetchone()[0]
        files = []
        fields = []
        stale = []
        for raw, size, mtime, old_id, tags in batch:
            if old_id is None:
                file_id, next_id = next_id, next_id + 1
            else:
                file_id = old_id
                stale.append((old_id,))
            path = _stored(raw)
            if isinstance(tags, Tags):
                status = "none" if tags.status == NOTHING_TO_READ else "tags"
                files.append((file_id, path, size, mtime, tags.type_name, status, None))
                fields += [(file_id, position, f.kind, f.ident, f.number, f.tag, f.description,
                            f.text, int(f.id3v1), _fold_of(f.text))
                           for position, f in enumerate(tags.fields)]
            else:
                files.append((file_id, path, size, mtime, None, "error", reason(tags)))
        connection.executemany("DELETE FROM fields WHERE file_id = ?", stale)
        connection.executemany("INSERT OR REPLACE INTO files VALUES (?, ?, ?, ?, ?, ?, ?)", files)
        connection.executemany("INSERT INTO fields VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", fields)
        connection.execute("COMMIT")
    except BaseException:
        connection.execute("ROLLBACK")
        raise


def _under(path: bytes, roots: Set[bytes]) -> bool:
    """Whether `path` is one of `roots` or lies under one (roots absolute and
    normalised): a walk up its parents, so that many roots cost nothing."""
    while path not in roots:
        parent = os.path.dirname(path)
        if parent == path:
            return False
        path = parent
    return True


def _files_of(root: bytes, extensions: Iterable[str], exclude: Iterable[str]
              ) -> Iterator[Union[bytes, ReadError]]:
    """The files of one root: the root itself when it is not a directory."""
    if os.path.isdir(root):
        yield from walk(root, extensions=extensions, exclude=exclude)
    else:
        yield root


def update(db: PathLike, roots: Union[PathLike, Iterable[PathLike]], *,
           workers: Optional[int] = None, batch_size: int = 1000, file_type: int = 0,
           extensions: Iterable[str] = (), exclude: Iterable[str] = (),
           prune_empty: bool = False, wait: bool = False) -> Summary:
    """Brings the index ``db`` up to date with the files under ``roots`` (one
    path, or an iterable of paths: directories or files).

    Reads new and changed files on ``workers`` threads (see
    :func:`kz_id3.read_many`) and writes them ``batch_size`` files per
    transaction; then removes the files under ``roots`` that are gone.
    ``extensions`` and ``exclude`` choose the files as for
    :func:`kz_id3.walk`; ``file_type`` is as for :func:`kz_id3.read`.

    Raises :class:`kz_id3.ReadError` (``ENOENT``) for a root that does not
    exist, before anything is written; :class:`EmptyRoot` after the reads
    when a root yielded no file although the index holds files under it
    (nothing is removed then; ``prune_empty=True`` removes them);
    :class:`IndexBusy` when another writer holds the index (``wait=True``
    waits for it instead).  Files that could not be read are stored with
    their error and listed in :attr:`Summary.failed`; directories that
    could not be listed in :attr:`Summary.unlisted`, and the files under
    them are kept.
    """
    check_count("batch_size", batch_size)
    check_count("workers", workers, allow_none=True)
    check_file_type(file_type)
    walked = _roots("update(roots)", roots)
    for root in walked:
        if not os.path.lexists(root):
            raise ReadError(errno.ENOENT, "no such file or directory: nothing was updated",
                            os.fsdecode(root))
    started = time.perf_counter()
    summary = Summary()
    with _writing(db, wait) as connection:
        known: Dict[bytes, Tuple[int, int, int]] = {
            _raw(path): (size, mtime, file_id) for file_id, path, size, mtime
            in connection.execute("SELECT id, path, size, mtime_ns FROM files")}
        if not known:
            connection.executescript(_DROP_INDEXES)
        seen: Set[bytes] = set()
        found_in: Dict[bytes, int] = collections.Counter()
        waiting: "collections.deque[Tuple[bytes, int, int, Optional[int]]]" = collections.deque()

        def changed() -> Iterator[bytes]:
            for root in walked:
                for path in _files_of(root, extensions, exclude):
                    if isinstance(path, ReadError):
                        summary.unlisted.append(path)
                        continue
                    try:
                        status = os.stat(path)
                    except OSError:
                        continue  # gone since the walk saw it
                    if not stat.S_ISREG(status.st_mode):
                        continue  # a device, FIFO or socket: no music
                    seen.add(path)
                    found_in[root] += 1
                    summary.files += 1
                    old = known.get(path)
                    if old is not None and old[0] == status.st_size and \
                            old[1] == status.st_mtime_ns:
                        summary.unchanged += 1
                        continue
                    waiting.append((path, status.st_size, status.st_mtime_ns,
                                    old[2] if old is not None else None))
                    yield path

        batch: List[_Pending] = []
        # read_many keeps the order of changed(): its results pair with `waiting`.
        with read_many(changed(), workers=workers, file_type=file_type) as results:
            for _, tags in results:
                batch.append((*waiting.popleft(), tags))
                summary.read += 1
                if isinstance(tags, Exception):
                    summary.errors += 1
                    summary.failed.append(tags)
                if len(batch) >= batch_size:
                    _write(connection, batch)
                    batch = []
        _write(connection, batch)

        skipped = {os.fsencode(error.filename) for error in summary.unlisted}
        emptied = [root for root in walked if not found_in[root] and root not in skipped
                   and any(_under(path, {root}) for path in known)]
        if emptied and not prune_empty:
            connection.executescript(_SCHEMA)
            names = [os.fsdecode(root) for root in emptied]
            raise EmptyRoot(f"no file found under {', '.join(names)}, where the index holds "
                            f"some (an unmounted drive?): nothing was removed; prune_empty=True "
                            f"(--prune-empty) removes them", names)
        under_roots = set(walked)
        gone = [file_id for path, (_, _, file_id) in known.items()
                if path not in seen and _under(path, under_roots) and not _under(path, skipped)]
        for start in range(0, len(gone), batch_size):
            part = [(file_id,) for file_id in gone[start:start + batch_size]]
            connection.execute("BEGIN IMMEDIATE")
            connection.executemany("DELETE FROM fields WHERE file_id = ?", part)
            connection.executemany("DELETE FROM files WHERE id = ?", part)
            connection.execute("COMMIT")
        summary.removed = len(gone)
        connection.executescript(_SCHEMA)
    summary.seconds = time.perf_counter() - started
    return summary


def write_files(db: PathLike, paths: Iterable[Any], *, file_type: int = 0,
                batch_size: int = 1000) -> int:
    """Reads the files ``paths`` (paths, or the exceptions :func:`kz_id3.walk`
    gives for directories it could not list, which are left out) into the
    index ``db`` on one thread, whether they exist or not (a file that
    cannot be read is stored with its error), and removes nothing: what
    the tasks of :func:`kz_id3.dask.index_shards` run.  Returns the number
    of files written."""
    check_count("batch_size", batch_size)
    written = 0
    with _writing(db, False) as connection:
        known = {_raw(path): file_id for file_id, path
                 in connection.execute("SELECT id, path FROM files")}
        batch: List[_Pending] = []
        listed = (path for path in paths if not isinstance(path, BaseException))
        with read_many(listed, workers=1, file_type=file_type, chunk_size=256) as results:
            for path, tags in results:
                raw = os.fsencode(path)
                try:
                    status = os.stat(raw)
                    size, mtime = status.st_size, status.st_mtime_ns
                except OSError:
                    size, mtime = -1, -1
                batch.append((raw, size, mtime, known.get(raw), tags))
                written += 1
                if len(batch) >= batch_size:
                    _write(connection, batch)
                    batch = []
        _write(connection, batch)
    return written


def _check_index(path: bytes) -> int:
    """Refuses a shard that is not an index database, without creating it;
    its schema version."""
    name = os.fsdecode(path)
    if not os.path.isfile(path):
        raise ReadError(errno.ENOENT, "no such index database: nothing was merged", name)
    try:
        with contextlib.closing(_open_to_read(path)) as shard:
            version = shard.execute("PRAGMA user_version").fetchone()[0]
            tables = {row[0] for row in shard.execute("SELECT name FROM sqlite_master")}
    except sqlite3.DatabaseError as error:
        raise Error(f"{name}: not an index database ({error}): nothing was merged") from None
    if version not in (1, 2, SCHEMA_VERSION) or not {"files", "fields"} <= tables:
        raise Error(f"{name}: not an index database of this package (schema version "
                    f"{version}): nothing was merged")
    return version


def merge(db: PathLike, shards: Union[PathLike, Iterable[PathLike]], *,
          wait: bool = False) -> int:
    """Merges index databases (the shards that
    :func:`kz_id3.dask.index_shards` writes, or any other index; one path or
    an iterable of paths) into ``db``, one transaction per shard; a path
    already in ``db`` takes the shard's row and fields.  Every shard must
    be an index database: one that is missing or is not raises before
    anything is merged.  ``wait`` is as for :func:`update`.  Returns the
    number of files merged."""
    paths = _roots("merge(shards)", shards)
    versions = [_check_index(path) for path in paths]
    merged = 0
    with _writing(db, wait) as connection:
        if connection.execute("SELECT count(*) FROM files").fetchone()[0] == 0:
            connection.executescript(_DROP_INDEXES)
        for path, version in zip(paths, versions):
            connection.execute("ATTACH DATABASE ? AS shard", (_uri(path, "ro"),))
            try:
                connection.execute("BEGIN IMMEDIATE")
                connection.execute("DELETE FROM fields WHERE file_id IN (SELECT id FROM files "
                                   "WHERE path IN (SELECT path FROM shard.files))")
                connection.execute("DELETE FROM files WHERE path IN (SELECT path FROM shard.files)")
                offset = connection.execute("SELECT coalesce(max(id), 0) FROM files").fetchone()[0]
                merged += connection.execute(
                    "INSERT INTO files SELECT id + ?, path, size, mtime_ns, type, status, error "
                    "FROM shard.files", (offset,)).rowcount
                fold = "fold" if version == SCHEMA_VERSION else _FOLD_OF_TEXT
                connection.execute(f"INSERT INTO fields SELECT file_id + ?, position, kind, ident, "
                                   f"number, tag, description, text, id3v1, {fold} "
                                   f"FROM shard.fields WHERE file_id IN "
                                   f"(SELECT id FROM shard.files)", (offset,))
                connection.execute("COMMIT")
            except BaseException:
                if connection.in_transaction:
                    connection.execute("ROLLBACK")
                raise
            finally:
                connection.execute("DETACH DATABASE shard")
        connection.executescript(_SCHEMA)
    return merged


# ---- Reading ------------------------------------------------------------------------
def _open_to_read(db: PathLike) -> sqlite3.Connection:
    """The database opened read-only, so that an index in a directory or on a
    file system this process cannot write to is read all the same: first
    as any reader opens it, and when SQLite cannot set up its shared files
    there (a WAL database needs a writable -shm file), as an immutable
    file."""
    connection = sqlite3.connect(_uri(db, "ro"), uri=True)
    try:
        connection.execute("SELECT count(*) FROM sqlite_master").fetchone()
        return connection
    except sqlite3.OperationalError:
        connection.close()
    return sqlite3.connect(_uri(db, "ro") + "&immutable=1", uri=True)


Term = Tuple[str, str]


def _terms(terms: Union[Mapping[str, str], Iterable[Term]]) -> List[Term]:
    items = list(terms.items()) if isinstance(terms, Mapping) else list(terms)
    for term in items:
        if not (isinstance(term, tuple) and len(term) == 2 and
                all(isinstance(part, str) for part in term)):
            raise TypeError(f"a query term is a pair of str (IDENT, TEXT) or (IDENT:DESCRIPTION, "
                            f"TEXT), not {term!r}")
    return items


def query(db: PathLike, terms: Union[Mapping[str, str], Iterable[Term]], *,
          ignore_case: bool = False) -> List[str]:
    """The paths of the indexed files that have a field matching each term,
    sorted as stored.

    A term is ``(key, text)`` (or a mapping of keys to texts): the key an
    identifier ("TPE1", "ID3v1 artist") or, for user-defined fields, the
    identifier and the description, "TXXX:MusicBrainz Album Id".  The text
    must be the field's whole text; ``ignore_case`` compares identifiers,
    descriptions and texts without regard to case (``str.casefold``).

    Opens the database read-only, so it works on an index of another user
    or on a read-only file system.  Raises ``FileNotFoundError`` when there
    is no database at ``db``.  Paths are str, as :func:`os.fsdecode` makes
    them: a name that is not UTF-8 round-trips to its bytes with
    :func:`os.fsencode`.
    """
    chosen = _terms(terms)
    name = os.fsdecode(fspath(db))
    if not os.path.isfile(fspath(db)):
        raise FileNotFoundError(errno.ENOENT, "no such index database", name)
    # Each term looks its fields up in one of the text indexes (identifiers
    # are ASCII, where SQLite's lower() is casefold()).
    ident_of, text_of, description_of = (
        ("lower(ident)", "coalesce(fold, text)", "kz_fold(description)") if ignore_case
        else ("ident", "text", "description"))
    fold = _fold if ignore_case else (lambda value: value)
    conditions = []
    values: List[Any] = []
    for key, text in chosen:
        ident, description = split_key(key)
        idents = idents_of(ident)
        match = [f"{ident_of} IN ({', '.join('?' * len(idents))})", f"{text_of} = ?"]
        values += [*map(fold, idents), fold(text)]
        if description is not None:
            match.append(f"{description_of} = ?")
            values.append(fold(description))
        conditions.append(f"id IN (SELECT file_id FROM fields WHERE {' AND '.join(match)})")
    where = " AND ".join(conditions) or "1"
    try:
        with contextlib.closing(_open_to_read(db)) as connection:
            connection.create_function("kz_fold", 1, _fold, deterministic=True)
            rows = connection.execute(f"SELECT path FROM files WHERE {where} ORDER BY path",
                                      values).fetchall()
    except sqlite3.DatabaseError as error:
        raise Error(f"{name}: not an index database ({error})") from None
    return [os.fsdecode(_raw(path)) for (path,) in rows]


def _fold(text: Optional[str]) -> Optional[str]:
    return text.casefold() if isinstance(text, str) else text


def _fold_of(text: str) -> Optional[str]:
    """The fold column of a text: NULL where folding leaves it as it is."""
    folded = text.casefold()
    return folded if folded != text else None


_FOLD_OF_TEXT = "nullif(kz_fold(text), text)"
