"""ID3 tags of MPEG audio files, read by the libkz_id3 module.

Reads ID3v2.2, 2.3 and 2.4 tags and the ID3v1/v1.1 trailer through the host
kit libkz_host.so, which loads the module libkz_id3.so::

    import kz_id3

    tags = kz_id3.read("song.mp3")
    tags.get("TIT2")                      # the title, or None
    for field in tags:                    # every field, in file order
        print(field.ident, field.text)    # "TIT2", "ID3v1 title", "TXXX", ...

    for path, tags in kz_id3.read_many(paths, workers=4):
        ...                               # Tags, or the exception for that file

    kz_id3.index.update("music.db", ["/music"])   # an SQLite index of a collection
    kz_id3.dask.scan(["/data/**/*.mp3"])          # a dask.bag over a cluster

From a shell: ``python3 -m kz_id3 PATH...`` prints the fields as kzdump does
(``--json`` for JSON Lines); ``python3 -m kz_id3 index DB PATH...`` keeps an
index up to date.

The kit is found through the environment variable KZ_HOST_LIBRARY, then where
it is installed (pkg-config kz_host, the loader's search path), then the
checkout's build tree; the kit finds the module through KZ_ID3_MODULE, then
beside itself (kz_id3/libkz_id3.so).
"""

from __future__ import annotations

import importlib
from typing import Any

from ._errors import Error, ReadError
from ._reader import Reader, read, read_many
from ._tags import Field, Tags

__version__ = "1.0.0"

__all__ = ["Error", "Field", "ReadError", "Reader", "Tags", "read", "read_many", "kit_version"]


def kit_version() -> str:
    """The version of the host kit libkz_host.so (loads it)."""
    from . import _library
    return _library.kit().version().decode()


def __getattr__(name: str) -> Any:
    # The index (sqlite3) and the Dask scans (dask, pandas) load when used.
    if name in ("index", "dask"):
        return importlib.import_module(f".{name}", __name__)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
