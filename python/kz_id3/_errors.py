"""The package's exceptions."""

from __future__ import annotations


class Error(Exception):
    """A failure of the package or the host kit that is not about a file
    that cannot be read: the kit or the module not found, a module that
    does not load, no memory, a read the module did not finish, an index
    that another process is writing."""


class ReadError(Error, OSError):
    """A file could not be read: missing, unreadable, a directory or another
    file that is not a regular file, or 4 GiB or larger; or a directory that
    a walk could not list.

    An :class:`OSError`, so ``errno``, ``strerror`` and ``filename`` (the
    path) are set, and ``except OSError`` catches it as it catches the
    failures of :func:`open`.
    """


def reason(error: BaseException) -> str:
    """Why a file could not be read, in a few words: the system's message
    for an OSError ("No such file or directory"), else the exception's."""
    return getattr(error, "strerror", None) or str(error)


# Shown and pickled under the package's name, where users meet them.
Error.__module__ = ReadError.__module__ = "kz_id3"
