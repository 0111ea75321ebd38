"""Reading files and buffers through the host kit: Reader, read, read_many."""

from __future__ import annotations

import ctypes
import errno
import itertools
import os
import queue
import sys
import threading
from typing import (Any, Dict, Iterable, Iterator, List, Optional, Tuple, Union)

from . import _library as lib
from ._errors import Error, ReadError
from ._tags import Tags

PathLike = Union[str, "os.PathLike[str]"]
Source = Union[PathLike, bytes, bytearray, memoryview]
FieldFilter = Optional[Iterable[Union[str, int]]]

_FS_ENCODING = sys.getfilesystemencoding()
_FS_ERRORS = sys.getfilesystemencodeerrors()

try:
    from . import _batch
except ImportError:  # built without a C compiler: read_many reads file by file
    _batch = None

# What reading one file may raise; read_many hands these back as results.
_FILE_ERRORS = (Error, OSError, TypeError, ValueError)


class Reader:
    """One loaded module with its own context, reading one file at a time.

    A reader belongs to one thread at a time; readers on different threads
    read at the same time.  :func:`read` and :func:`read_many` keep readers
    of their own, so most programs never make one.  ``module_path`` names
    the module file (libkz_id3.so); by default the kit looks at the
    environment variable ``KZ_ID3_MODULE``, then beside libkz_host.so.
    """

    def __init__(self, module_path: Optional[PathLike] = None) -> None:
        kit = lib.kit()
        self._kit = kit
        self._handle = ctypes.c_void_p()
        options = None
        if module_path is not None:
            options = lib.ReaderOptions()
            kit.reader_options_init(ctypes.byref(options))
            options.module_path = os.fsencode(module_path)
        message = ctypes.create_string_buffer(1024)
        status = kit.reader_new(ctypes.byref(options) if options is not None else None,
                                ctypes.byref(self._handle), message, len(message))
        if status != lib.OK:
            reason = message.value.decode("utf-8", "replace") or kit.message(status)
            raise Error(f"cannot load the ID3 module: {reason}")
        self._result = ctypes.c_void_p()
        self._result_ref = ctypes.byref(self._result)
        self._size = ctypes.c_size_t()
        self._size_ref = ctypes.byref(self._size)
        self._options: Dict[int, Any] = {}

    @property
    def module_path(self) -> str:
        """The module file this reader loaded."""
        return os.fsdecode(self._kit.reader_module_path(self._live()))

    @property
    def module_version(self) -> str:
        """The version marker the module exports."""
        return self._kit.reader_module_version(self._live()).decode("utf-8", "replace")

    def _live(self) -> ctypes.c_void_p:
        if not self._handle:
            raise Error("the reader is closed")
        return self._handle

    def close(self) -> None:
        """Frees the module context; the reader cannot read afterwards."""
        if getattr(self, "_handle", None):
            self._kit.reader_free(self._handle)
            self._handle.value = None

    __del__ = close

    def __enter__(self) -> "Reader":
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close()

    def read(self, source: Source, *, file_type: Optional[int] = None,
             fields: FieldFilter = None) -> Tags:
        """Reads a file or a buffer; see :func:`kz_id3.read`."""
        return self._read(source, self._read_options(file_type), _only(fields))

    # ---- Inner steps -----------------------------------------------------------
    def _read_options(self, file_type: Optional[int]) -> Any:
        if file_type is None:
            return None
        options = self._options.get(file_type)
        if options is None:
            _check_file_type(file_type)
            structure = lib.ReadOptions()
            self._kit.read_options_init(ctypes.byref(structure))
            structure.file_type = file_type
            options = self._options[file_type] = (structure, ctypes.byref(structure))
        return options[1]

    def _read_chunk(self, items: List[Any], file_type: Optional[int],
                    only: Optional[frozenset]) -> List[Union[Tags, Exception]]:
        """Reads read_many's items: a Tags or the exception for each.  With
        kz_id3._batch, the str paths of the chunk are read in one call that
        releases the GIL once."""
        options = self._read_options(file_type)
        results: List[Any] = []
        batch: List[str] = []
        encoded: List[bytes] = []
        for item in items:
            path = item if type(item) is str else None
            if path is None and isinstance(item, os.PathLike):
                path = os.fspath(item)
            if _batch is not None and type(path) is str and "\0" not in path:
                try:
                    encoded.append(path.encode(_FS_ENCODING, _FS_ERRORS))
                    batch.append(path)
                    results.append(None)
                    continue
                except UnicodeEncodeError:
                    pass  # read alone below, which reports it
            try:
                results.append(self._read(item, options, only))
            except _FILE_ERRORS as error:
                results.append(error)
        if batch:
            address = ctypes.addressof(self._options[file_type][0]) if file_type else 0
            packed = _batch.collect_files(*self._kit.batch_functions, self._live().value,
                                          address, tuple(encoded))
            done = iter(zip(batch, packed))
            for index, result in enumerate(results):
                if result is None:
                    path, data = next(done)
                    results[index] = Tags(data, path, only) if type(data) is bytes \
                        else _failure(self._kit, data, path)
        return results

    def _read(self, source: Source, options: Any, only: Optional[frozenset]) -> Tags:
        # Run once per file: kept to the few steps the kit needs.
        if type(source) is str:
            path = source
        elif isinstance(source, (bytes, bytearray, memoryview)):
            data = bytes(source)
            status = self._kit.collect_memory(self._handle, data, len(data), options,
                                              self._result_ref)
            return self._take(status, None, only)
        else:
            path = os.fspath(source)
            if not isinstance(path, str):
                raise TypeError(f"a path must be str or os.PathLike[str], not "
                                f"{type(source).__name__} (bytes are read as the file's contents)")
        if "\0" in path:
            raise ValueError(f"embedded null character in path {path!r}")
        status = self._kit.collect_file(self._handle, path.encode(_FS_ENCODING, _FS_ERRORS),
                                        options, self._result_ref)
        return self._take(status, path, only)

    def _take(self, status: int, path: Optional[str], only: Optional[frozenset]) -> Tags:
        kit = self._kit
        result = self._result
        if status == 0 or status == 1:  # OK, NOTHING_TO_READ
            packed = ctypes.string_at(kit.result_packed(result, self._size_ref), self._size.value)
            kit.result_free(result)
            return Tags(packed, path, only)
        if result:
            kit.result_free(result)
            result.value = None
        self._live()
        raise _failure(kit, status, path)


