"""Scans on Dask: the same reads on the threaded scheduler, a LocalCluster
or a distributed cluster.

``scan(paths)`` gives a :class:`dask.bag.Bag` of one dict per file, the
dicts of :meth:`kz_id3.Tags.as_dict` (a file that could not be read, or a
directory that could not be listed, gives ``{"path": ..., "error":
reason}``); ``scan_tags(paths)`` a bag of the :class:`kz_id3.Tags`
themselves (or the exception of such a file or directory), which make
their fields only when asked for and pickle as the kit's packed result:
cheaper to keep on the workers and to move.  ``count_fields(bag)`` counts
the fields per identifier on the workers; ``to_dataframe(bag)`` gives a
Dask DataFrame of one row per field, as :func:`kz_id3.to_dataframe` does
for :func:`kz_id3.read_many`; ``index_shards(paths, directory)`` has the
workers write one index database per partition, for
:func:`kz_id3.index.merge`.  Each task reads one partition of paths with
:func:`kz_id3.read_many`.  docs/scaling.md tells how to run a scan of 100
million files.

Every worker needs this package installed (with its kit: ``pip install``
as on the client).  A worker without it fails each task it is given with
an ImportError, and the client waits until its timeout; check the workers
first: ``client.run(lambda: __import__("kz_id3").read_bytes(b"").status)``
gives each worker's answer (51), or raises the ImportError at once.

Needs Dask (dask.bag, dask.dataframe, pandas); ``distributed`` for a
cluster.  ``import kz_id3`` does not import this module or Dask.
"""

from __future__ import annotations

import collections
import ctypes
import glob
import os
import re
import uuid
from typing import Any, Callable, Dict, Iterable, List, Optional, Set, Union

import dask
import dask.bag
import dask.dataframe
import pandas

from . import _frame
from ._errors import reason
from ._reader import FieldFilter, PathLike, check_count, check_file_type, fspath, only, \
    read_many, walk
from ._tags import Tags, json_path

__all__ = ["scan", "scan_tags", "count_fields", "to_dataframe", "index_shards",
           "read_partition", "read_tags_partition", "COLUMNS"]

#: What :func:`scan` and the others read: paths, patterns, directories or a bag of paths.
Paths = Union[PathLike, Iterable[PathLike], dask.bag.Bag]

#: The columns of :func:`to_dataframe`.
COLUMNS = _frame.COLUMNS


_PATTERN = re.compile(r"[*?[]")


def _expand(items: List[PathLike]) -> List[Any]:
    """The files of ``items``, in order: patterns and directories expanded
    (a directory a walk could not list stays as its ReadError)."""
    listed: List[Any] = []
    plain = [os.fsdecode(fspath(item)) for item in items]
    if _PATTERN.search("\0".join(plain)) is not None:
        # Lists of files (no pattern) are the common case: one search for all.
        plain, patterned = [], plain
        for path in patterned:
            if _PATTERN.search(path) is None:
                plain.append(path)
            else:
                _flush(plain, listed)
                listed.extend(sorted(glob.glob(path, recursive=True)))
    _flush(plain, listed)
    return listed


def _flush(paths: List[str], listed: List[Any]) -> None:
    """Appends ``paths`` to ``listed`` with every directory among them
    replaced by the files under it, then empties ``paths``."""
    directories = _directories(paths)
    if directories:
        for path in paths:
            if path in directories:
                listed.extend(walk(path))
            else:
                listed.append(path)
    else:
        listed.extend(paths)
    paths.clear()


