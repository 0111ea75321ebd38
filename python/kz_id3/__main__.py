"""python3 -m kz_id3: what Python adds to kzdump, an index of a collection.

    python3 -m kz_id3 index [-j N] [--wait] [--prune-empty] [--ext EXT] [--exclude PATTERN]
                            [--type N] DB ROOT...
    python3 -m kz_id3 query [-i] [--json] DB IDENT=TEXT...

kzdump shows the fields of files; this command does not (one renderer).
"""

from __future__ import annotations

import argparse
import errno
import json
import os
import sys
from typing import Any, Callable, Dict, List, Optional, TextIO

from ._errors import Error, reason
from ._tags import json_path

BAD_USAGE = 2
WRITE_ERROR = 4

USAGE = """\
usage: python3 -m kz_id3 index [-j N] [--wait] [--prune-empty] DB ROOT...
       python3 -m kz_id3 query [-i] [--json] DB IDENT=TEXT...

  index  reads every file under the ROOTs into the SQLite index DB; the next
         run reads only what changed
  query  lists the indexed files that have every field IDENT=TEXT

To show the fields of files, use kzdump: kzdump FILE..., kzdump -r DIR,
kzdump --json FILE...  ("python3 -m kz_id3 index --help" for more.)
"""

STATUS_EPILOG = """\
Exit status: 0 every file was read and every directory listed; 1 some file
could not be read or some directory could not be listed (each is named on
stderr; the rest was done); 2 bad usage, or the run stopped before it
changed anything it should not: a root that does not exist, a root with no
files where the index holds some, another run writing the index, the kit
or the module not found; 4 the output could not be written.

Paths are printed as UTF-8 text; a byte that is not UTF-8, a control
character and a backslash are escaped as \\xNN and \\\\, so that every name
can be recovered.
"""


class _WriteError(Exception):
    """The output could not be written."""


class _Output:
    """Standard output that turns a failed write into _WriteError."""

    def __init__(self, stream: TextIO) -> None:
        self._stream = stream

    def line(self, text: str) -> None:
        try:
            self._stream.write(text + "\n")
        except OSError as error:
            raise _WriteError(error) from None

    def flush(self) -> None:
        try:
            self._stream.flush()
        except OSError as error:
            raise _WriteError(error) from None


def printable(path: Any) -> str:
    """A path for a line of text: UTF-8 as it is; each byte that is not
    UTF-8 or belongs to a control character as \\xNN (kzdump's escapes), a
    backslash as \\\\, so that the bytes can be recovered."""
    raw = path if isinstance(path, bytes) else str(path).encode("utf-8", "surrogateescape")
    parts = []
    for ch in raw.decode("utf-8", "surrogateescape"):
        code = ord(ch)
        if ch == "\\":
            parts.append("\\\\")
        elif 0xDC80 <= code <= 0xDCFF:
            parts.append(f"\\x{code - 0xDC00:02X}")
        elif code < 0x20 or 0x7F <= code <= 0x9F:
            parts.extend(f"\\x{byte:02X}" for byte in ch.encode())
        else:
            parts.append(ch)
    return "".join(parts)


def _warn(message: str) -> None:
    print(f"kz_id3: {message}", file=sys.stderr)


class _Parser(argparse.ArgumentParser):
    """argparse with kzdump's status for bad usage."""

    def error(self, message: str) -> None:  # type: ignore[override]
        self.exit(BAD_USAGE, f"{self.prog}: {message} (see {self.prog} --help)\n")


def _file_type(text: str) -> int:
    try:
        if 0 <= int(text) <= 0xFFFF:
            return int(text)
    except ValueError:
        pass
    raise argparse.ArgumentTypeError(f"bad number for --type: {text!r} (0 to 65535)")


def _jobs(text: str) -> int:
    try:
        if int(text) >= 1:
            return int(text)
    except ValueError:
        pass
    raise argparse.ArgumentTypeError(f"bad number for -j: {text!r} (1 or more)")


