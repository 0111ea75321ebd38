"""Walking directory trees the way kzdump -r does."""

from __future__ import annotations

import os
from typing import Callable, Iterator


def walk(directory: str, *, sort: bool = True,
         onerror: Callable[[str, OSError], None] = lambda path, error: None
         ) -> Iterator["os.DirEntry[str]"]:
    """Every entry under ``directory`` that is not a directory, depth first,
    sorted by name when ``sort``.  Symbolic links to directories are not
    followed, so no walk can loop; they are left out.  ``onerror(path,
    error)`` is called for a directory that cannot be listed."""
    try:
        with os.scandir(directory) as listing:
            entries = list(listing)
    except OSError as error:
        onerror(directory, error)
        return
    if sort:
        entries.sort(key=lambda entry: os.fsencode(entry.name))
    for entry in entries:
        try:
            if entry.is_dir(follow_symlinks=False):
                yield from walk(entry.path, sort=sort, onerror=onerror)
            elif not (entry.is_symlink() and entry.is_dir()):
                yield entry
        except OSError:
            yield entry
