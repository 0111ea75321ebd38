"""Reading files, file objects and buffers through the host kit: Reader,
read, read_bytes, read_many, walk."""

from __future__ import annotations

import ctypes
import errno
import itertools
import os
import queue
import threading
from typing import (Any, Dict, Iterable, Iterator, List, Optional, Sequence, Tuple, Union)

from . import _library as lib
from ._errors import Error, ReadError
from ._tags import Tags, split_batch

PathLike = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
Path = Union[str, bytes]
FieldFilter = Optional[Iterable[Union[str, int]]]
Buffer = Union[bytes, bytearray, memoryview]

# What reading one item may give instead of Tags; read_many hands these back
# as results.
_ITEM_ERRORS = (Error, OSError, TypeError, ValueError)

# What a file error that comes without an errno (a device, a FIFO, a file
# of 4 GiB or more) is reported as.
_WITHOUT_ERRNO = {lib.ERROR_IO: (errno.EIO, os.strerror(errno.EIO)),
                  lib.ERROR_NOT_REGULAR: (errno.EINVAL, "Not a regular file"),
                  lib.ERROR_TOO_LARGE: (errno.EFBIG, os.strerror(errno.EFBIG))}


def is_path(value: object) -> bool:
    """Whether ``value`` names a file: str, bytes or path-like."""
    return isinstance(value, (str, bytes, os.PathLike))


def fspath(value: PathLike) -> Path:
    """``os.fspath``, with a message that says what is accepted."""
    path = os.fspath(value)
    if "\0" in (path if isinstance(path, str) else path.decode("latin-1")):
        raise ValueError(f"embedded null character in path {path!r}")
    return path


def check_file_type(file_type: int) -> int:
    """A file type as kzdump --type takes it: 0 (detect) to 65535."""
    if isinstance(file_type, bool) or not isinstance(file_type, int) or \
            not 0 <= file_type <= 0xFFFF:
        raise ValueError(f"file_type must be a number from 0 (detect) to 65535, such as 1707, "
                         f"not {file_type!r}")
    return file_type


def check_count(name: str, value: Optional[int], allow_none: bool = False) -> None:
    if value is None and allow_none:
        return
    if isinstance(value, bool) or not isinstance(value, int) or value < 1:
        raise ValueError(f"{name} must be a whole number of at least 1, not {value!r}")


def only(fields: FieldFilter) -> Optional[frozenset]:
    """The identifiers and field numbers a ``fields`` argument keeps."""
    if fields is None:
        return None
    if isinstance(fields, (str, int)) and not isinstance(fields, bool):
        return frozenset((fields,))
    if isinstance(fields, bytes):
        raise TypeError("fields must be identifiers (str) or field numbers (int), not bytes")
    chosen = frozenset(fields)
    for item in chosen:
        if isinstance(item, bool) or not isinstance(item, (str, int)):
            raise TypeError(f"fields must be identifiers (str) or field numbers (int), "
                            f"not {item!r}")
    return chosen


def paths_argument(name: str, value: Any) -> None:
    """Refuses a single path where an iterable of paths is expected, so that
    it is never taken as a sequence of characters."""
    if is_path(value):
        raise TypeError(f"{name} must be an iterable of paths, not a single path {value!r}; "
                        f"for one file use kz_id3.read()")