def index_command(argv: List[str], out: _Output) -> int:
    from . import index
    parser = _Parser(
        prog="python3 -m kz_id3 index", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Reads every file under the ROOTs into the SQLite database DB; on the next "
                    "run reads only files whose size or modification time changed and removes "
                    "the ones under the ROOTs that are gone.  The schema: help(kz_id3.index).",
        epilog=STATUS_EPILOG)
    parser.add_argument("-j", "--jobs", type=_jobs, default=None, metavar="N",
                        help="N reader threads (default: the number of CPUs)")
    parser.add_argument("--wait", action="store_true",
                        help="when another run is writing DB, wait for it instead of failing")
    parser.add_argument("--prune-empty", action="store_true",
                        help="remove the files of a ROOT that holds no file any more (without "
                             "it, such a ROOT, say an unmounted drive, is an error)")
    parser.add_argument("--ext", action="append", default=[], metavar="EXT",
                        help="only files whose name ends in .EXT (any case); repeatable")
    parser.add_argument("--exclude", action="append", default=[], metavar="PATTERN",
                        help="leave out files and directories whose name matches the fnmatch "
                             "PATTERN; repeatable")
    parser.add_argument("--type", type=_file_type, default=0, metavar="N", dest="file_type",
                        help="the file type identifier to open with (0 to 65535; default 0: "
                             "detected)")
    parser.add_argument("db", metavar="DB")
    parser.add_argument("roots", nargs="+", metavar="ROOT")
    options = parser.parse_args(argv)
    try:
        summary = index.update(options.db, options.roots,
                               workers=options.jobs, file_type=options.file_type,
                               extensions=options.ext, exclude=options.exclude,
                               prune_empty=options.prune_empty, wait=options.wait)
    except index.EmptyRoot as error:
        _warn(str(error))
        return BAD_USAGE
    for unlisted in summary.unlisted:
        _warn(f"{printable(unlisted.filename)}: cannot list the directory: {reason(unlisted)}"
              f" (the files under it stay in the index)")
    for failed in summary.failed:
        where = getattr(failed, "filename", None)
        _warn(f"{printable(where)}: {reason(failed)}" if where is not None else reason(failed))
    out.line(str(summary))
    return 1 if summary.unlisted or summary.failed else 0


def query_command(argv: List[str], out: _Output) -> int:
    from . import index
    parser = _Parser(
        prog="python3 -m kz_id3 query", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Lists the indexed files that have a field matching every term, one path a "
                    "line.  A term is IDENT=TEXT (TPE1=ABBA, 'ID3v1 artist=ABBA') or, for a "
                    "user-defined field, IDENT:DESCRIPTION=TEXT ('TXXX:MusicBrainz Album "
                    "Id=...'); TEXT is the field's whole text.  The database is opened "
                    "read-only.",
        epilog=STATUS_EPILOG)
    parser.add_argument("-i", "--ignore-case", action="store_true",
                        help="match identifiers, descriptions and texts in any case")
    parser.add_argument("--json", action="store_true",
                        help='JSON Lines: {"path": ...}, and "path_base64" with the exact bytes '
                             "of a path that is not UTF-8, as kzdump --json writes paths")
    parser.add_argument("db", metavar="DB")
    parser.add_argument("terms", nargs="+", metavar="IDENT=TEXT")
    options = parser.parse_args(argv)
    terms = []
    for term in options.terms:
        key, equals, text = term.partition("=")
        if not equals or not key:
            parser.error(f"{term!r} is not IDENT=TEXT")
        terms.append((key, text))
    for path in index.query(options.db, terms, ignore_case=options.ignore_case):
        if options.json:
            out.line(json.dumps(json_path(path), ensure_ascii=False, separators=(",", ":")))
        else:
            out.line(printable(path))
    return 0


COMMANDS: Dict[str, Callable[[List[str], _Output], int]] = {
    "index": index_command, "query": query_command}


def main(argv: Optional[List[str]] = None) -> int:
    argv = sys.argv[1:] if argv is None else argv
    command = COMMANDS.get(argv[0]) if argv else None
    if command is None:
        if argv and argv[0] in ("-h", "--help"):
            sys.stdout.write(USAGE)
            return 0
        sys.stderr.write(USAGE)
        return BAD_USAGE
    out = _Output(sys.stdout)
    try:
        status = command(argv[1:], out)
        out.flush()
        return status
    except _WriteError as error:
        cause = error.args[0]
        if cause.errno != errno.EPIPE:
            _warn(f"write error: {cause.strerror}")
        # What stdio still holds can never be written: dropped, so that the
        # interpreter's own flush at exit does not fail again.
        devnull = os.open(os.devnull, os.O_WRONLY)
        os.dup2(devnull, sys.stdout.fileno())
        os.close(devnull)
        return WRITE_ERROR
    except (Error, OSError) as error:
        where = getattr(error, "filename", None)
        _warn(f"{printable(where)}: {reason(error)}" if where is not None else str(error))
        return BAD_USAGE


if __name__ == "__main__":
    sys.exit(main())
