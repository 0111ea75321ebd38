"""Finding and loading libkz_host.so, the host kit, and declaring its C API.

The package's one native path: the kit through ctypes.  The kit is loaded
twice: as a CDLL for the calls that touch files (ctypes gives the GIL up
around each, so other threads run while the kit reads; a whole chunk of
files is one such call, kz_host_collect_files) and as a PyDLL for the calls
that take a microsecond (handing over a buffer, freeing it), where giving
the GIL up and taking it back would cost more than the call itself.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import shutil
import subprocess
import threading
from typing import Callable, List, Optional

from ._errors import Error

LIBRARY_NAME = "libkz_host.so"
SONAME = "libkz_host.so.2"
# Where pip puts the kit inside the package; the module and libkz_sys.so go
# into kz_id3/ beside it, where the kit looks for them.
BUNDLED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "_native", LIBRARY_NAME)

# Status codes of kz_host.h.
OK = 0
NOTHING_TO_READ = 1
WALK_END = 2
ERROR_IO = -6
ERROR_NOT_REGULAR = -7
ERROR_TOO_LARGE = -8


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
        ("directory", ctypes.c_int),
    ]


class WalkOptions(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("extensions", ctypes.POINTER(ctypes.c_char_p)),
        ("extension_count", ctypes.c_size_t),
        ("excludes", ctypes.POINTER(ctypes.c_char_p)),
        ("exclude_count", ctypes.c_size_t),
    ]


class WalkEntry(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("path", ctypes.c_void_p),
        ("path_len", ctypes.c_size_t),
        ("error", ctypes.c_int),
    ]


class Kit:
    """The kit's functions, with their prototypes set."""

    def __init__(self, path: str) -> None:
        releasing = ctypes.CDLL(path)
        holding = ctypes.PyDLL(path)
        self.path = path
        p, i, sz = ctypes.c_void_p, ctypes.c_int, ctypes.c_size_t

        def declare(lib: ctypes.CDLL, name: str, restype: object, *argtypes: object) -> Callable:
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
        self.collect_files = declare(releasing, "kz_host_collect_files", i, p, p, sz, p, p)
        self.collect_memory = declare(releasing, "kz_host_collect_memory", i, p, p, sz, p, p)
        self.batch_packed = declare(holding, "kz_host_batch_packed", p, p, p)
        self.batch_free = declare(holding, "kz_host_batch_free", None, p)
        self.result_packed = declare(holding, "kz_host_result_packed", p, p, p)
        self.result_free = declare(holding, "kz_host_result_free", None, p)
        self.walk_options_init = declare(holding, "kz_host_walk_options_init", None, p)
        self.walk_new = declare(holding, "kz_host_walk_new", i, ctypes.c_char_p, p, p)
        self.walk_next = declare(releasing, "kz_host_walk_next", i, p, p)
        self.walk_free = declare(holding, "kz_host_walk_free", None, p)

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
    return done.stdout.strip() if done.returncode == 0 else None


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
    """Tries, in order: the environment variable KZ_HOST_LIBRARY; the kit
    pip built into the package (_native/); the kit installed system-wide
    (the libdir of the kz_host pkg-config package, then the dynamic
    loader's search path)."""
    explicit = os.environ.get("KZ_HOST_LIBRARY")
    if explicit:
        try:
            return Kit(explicit)
        except (OSError, AttributeError) as error:
            raise Error(f"KZ_HOST_LIBRARY={explicit}: cannot load the host kit: {error}") from None
    tried: List[str] = ["KZ_HOST_LIBRARY (not set)"]
    places = [BUNDLED]
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
    for place in places:
        # A bare name from the loader's search path is not a file here.
        if os.sep in place and not os.path.exists(place):
            tried.append(f"{place} (no such file)")
            continue
        try:
            return Kit(place)
        except (OSError, AttributeError) as error:
            tried.append(f"{place} ({error})")
    raise Error("cannot find the host kit libkz_host.so: install the package with pip from the "
                "source tree (it builds the kit), install the kit system-wide, or set "
                "KZ_HOST_LIBRARY to its path; tried: " + "; ".join(tried))