def _directories(paths: List[str]) -> Set[str]:
    """The paths that name directories (``os.path.isdir``).  Paths that
    share a parent directory are looked up in one listing of it, with the
    type the listing gives, rather than with a ``stat`` each: a list of
    files from a few directories then costs a few system calls, not one a
    file."""
    by_parent: Dict[str, List[str]] = {}
    for path in paths:
        parent, slash, _ = path.rpartition("/")
        by_parent.setdefault(parent + slash, []).append(path)
    found: Set[str] = set()
    for parent, members in by_parent.items():
        unknown = members
        if len(members) >= 4:
            kinds = _kinds(parent or ".", 4 * len(members) + 64)
            if kinds is not None:
                unknown = []
                start = len(parent)
                for path in members:
                    kind = kinds.get(path[start:])
                    if kind is None:
                        unknown.append(path)
                    elif kind:
                        found.add(path)
        found.update(path for path in unknown if os.path.isdir(path))
    return found


def _kinds(directory: str, most: int) -> Optional[Dict[str, bool]]:
    """Name to "is a directory" (following symbolic links) of the entries
    of ``directory``; None when it cannot be listed or holds more than
    ``most`` entries (then a ``stat`` of each path costs less)."""
    kinds: Dict[str, bool] = {}
    try:
        with os.scandir(directory) as listing:
            for entry in listing:
                if len(kinds) >= most:
                    return None
                try:
                    kinds[entry.name] = entry.is_dir()
                except OSError:
                    pass  # looked up with stat, which says the same
    except OSError:
        return None
    return kinds


# Dask's nanny starts workers with MALLOC_TRIM_THRESHOLD_=65536, and any
# malloc setting stops glibc from adapting its thresholds to the program.
# Then every frame body of 128 KiB or more (a picture) is mapped and unmapped
# again, and the heap's top is given back after nearly every file and taken
# again for the next: the page faults make reads three to five times slower.
# Blocks up to 4 MiB from the heap and a top pad of 8 MiB (memory a worker
# keeps) restore the speed.  Done once per worker process, and only where
# such a setting is in the environment: elsewhere glibc adapts by itself.
_M_TOP_PAD = -2
_M_MMAP_THRESHOLD = -3
_malloc_checked = False


def _tune_malloc() -> None:
    global _malloc_checked
    if _malloc_checked:
        return
    _malloc_checked = True
    if any(name.startswith("MALLOC_") and name.endswith("_") for name in os.environ):
        mallopt = getattr(ctypes.CDLL(None), "mallopt", None)
        if mallopt is not None:
            mallopt(_M_MMAP_THRESHOLD, 4 << 20)
            mallopt(_M_TOP_PAD, 8 << 20)


class _PathChunk:
    """The paths of one partition, listed on the client.  Dask walks every
    element of a list in a task to look for other tasks in it; one opaque
    object per partition spares it that walk, which otherwise takes longer
    than reading the files (about 17 us a path on a LocalCluster here)."""

    __slots__ = ("paths",)

    def __init__(self, paths: List[PathLike]) -> None:
        self.paths = paths


def _each_path(items: Iterable[Union[PathLike, _PathChunk]]) -> Iterable[PathLike]:
    for item in items:
        if isinstance(item, _PathChunk):
            yield from item.paths
        else:
            yield item


def read_partition(paths: Iterable[PathLike], file_type: int = 0,
                   fields: FieldFilter = None) -> List[Dict[str, Any]]:
    """The records of one partition: what each task of :func:`scan` runs."""
    _tune_malloc()
    records: List[Dict[str, Any]] = []
    append = records.append
    with read_many(_each_path(paths), workers=1, file_type=file_type, fields=fields,
                   chunk_size=256) as results:
        for path, tags in results:
            if type(tags) is Tags:
                append(tags.as_dict())
            else:
                append({**json_path(path), "error": reason(tags)})
    return records


def read_tags_partition(paths: Iterable[PathLike], file_type: int = 0,
                        fields: FieldFilter = None) -> List[Union[Tags, Exception]]:
    """The results of one partition: what each task of :func:`scan_tags` runs."""
    _tune_malloc()
    with read_many(_each_path(paths), workers=1, file_type=file_type, fields=fields,
                   chunk_size=256) as results:
        return [tags for _, tags in results]


