"""Finding and loading libkz_host.so, the host kit, and declaring its C API.

The kit is loaded twice through ctypes: as a CDLL for the calls that read
files (ctypes releases the GIL around every CDLL call, so other threads run
while the kit reads) and as a PyDLL for the calls that take microseconds
(handing over a result, freeing it), where giving the GIL up and taking it
back again would cost more than the call itself.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import shutil
import subprocess
import threading
from pathlib import Path
from typing import Optional

from ._errors import Error

LIBRARY_NAME = "libkz_host.so"
SONAME = "libkz_host.so.2"

# Status codes of kz_host.h.
OK = 0
NOTHING_TO_READ = 1
ERROR_ARGUMENT = -1
ERROR_NO_MEMORY = -2
ERROR_MODULE_NOT_FOUND = -3
ERROR_MODULE_INVALID = -4
ERROR_NO_CONTEXT = -5
ERROR_IO = -6
ERROR_NOT_REGULAR = -7
ERROR_TOO_LARGE = -8
ERROR_UNFINISHED = -9

TYPE_DETECT = 0


class ReaderOptions(ctypes.Structure):
    _fields_ = [("struct_size", ctypes.c_size_t), ("module_path", ctypes.c_char_p)]


class ReadOptions(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("file_type", ctypes.c_uint16),
        ("block_limit", ctypes.c_uint32),
        ("stop_every", ctypes.c_uint32),
        ("char_limit", ctypes.c_uint64),
        ("flags", ctypes.c_uint),
    ]


class Kit:
    """The kit's functions, with their prototypes set."""

    def __init__(self, path: str) -> None:
        releasing = ctypes.CDLL(path)
        holding = ctypes.PyDLL(path)
        self.path = path
        p, i, sz = ctypes.c_void_p, ctypes.c_int, ctypes.c_size_t

        def declare(lib, name, restype, *argtypes):
            function = getattr(lib, name)
            function.restype = restype
            function.argtypes = argtypes
            return function

        self.strerror = declare(holding, "kz_host_strerror", ctypes.c_char_p, i)
        self.version = declare(holding, "kz_host_version", ctypes.c_char_p)
        self.reader_options_init = declare(holding, "kz_host_reader_options_init", None, p)
        self.read_options_init = declare(holding, "kz_host_read_options_init", None, p)
        self.reader_new = declare(releasing, "kz_host_reader_new", i, p, p, ctypes.c_char_p, sz)
        self.reader_free = declare(releasing, "kz_host_reader_free", None, p)
        self.reader_module_path = declare(holding, "kz_host_reader_module_path", ctypes.c_char_p, p)
        self.reader_module_version = declare(
            holding, "kz_host_reader_module_version", ctypes.c_char_p, p)
        self.collect_file = declare(releasing, "kz_host_collect_file", i, p, ctypes.c_char_p, p, p)
        self.collect_memory = declare(releasing, "kz_host_collect_memory", i, p, p, sz, p, p)
        self.result_packed = declare(holding, "kz_host_result_packed", p, p, p)
        self.result_free = declare(holding, "kz_host_result_free", None, p)
        # For kz_id3._batch, which calls them without the GIL.
        self.batch_functions = tuple(ctypes.cast(function, ctypes.c_void_p).value for function
                                     in (self.collect_file, self.result_packed, self.result_free))

    def message(self, status: int) -> str:
        return self.strerror(status).decode("utf-8", "replace")


def _pkg_config_libdir() -> Optional[str]:
    if shutil.which("pkg-config") is None:
        return None
    try:
        done = subprocess.run(["pkg-config", "--variable=libdir", "kz_host"],
                              capture_output=True, text=True, timeout=10)
    except (OSError, subprocess.SubprocessError):
        return None
    libdir = done.stdout.strip()
    return libdir if done.returncode == 0 and libdir else None


_lock = threading.Lock()
_kit: Optional[Kit] = None


def kit() -> Kit:
    """The loaded kit; loads it on first use."""
    global _kit
    if _kit is not None:
        return _kit
    with _lock:
        if _kit is None:
            _kit = _load()
    return _kit


def _load() -> Kit:
    """Tries, in order: the environment variable KZ_HOST_LIBRARY; the
    installed library (the libdir of the kz_host pkg-config package, then
    the dynamic loader's search path); the build tree of the checkout this
    package was loaded from (build/lib)."""
    explicit = os.environ.get("KZ_HOST_LIBRARY")
    if explicit:
        try:
            return Kit(explicit)
        except (OSError, AttributeError) as error:
            raise Error(f"KZ_HOST_LIBRARY={explicit}: cannot load the host kit: {error}") from None
    tried = ["KZ_HOST_LIBRARY (not set)"]
    places = []
    libdir = _pkg_config_libdir()
    if libdir:
        places += [os.path.join(libdir, SONAME), os.path.join(libdir, LIBRARY_NAME)]
    else:
        tried.append("pkg-config kz_host (no such package)")
    found = ctypes.util.find_library("kz_host")
    if found:
        places.append(found)
    else:
        tried.append("the dynamic loader's search path (no libkz_host)")
    places.append(str(Path(__file__).resolve().parent.parent.parent / "build" / "lib" / LIBRARY_NAME))
    for place in places:
        # A bare name from the loader's search path is not a file here.
        if os.sep in place and not os.path.exists(place):
            tried.append(f"{place} (no such file)")
            continue
        try:
            return Kit(place)
        except (OSError, AttributeError) as error:
            tried.append(f"{place} ({error})")
    raise Error("cannot find the host kit libkz_host.so (set KZ_HOST_LIBRARY to its path); "
                "tried: " + "; ".join(tried))