def failure(kit: lib.Kit, status: int, error: int = 0, path: Optional[Path] = None) -> Exception:
    """The exception for a read of `path` (None: a buffer) that failed with
    `status` and errno `error`."""
    if path is not None and error:
        return ReadError(error, os.strerror(error), path)
    if path is not None and status in _WITHOUT_ERRNO:
        return ReadError(*_WITHOUT_ERRNO[status], path)
    where = os.fsdecode(path) if path is not None else "<buffer>"
    return Error(f"{where}: {kit.message(status)}")


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
            options.module_path = os.fsencode(fspath(module_path))
        message = ctypes.create_string_buffer(1024)
        status = kit.reader_new(ctypes.byref(options) if options is not None else None,
                                ctypes.byref(self._handle), message, len(message))
        if status != lib.OK:
            reason = message.value.decode("utf-8", "replace") or kit.message(status)
            raise Error(f"cannot load the ID3 module: {reason}")
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

    def read(self, source: Any, *, file_type: int = 0, fields: FieldFilter = None) -> Tags:
        """Reads a file or a file object; see :func:`kz_id3.read`."""
        return self._read(source, self._read_options(check_file_type(file_type)), only(fields))

    def read_bytes(self, data: Buffer, *, file_type: int = 0, fields: FieldFilter = None) -> Tags:
        """Reads a buffer; see :func:`kz_id3.read_bytes`."""
        return self._memory(data, self._read_options(check_file_type(file_type)), only(fields))

    # ---- Inner steps -----------------------------------------------------------
    def _read_options(self, file_type: int) -> Any:
        if not file_type:
            return None
        options = self._options.get(file_type)
        if options is None:
            structure = lib.ReadOptions()
            self._kit.read_options_init(ctypes.byref(structure))
            structure.file_type = file_type
            options = self._options[file_type] = ctypes.byref(structure)
        return options

    def _read(self, source: Any, options: Any, chosen: Optional[frozenset]) -> Tags:
        if is_path(source):
            result = self._files([fspath(source)], options, chosen)[0]
            if isinstance(result, Exception):
                raise result
            return result
        read = getattr(source, "read", None)
        if read is None:
            raise TypeError(f"a path (str, bytes, os.PathLike) or a binary file object is "
                            f"read, not {type(source).__name__}; read_bytes() reads a buffer")
        data = read()
        if not isinstance(data, (bytes, bytearray, memoryview)):
            raise TypeError(f"the file object gave {type(data).__name__}, not bytes: open it "
                            f"in binary mode ('rb')")
        return self._memory(data, options, chosen)

    def _memory(self, data: Buffer, options: Any, chosen: Optional[frozenset]) -> Tags:
        if not isinstance(data, (bytes, bytearray, memoryview)):
            raise TypeError(f"read_bytes() reads bytes, bytearray or memoryview, not "
                            f"{type(data).__name__}; read() reads a path")
        kit = self._kit
        buffer = bytes(data)
        result = ctypes.c_void_p()
        status = kit.collect_memory(self._live(), buffer, len(buffer), options,
                                    ctypes.byref(result))
        try:
            if status in (lib.OK, lib.NOTHING_TO_READ):
                size = ctypes.c_size_t()
                packed = kit.result_packed(result, ctypes.byref(size))
                if not packed:
                    raise MemoryError("the kit could not pack the fields it read")
                return Tags(ctypes.string_at(packed, size.value), None, chosen)
        finally:
            kit.result_free(result)
        raise failure(kit, status)

    def _files(self, paths: Sequence[Path], options: Any,
               chosen: Optional[frozenset]) -> List[Union[Tags, Exception]]:
        """Reads files with one call of the kit, which gives up the GIL once
        for them all: a Tags or the exception for each."""
        kit = self._kit
        encoded = [os.fsencode(path) for path in paths]
        batch = ctypes.c_void_p()
        status = kit.collect_files(self._live(), (ctypes.c_char_p * len(encoded))(*encoded),
                                   len(encoded), options, ctypes.byref(batch))
        if status != lib.OK:
            raise Error(kit.message(status))
        try:
            size = ctypes.c_size_t()
            buffer = ctypes.string_at(kit.batch_packed(batch, ctypes.byref(size)), size.value)
        finally:
            kit.batch_free(batch)
        return [Tags(packed, path, chosen) if packed is not None
                else failure(kit, status, error, path)
                for path, (status, error, packed) in zip(paths, split_batch(buffer))]

    def _chunk(self, items: List[Any], options: Any,
               chosen: Optional[frozenset]) -> List[Union[Tags, Exception]]:
        """read_many's items: paths are read together, file objects one by
        one, and an exception among them (from walk) stands for itself."""
        results: List[Any] = [None] * len(items)
        places: List[int] = []
        paths: List[Path] = []
        for place, item in enumerate(items):
            try:
                if isinstance(item, BaseException):
                    results[place] = item
                elif is_path(item):
                    paths.append(fspath(item))
                    places.append(place)
                else:
                    results[place] = self._read(item, options, chosen)
            except _ITEM_ERRORS as error:
                results[place] = error
        if paths:
            for place, result in zip(places, self._files(paths, options, chosen)):
                results[place] = result
        return results


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


def read(source: Any, *, file_type: int = 0, fields: FieldFilter = None) -> Tags:
    """Reads the ID3 tags of one file.

    ``source`` is a path (``str``, ``bytes`` as :mod:`os` takes them, or
    path-like) or a binary file object, whose contents are read from its
    position to its end; to read a buffer, use :func:`read_bytes`.
    ``file_type`` is the type identifier the file is opened with (1706 to
    1715; any number up to 65535 is passed on); 0, the default, lets the
    kit detect it from the audio frames and tags.  ``fields``, identifiers
    ("TIT2", "ID3v1 title") or field numbers, keeps only those.

    Returns :class:`Tags`, with no fields when the file holds no tag.
    Raises :class:`ReadError` (an ``OSError`` with ``errno`` and
    ``filename``) when the file cannot be read: missing, unreadable, a
    directory or other file that is not regular, 4 GiB or larger;
    ``TypeError`` for a source of another type; ``ValueError`` for a bad
    argument; :class:`Error` for any other failure (the kit or the module
    not found, a read the module did not finish).
    """
    reader = _default_reader()
    return reader._read(source, reader._read_options(check_file_type(file_type)), only(fields))