def scan(paths_or_globs: Paths, *, partition_size: int = 1000, client: Any = None,
         file_type: int = 0, fields: FieldFilter = None) -> dask.bag.Bag:
    """A bag of the tags of many files, one dict per file.

    ``paths_or_globs`` is a path, a glob pattern (``**`` matches any depth), a
    directory (every file under it, as :func:`kz_id3.walk` lists them) or a
    list of these, expanded here, on the client; or a
    :class:`dask.bag.Bag` of paths, read as it is partitioned, so that file
    lists never pass through the client (for example
    ``dask.bag.read_text("lists/*.txt").map(str.rstrip)``).
    ``partition_size`` paths make one task.  The bag is lazy and runs on
    whatever scheduler computes it; with ``client`` (a
    ``distributed.Client``) it is persisted there at once: the reads start
    and the records stay in the workers' memory.  ``file_type`` and
    ``fields`` are as for :func:`kz_id3.read`.

    A record is :meth:`kz_id3.Tags.as_dict`; a file that could not be read
    and a directory that could not be listed give ``{"path", "error"}``
    (and "path_base64" for a path that is not UTF-8).  A record makes a
    dict and a string for every field of the file; when the workers only
    aggregate, filter or write, :func:`scan_tags` costs less.
    """
    return _scan(read_partition, paths_or_globs, partition_size, client, file_type, fields)


def scan_tags(paths_or_globs: Paths, *, partition_size: int = 1000, client: Any = None,
              file_type: int = 0, fields: FieldFilter = None) -> dask.bag.Bag:
    """A bag of :class:`kz_id3.Tags`, one per file, as :func:`kz_id3.read_many`
    gives them: for a file that could not be read, or a directory that
    could not be listed, the exception instead (:class:`kz_id3.ReadError`,
    an ``OSError`` with the path as ``filename``, or :class:`kz_id3.Error`).

    The arguments are those of :func:`scan`, whose records are
    ``scan_tags(...).map(kz_id3.Tags.as_dict)`` for the files that were
    read.  A ``Tags`` holds the kit's packed result (about 1 KB for a tag of
    20 text fields) and makes its fields when they are asked for; it
    pickles as that packed result.  So keeping the bag on the workers
    (``client``), counting (:func:`count_fields`) or gathering it costs
    less than the records' dicts, and ``bag.map(lambda tags: tags.get("TPE1"))``
    builds only what it looks at.
    """
    return _scan(read_tags_partition, paths_or_globs, partition_size, client, file_type, fields)


def _scan(function: Callable[..., List[Any]], paths_or_globs: Paths, partition_size: int,
          client: Any, file_type: int, fields: FieldFilter) -> dask.bag.Bag:
    check_count("partition_size", partition_size)
    bag = _partitions(paths_or_globs, partition_size, function, check_file_type(file_type),
                      only(fields))
    return client.persist(bag) if client is not None else bag


def _partitions(paths_or_globs: Paths, partition_size: int,
                function: Callable[..., List[Any]], *args: Any) -> dask.bag.Bag:
    """A bag of ``function(paths, *args)`` for each partition of the paths."""
    if isinstance(paths_or_globs, dask.bag.Bag):
        return paths_or_globs.map_partitions(function, *args)
    items = [paths_or_globs] if isinstance(paths_or_globs, (str, bytes, os.PathLike)) \
        else list(paths_or_globs)
    listed = _expand(items)
    chunks = [_PathChunk(listed[start:start + partition_size])
              for start in range(0, len(listed), partition_size)] or [_PathChunk([])]
    # One task per partition with its paths inside, not a task holding the
    # paths and another reading them: the scheduler sends the read only
    # once it has seen the first finish, a round trip per partition in
    # which the worker waits (a tenth of a scan's time on a LocalCluster).
    # A new name every time: a second scan reads the files again rather
    # than reuse what an earlier one left on the cluster.
    name = f"{function.__name__}-{uuid.uuid4().hex}"
    graph = {(name, number): (function, [chunk], *args) for number, chunk in enumerate(chunks)}
    return dask.bag.Bag(graph, name, len(chunks))


