"""ID3 tags of MPEG audio files, read by the libkz_id3 module.

Reads ID3v2.2, 2.3 and 2.4 tags and the ID3v1/v1.1 trailer through the host
kit libkz_host.so, which loads the module libkz_id3.so::

    import kz_id3

    tags = kz_id3.read("song.mp3")        # a path (str, bytes, path-like) or a file object
    tags["TIT2"]                          # the texts of every TIT2 field
    tags.get("TXXX:MusicBrainz Album Id") # the first text, or None
    for field in tags:                    # every field, in file order
        print(field.ident, field.text)    # "TIT2", "ID3v1 title", "TXXX", ...
    kz_id3.read_bytes(data)               # a file's contents in memory

    with kz_id3.read_many(kz_id3.walk("/music"), workers=4) as results:
        for path, tags in results:        # Tags, or the exception for that file
            ...
    kz_id3.to_dataframe(kz_id3.read_many(paths))  # pandas: a row per field

    kz_id3.index.update("music.db", "/music")     # an SQLite index of a collection
    kz_id3.dask.scan(["/data/**/*.mp3"])          # a dask.bag over a cluster

From a shell, ``python3 -m kz_id3 index DB ROOT...`` keeps an index up to
date and ``python3 -m kz_id3 query DB IDENT=TEXT...`` searches it; kzdump
shows the fields of files.

What arrives is what the module delivers, as stored in the file: ID3v2.4
UTF-8 text read as UTF-16, no dates such as TDRC, values that keep their
terminator byte, and the other limits listed in the host guide's section
"What the module does not do" (docs/host-guide.md).

``pip install ./python`` builds the kit and the module into the package;
the package finds the kit through the environment variable
KZ_HOST_LIBRARY, then inside itself (kz_id3/_native/), then where it is
installed system-wide (pkg-config kz_host, the loader's search path); the
kit finds the module through KZ_ID3_MODULE, then beside itself
(kz_id3/libkz_id3.so).
"""

from __future__ import annotations

import importlib
from typing import Any

from ._errors import Error, ReadError
from ._reader import Reader, ReadMany, read, read_bytes, read_many, walk
from ._tags import Field, Tags

__version__ = "2.0.0"

__all__ = ["Error", "Field", "ReadError", "ReadMany", "Reader", "Tags", "kit_version", "read",
           "read_bytes", "read_many", "to_dataframe", "walk"]


def kit_version() -> str:
    """The version of the host kit libkz_host.so (loads it)."""
    from . import _library
    return _library.kit().version().decode()


def to_dataframe(results: Any) -> Any:
    """A pandas DataFrame of what :func:`read_many` yields (or any iterable of
    ``(path, Tags or exception)`` pairs): one row per field, the columns and
    rows of :func:`kz_id3.dask.to_dataframe` (see there).  Needs pandas."""
    from ._frame import frame
    return frame(results)


def __getattr__(name: str) -> Any:
    # The index (sqlite3) and the Dask scans (dask, pandas) load when used.
    if name in ("index", "dask"):
        return importlib.import_module(f".{name}", __name__)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