def read_bytes(data: Buffer, *, file_type: int = 0, fields: FieldFilter = None) -> Tags:
    """Reads the ID3 tags of a file's contents held in memory (``bytes``,
    ``bytearray``, ``memoryview``).  The arguments and results are those of
    :func:`read`; the ``Tags`` have no path."""
    reader = _default_reader()
    return reader._memory(data, reader._read_options(check_file_type(file_type)), only(fields))


def walk(root: PathLike, *, extensions: Iterable[str] = (), exclude: Iterable[str] = ()
         ) -> Iterator[Union[Path, ReadError]]:
    """The files under the directory ``root``, as the kit walks them (and
    kzdump -r): depth first, names sorted byte-wise, symbolic links to
    directories left out.  Paths come as ``root`` is given (str or bytes).
    ``extensions`` keeps only names that end in one of them ("mp3", any
    case); ``exclude`` leaves out files and directories whose name matches
    one of these fnmatch patterns.

    A directory that cannot be listed (``root`` included, when it is
    missing or not a directory) is yielded in its place as a
    :class:`ReadError` with its errno, not raised: the walk goes on, and
    :func:`read_many` hands it on as that directory's result.
    """
    start = fspath(root)
    if isinstance(extensions, (str, bytes)) or isinstance(exclude, (str, bytes)):
        raise TypeError("extensions and exclude are lists of names, not a single string")
    want = [os.fsencode(item) for item in extensions]
    leave = [os.fsencode(item) for item in exclude]
    kit = lib.kit()
    options = lib.WalkOptions()
    kit.walk_options_init(ctypes.byref(options))
    options.extensions = (ctypes.c_char_p * len(want))(*want)
    options.extension_count = len(want)
    options.excludes = (ctypes.c_char_p * len(leave))(*leave)
    options.exclude_count = len(leave)
    handle = ctypes.c_void_p()
    if kit.walk_new(os.fsencode(start), ctypes.byref(options), ctypes.byref(handle)) != lib.OK:
        raise Error(f"cannot start a walk of {start!r}")
    as_text = isinstance(start, str)
    entry = ctypes.POINTER(lib.WalkEntry)()
    try:
        while True:
            status = kit.walk_next(handle, ctypes.byref(entry))
            if status == lib.WALK_END:
                return
            if status != lib.OK:
                raise Error(f"walking {start!r}: {kit.message(status)}")
            found = entry.contents
            raw = ctypes.string_at(found.path, found.path_len)
            path = os.fsdecode(raw) if as_text else raw
            if found.error:
                yield ReadError(found.error, os.strerror(found.error), path)
            else:
                yield path
    finally:
        kit.walk_free(handle)


Result = Tuple[Any, Union[Tags, Exception]]


def read_many(paths: Iterable[Any], *, workers: Optional[int] = None, ordered: bool = True,
              errors: str = "return", file_type: int = 0, fields: FieldFilter = None,
              module_path: Optional[PathLike] = None, chunk_size: int = 64) -> "ReadMany":
    """Reads many files on ``workers`` threads; yields ``(item, result)``.

    ``paths`` is an iterable of paths (str, bytes, path-like) or binary file
    objects, also a lazy one: it is consumed as the threads need more (a
    single path is refused: it would be a sequence of characters).  An
    exception among them, as :func:`walk` gives for a directory it could
    not list, is yielded as the result of its ``filename``.

    The result is :class:`Tags`, or the exception for an item that cannot be
    read (those of :func:`read`) with ``errors="return"`` (the default);
    ``errors="raise"`` raises it.  The threads read with the GIL released,
    each with a reader of its own; ``workers`` defaults to the number of
    CPUs.  With ``ordered`` (the default) the results come in the order of
    ``paths``, otherwise as soon as they are ready.  ``file_type`` and
    ``fields`` are as for :func:`read`; ``module_path`` as for
    :class:`Reader`.  Threads take ``chunk_size`` items at a time.

    The iterator is a context manager: leaving the ``with`` block, closing
    it, or letting it go stops the threads::

        with kz_id3.read_many(paths) as results:
            for path, tags in results:
                ...
    """
    paths_argument("read_many(paths)", paths)
    if errors not in ("return", "raise"):
        raise ValueError(f'errors must be "return" or "raise", not {errors!r}')
    check_count("workers", workers, allow_none=True)
    check_count("chunk_size", chunk_size)
    check_file_type(file_type)
    return ReadMany(iter(paths), workers or os.cpu_count() or 1, bool(ordered),
                    errors == "raise", file_type, only(fields), module_path, chunk_size)