def _failure(kit: lib.Kit, status: int, path: Optional[str]) -> Exception:
    """The exception for a read that failed with `status`."""
    if path is not None and status == lib.ERROR_IO:
        # The kit reports which call failed but not why: ask the system again.
        try:
            with open(path, "rb") as file:
                file.read(1)
        except OSError as error:
            return ReadError(error.errno, error.strerror, path)
        return ReadError(errno.EIO, os.strerror(errno.EIO), path)
    if path is not None and status == lib.ERROR_NOT_REGULAR:
        if os.path.isdir(path):
            return ReadError(errno.EISDIR, os.strerror(errno.EISDIR), path)
        return ReadError(errno.EINVAL, "Not a regular file", path)
    if path is not None and status == lib.ERROR_TOO_LARGE:
        return ReadError(errno.EFBIG, os.strerror(errno.EFBIG), path)
    where = path if path is not None else "<bytes>"
    return Error(f"{where}: {kit.message(status)}")


def _check_file_type(file_type: Optional[int]) -> None:
    if file_type is not None and (not isinstance(file_type, int) or not 0 < file_type <= 0xFFFF):
        raise ValueError(f"file_type must be a type identifier such as 1707, not {file_type!r}")


def _only(fields: FieldFilter) -> Optional[frozenset]:
    if fields is None:
        return None
    if isinstance(fields, (str, int)):
        return frozenset((fields,))
    return frozenset(fields)


# ---- Readers kept between calls ----------------------------------------------------
# Loading the module costs far more than reading a file, so readers of the
# default module are kept: one per thread for read(), and a pool that
# read_many's worker threads borrow from.
_local = threading.local()
_pool: List[Reader] = []
_pool_lock = threading.Lock()


def _default_reader() -> Reader:
    reader = getattr(_local, "reader", None)
    if reader is None:
        reader = _local.reader = Reader()
    return reader


def _borrow(module_path: Optional[PathLike]) -> Reader:
    if module_path is None:
        with _pool_lock:
            if _pool:
                return _pool.pop()
    return Reader(module_path)


def _give_back(reader: Reader, module_path: Optional[PathLike]) -> None:
    if module_path is None:
        with _pool_lock:
            _pool.append(reader)
    else:
        reader.close()


def read(source: Source, *, file_type: Optional[int] = None, fields: FieldFilter = None) -> Tags:
    """Reads the ID3 tags of one file or buffer.

    ``source`` is a path (``str`` or path-like) or the file's contents
    (``bytes``, ``bytearray``, ``memoryview``).  ``file_type`` is the type
    identifier the file is opened with (1706 to 1715); by default the kit
    detects it from the audio frames and tags.  ``fields``, a collection of
    identifiers ("TIT2", "ID3v1 title") or field numbers, keeps only those.

    Returns :class:`Tags`, with no fields when the file holds no tag.
    Raises :class:`ReadError` (an ``OSError``) when the file cannot be read:
    missing, unreadable, a directory or other file that is not regular, 4 GiB
    or larger; ``TypeError`` for a source of another type; :class:`Error`
    for any other failure (the kit or the module not found, a read the
    module did not finish).
    """
    reader = _default_reader()
    return reader._read(source, reader._read_options(file_type), _only(fields))