def _write_shard(paths: Iterable[Any], directory: str, file_type: int) -> List[str]:
    from . import index
    _tune_malloc()
    shard = os.path.join(directory, f"kz_id3-{uuid.uuid4().hex}.db")
    index.write_files(shard, _each_path(paths), file_type=file_type)
    return [shard]


def index_shards(paths_or_globs: Paths, directory: PathLike, *, partition_size: int = 10000,
                 file_type: int = 0) -> dask.bag.Bag:
    """A bag of the paths of index databases (:mod:`kz_id3.index`), one per
    partition, written by the workers into ``directory`` (a directory every
    worker can write to) with :func:`kz_id3.index.write_files`.  Compute
    it, then merge the shards with :func:`kz_id3.index.merge`: the records
    never pass through the client.  ``paths_or_globs`` and
    ``partition_size`` are as for :func:`scan`."""
    check_count("partition_size", partition_size)
    return _partitions(paths_or_globs, partition_size, _write_shard,
                       os.fsdecode(fspath(directory)), check_file_type(file_type))


def _count(items: Iterable[Any]) -> "collections.Counter[str]":
    idents: List[str] = []
    extend = idents.extend
    for item in items:
        if type(item) is Tags:
            extend(item.field_idents())
        elif isinstance(item, dict):
            extend([field["id"] for field in item.get("fields", ()) if "id" in field])
    return collections.Counter(idents)


def _add_counts(counts: Iterable["collections.Counter[str]"]) -> "collections.Counter[str]":
    total: "collections.Counter[str]" = collections.Counter()
    for count in counts:
        total.update(count)
    return total


def count_fields(bag: dask.bag.Bag) -> dask.bag.Item:
    """The number of fields per identifier ("TIT2", "TXXX/WXXX", "ID3v1
    title", ...) in a bag of :func:`scan` or :func:`scan_tags`, counted
    where the bag's partitions are; ``.compute()`` gives a
    :class:`collections.Counter`.  Outside text, reported failures and files
    that could not be read are not counted: what
    ``bag.pluck("fields", []).flatten().pluck("id", None).frequencies()``
    counts on records, less the ``None`` of outside text."""
    return bag.reduction(_count, _add_counts)


# A partition's rows are numbered from its number times this, so that the
# index is unique across partitions without counting them first.
ROWS_PER_PARTITION = 1 << 32


def _partition_frame(items: List[Any], number: int) -> pandas.DataFrame:
    pairs = []
    for item in items:
        if isinstance(item, Tags):
            pairs.append((item.path, item))
        elif isinstance(item, BaseException):
            pairs.append((getattr(item, "filename", None), item))
        else:
            pairs.append((item["path"], item))
    return _frame.frame(pairs, number * ROWS_PER_PARTITION)


def to_dataframe(bag: dask.bag.Bag) -> dask.dataframe.DataFrame:
    """A Dask DataFrame of a bag of :func:`scan` or :func:`scan_tags`: one row
    per tag field, the columns :data:`COLUMNS` (path, ident, number,
    description, text, id3v1, error).  A file without a tag field is one
    row whose field columns are missing; a file that could not be read (or
    a directory that could not be listed) is one row with its error.
    Outside text and reported failures give no rows.

    The index is unique: partition ``k``'s rows are numbered from ``k *
    2**32`` (the divisions are known).  The same rows, computed, as
    :func:`kz_id3.to_dataframe` makes from :func:`kz_id3.read_many`, whose
    index counts from 0."""
    parts = [dask.delayed(_partition_frame)(part, number)
             for number, part in enumerate(bag.to_delayed())]
    divisions = [number * ROWS_PER_PARTITION for number in range(len(parts))]
    divisions.append(len(parts) * ROWS_PER_PARTITION - 1)
    return dask.dataframe.from_delayed(parts, meta=_frame.frame([]), divisions=divisions,
                                       verify_meta=False)