_FINISHED = object()


class ReadMany:
    """The iterator :func:`read_many` returns; a context manager."""

    def __init__(self, paths: Iterator[Any], workers: int, ordered: bool, raise_errors: bool,
                 file_type: int, chosen: Optional[frozenset], module_path: Optional[PathLike],
                 chunk_size: int) -> None:
        # The threads hold the run, never this object: so that letting it go
        # stops them.
        self._run = _Run(paths, workers, ordered, raise_errors, file_type, chosen, module_path,
                         chunk_size)
        self._results = self._run.results()

    def __iter__(self) -> "ReadMany":
        return self

    def __next__(self) -> Result:
        return next(self._results)

    def __enter__(self) -> "ReadMany":
        return self

    def __exit__(self, *exc_info: object) -> None:
        self.close()

    def close(self) -> None:
        """Stops the reader threads and waits for them; the iteration ends."""
        self._results.close()
        self._run.stop()

    def __del__(self) -> None:
        if hasattr(self, "_run"):
            self.close()


class _Run:
    """The state of one read_many: its items, its threads, their results."""

    def __init__(self, paths: Iterator[Any], workers: int, ordered: bool, raise_errors: bool,
                 file_type: int, chosen: Optional[frozenset], module_path: Optional[PathLike],
                 chunk_size: int) -> None:
        self.paths = paths
        self.workers = workers
        self.ordered = ordered
        self.raise_errors = raise_errors
        self.file_type = file_type
        self.only = chosen
        self.module_path = module_path
        self.chunk_size = chunk_size
        self.take_lock = threading.Lock()
        self.sequence = itertools.count()
        # Bounds how far the threads run ahead of the consumer.
        self.room = threading.Semaphore(4 * workers)
        self.stopping = threading.Event()
        self.done: "queue.SimpleQueue[Any]" = queue.SimpleQueue()
        self.threads: List[threading.Thread] = []

    def stop(self) -> None:
        self.stopping.set()
        for _ in self.threads:
            self.room.release()
        for thread in self.threads:
            if thread is not threading.current_thread():
                thread.join()
        self.threads = []

    def take(self) -> Tuple[int, List[Any]]:
        with self.take_lock:
            return next(self.sequence), list(itertools.islice(self.paths, self.chunk_size))

    def work(self) -> None:
        reader = None
        try:
            reader = _borrow(self.module_path)
            options = reader._read_options(self.file_type)
            while True:
                self.room.acquire()
                if self.stopping.is_set():
                    return
                number, chunk = self.take()
                self.done.put((number, list(zip(chunk, reader._chunk(chunk, options, self.only)))))
                if not chunk:
                    return
        except BaseException as error:  # handed to the consumer, raised there
            self.done.put((None, error))
        finally:
            if reader is not None:
                _give_back(reader, self.module_path)
            self.done.put(_FINISHED)

    def results(self) -> Iterator[Result]:
        if self.workers == 1:
            yield from self.serial()
            return
        self.threads = [threading.Thread(target=self.work, name=f"kz_id3 reader {i}",
                                         daemon=True) for i in range(self.workers)]
        for thread in self.threads:
            thread.start()
        try:
            finished = 0
            waiting: Dict[int, List[Result]] = {}
            expected = 0
            while finished < self.workers:
                item = self.done.get()
                if item is _FINISHED:
                    finished += 1
                    continue
                number, results = item
                if number is None:
                    raise results
                if self.ordered:
                    waiting[number] = results
                    ready = []
                    while expected in waiting:
                        ready.append(waiting.pop(expected))
                        expected += 1
                else:
                    ready = [results]
                for batch in ready:
                    self.room.release()
                    yield from self.hand_out(batch)
        finally:
            self.stop()

    def serial(self) -> Iterator[Result]:
        reader = _borrow(self.module_path)
        try:
            options = reader._read_options(self.file_type)
            while True:
                _, chunk = self.take()
                if not chunk:
                    return
                yield from self.hand_out(list(zip(chunk, reader._chunk(chunk, options,
                                                                      self.only))))
        finally:
            _give_back(reader, self.module_path)

    def hand_out(self, batch: List[Result]) -> Iterator[Result]:
        for item, result in batch:
            if isinstance(result, Exception):
                if self.raise_errors:
                    raise result
                if item is result:  # a directory a walk could not list
                    item = result.filename
            yield item, result


# Shown and pickled under the package's name, where users meet them.
Reader.__module__ = ReadMany.__module__ = "kz_id3"