Result = Tuple[Any, Union[Tags, Exception]]


def read_many(paths: Iterable[PathLike], *, workers: Optional[int] = None, ordered: bool = True,
              errors: str = "return", file_type: Optional[int] = None,
              fields: FieldFilter = None, module_path: Optional[PathLike] = None,
              chunk_size: int = 64) -> Iterator[Result]:
    """Reads many files on ``workers`` threads; yields ``(path, Tags)``.

    ``paths`` may be any iterable, also a lazy one: it is consumed as the
    threads need more.  The threads read with the GIL released, each with a
    reader of its own; ``workers`` defaults to the number of CPUs.  With
    ``ordered`` (the default) the results come in the order of ``paths``,
    otherwise as soon as they are ready.  ``errors="return"`` yields
    ``(path, exception)`` for a file that cannot be read (the exceptions of
    :func:`read`); ``errors="raise"`` raises it.  ``file_type`` and
    ``fields`` are as for :func:`read`; ``module_path`` as for
    :class:`Reader`.  Threads take ``chunk_size`` paths at a time.
    """
    if errors not in ("return", "raise"):
        raise ValueError(f'errors must be "return" or "raise", not {errors!r}')
    workers = (os.cpu_count() or 1) if workers is None else workers
    if workers < 1 or chunk_size < 1:
        raise ValueError("workers and chunk_size must be at least 1")
    _check_file_type(file_type)
    only = _only(fields)
    raise_errors = errors == "raise"
    if workers == 1:
        return _read_serial(iter(paths), file_type, only, module_path, raise_errors, chunk_size)
    return _read_threaded(iter(paths), workers, ordered, file_type, only, module_path,
                          raise_errors, chunk_size)


def _read_serial(paths: Iterator[Any], file_type: Optional[int], only: Optional[frozenset],
                 module_path: Optional[PathLike], raise_errors: bool,
                 chunk_size: int) -> Iterator[Result]:
    reader = _borrow(module_path)
    try:
        while True:
            chunk = list(itertools.islice(paths, chunk_size))
            if not chunk:
                return
            for path, tags in zip(chunk, reader._read_chunk(chunk, file_type, only)):
                if raise_errors and isinstance(tags, Exception):
                    raise tags
                yield path, tags
    finally:
        _give_back(reader, module_path)


_FINISHED = object()


def _read_threaded(paths: Iterator[Any], workers: int, ordered: bool, file_type: Optional[int],
                   only: Optional[frozenset], module_path: Optional[PathLike],
                   raise_errors: bool, chunk_size: int) -> Iterator[Result]:
    take_lock = threading.Lock()
    sequence = itertools.count()
    # Bounds how far the threads run ahead of the consumer.
    room = threading.Semaphore(4 * workers)
    stopping = threading.Event()
    done: "queue.SimpleQueue[Any]" = queue.SimpleQueue()

    def work() -> None:
        reader = None
        try:
            reader = _borrow(module_path)
            while True:
                room.acquire()
                if stopping.is_set():
                    return
                with take_lock:
                    number = next(sequence)
                    chunk = list(itertools.islice(paths, chunk_size))
                done.put((number, list(zip(chunk, reader._read_chunk(chunk, file_type, only)))))
                if not chunk:
                    return
        except BaseException as error:  # handed to the consumer, raised there
            done.put((None, error))
        finally:
            if reader is not None:
                _give_back(reader, module_path)
            done.put(_FINISHED)

    threads = [threading.Thread(target=work, name=f"kz_id3 reader {i}", daemon=True)
               for i in range(workers)]
    for thread in threads:
        thread.start()
    try:
        finished = 0
        waiting: Dict[int, List[Result]] = {}
        expected = 0
        while finished < workers:
            item = done.get()
            if item is _FINISHED:
                finished += 1
                continue
            number, results = item
            if number is None:
                raise results
            if ordered:
                waiting[number] = results
                ready = []
                while expected in waiting:
                    ready.append(waiting.pop(expected))
                    expected += 1
            else:
                ready = [results]
            for batch in ready:
                room.release()
                for path, tags in batch:
                    if raise_errors and isinstance(tags, Exception):
                        raise tags
                    yield path, tags
    finally:
        stopping.set()
        for _ in threads:
            room.release()
        for thread in threads:
            thread.join()
