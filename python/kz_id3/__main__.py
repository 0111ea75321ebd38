"""python3 -m kz_id3: the fields of files as kzdump shows them, and the index.

    python3 -m kz_id3 [--json] [-r] [-j N] [--type N] [--filter PATH] PATH...
    python3 -m kz_id3 index [-j N] DB PATH...
    python3 -m kz_id3 query DB IDENT=TEXT...
"""

from __future__ import annotations

import argparse
import errno
import json
import os
import re
import sys
from typing import Iterator, List, Optional, TextIO

from . import _reader
from ._errors import Error
from ._tags import NOTHING_TO_READ, Tags
from ._walk import walk

_INVISIBLE = frozenset((0xFEFF, 0x2028, 0x2029, 0xFFFE, 0xFFFF))

DUMP_EPILOG = """\
Text output: a header line per file (the path and the type name the module
gave; "no tags" when it found nothing to read), then one line per field:
"TIT2: value", "ID3v1 title: value", 'TXXX "description": value',
"(outside any field): text", "(failure N reported by the module)".
Control characters show as \\xNN, U+FEFF, U+2028, U+2029, U+FFFE, U+FFFF as
\\uNNNN, a backslash as \\\\; a line feed in a value (a line break the module
delivers, or a line-feed character) continues the value on the next line,
indented by four spaces; in a description it shows as \\n.

--json: one object per file, {"path", "status", "type", "fields", "end"};
each field {"tag", "field", "id", "description" (user-defined fields),
"text", "id3v1"}, {"outside": true, "text"} or {"failure": N}.  A file that
cannot be read gives {"path", "error"}.

Exit status: 0 every file was read; 1 some file could not be read or held no
tags; 2 bad usage, or the host kit or the module could not be loaded.

Other commands: "index DB PATH..." keeps an SQLite index of the tagged files
under PATH; "query DB IDENT=TEXT..." lists the indexed files with those
fields ("python3 -m kz_id3 index --help").  To read a file named "index" or
"query", write ./index.
"""


# ---- Text form ------------------------------------------------------------------------
def _char(ch: str, quoted: bool) -> str:
    code = ord(ch)
    if 0x20 < code < 0x7F and ch != "\\" and ch != '"':
        return ch
    if ch == "\\":
        return "\\\\"
    if quoted and ch == '"':
        return '\\"'
    if code < 0x20 or 0x7F <= code <= 0x9F:
        return f"\\x{code:02X}"
    if code in _INVISIBLE:
        return f"\\u{code:04X}"
    return ch


def _value(text: str) -> str:
    """A value after its colon: a space before the first character, escapes,
    line breaks continued on an indented line."""
    parts = []
    lead = True
    for ch in text:
        if ch == "\n":
            parts.append("\n    ")
        else:
            parts.append(" " + _char(ch, False) if lead else _char(ch, False))
        lead = False
    return "".join(parts)


def _printable(path: str) -> str:
    """A path for a text line: valid UTF-8 as it is, control characters and
    bytes that are not UTF-8 as \\xNN."""
    if path.isascii() and path.isprintable():
        return path
    parts = []
    for ch in os.fsencode(path).decode("utf-8", "surrogateescape"):
        code = ord(ch)
        if 0xDC80 <= code <= 0xDCFF:
            parts.append(f"\\x{code - 0xDC00:02X}")
        elif code < 0x20 or 0x7F <= code <= 0x9F:
            parts.extend(f"\\x{byte:02X}" for byte in ch.encode())
        else:
            parts.append(ch)
    return "".join(parts)


# Characters json.dumps leaves as they are that break or hide lines in some
# readers and terminals: escaped, as kzdump does.
_UNSAFE_IN_JSON = re.compile("[\x7f-\x9f\u2028\u2029\ufeff\ufffe\uffff]")


def _json_line(record: dict) -> str:
    text = json.dumps(record, ensure_ascii=False, separators=(",", ":"))
    return _UNSAFE_IN_JSON.sub(lambda match: f"\\u{ord(match.group()):04X}", text) + "\n"


def _json_path(path: str) -> str:
    return os.fsencode(path).decode("utf-8", "replace")


def render_text(path: str, tags: Tags) -> str:
    """The text form of one file, as kzdump prints it."""
    lines = [f"{_printable(path)}: {tags.type_name or f'type {tags.file_type}'}"]
    if tags.status == NOTHING_TO_READ:
        lines[0] += ": no tags"
    elif tags.status != 0:
        lines[0] += f": no tags (open status {tags.status})"
    for field in tags:
        if field.kind == "failure":
            lines.append(f"  (failure {field.tag} reported by the module)")
            continue
        if field.kind == "outside":
            label = "(outside any field)"
        else:
            label = field.ident
            if field.description is not None:
                described = "".join("\\n" if ch == "\n" else _char(ch, True)
                                    for ch in field.description)
                label += f' "{described}"'
        lines.append(f"  {label}:{_value(field.text)}")
    return "\n".join(lines) + "\n"


def render_json(path: str, tags: Tags) -> str:
    record = tags.as_dict()
    record["path"] = _json_path(path)
    return _json_line(record)


# ---- Commands ---------------------------------------------------------------------------
def _paths(arguments: List[str], recursive: bool, failures: List[str]) -> Iterator[str]:
    for argument in arguments:
        if recursive and os.path.isdir(argument):
            def unreadable(directory: str, error: OSError) -> None:
                failures.append(f"{_printable(directory)}: cannot read the directory: "
                                f"{error.strerror}")
            for entry in walk(argument, onerror=unreadable):
                yield entry.path
        else:
            yield argument


def _reason(error: Exception) -> str:
    if isinstance(error, OSError) and error.strerror:
        if error.errno == errno.EISDIR:
            return f"{error.strerror} (use -r to read the files under it)"
        return error.strerror
    return str(error)


def dump(argv: List[str], out: TextIO) -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m kz_id3", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Shows every field the ID3 module delivers for each file.",
        epilog=DUMP_EPILOG)
    parser.add_argument("--json", action="store_true", help="JSON Lines: one object per file")
    parser.add_argument("-r", "--recursive", action="store_true",
                        help="read the files under each directory PATH, sorted by name")
    parser.add_argument("-j", "--jobs", type=int, default=1, metavar="N",
                        help="N reader threads (default 1); the output order stays the same")
    parser.add_argument("--type", type=int, metavar="N", dest="file_type",
                        help="the file type identifier to open with (default: detected)")
    parser.add_argument("--filter", metavar="PATH", dest="module_path",
                        help="load this module file instead of the one the kit finds")
    parser.add_argument("paths", nargs="+", metavar="PATH")
    options = parser.parse_args(argv)
    if options.jobs < 1:
        parser.error("-j needs a number of at least 1")
    failures: List[str] = []
    status = 0
    results = _reader.read_many(_paths(options.paths, options.recursive, failures),
                                workers=options.jobs, file_type=options.file_type,
                                module_path=options.module_path)
    for path, tags in results:
        for failure in failures:
            print(f"kz_id3: {failure}", file=sys.stderr)
            status = 1
        failures.clear()
        if isinstance(tags, Exception):
            reason = _reason(tags)
            print(f"kz_id3: {_printable(path)}: {reason}", file=sys.stderr)
            if options.json:
                out.write(_json_line({"path": _json_path(path), "error": reason}))
            status = 1
            continue
        if tags.status != 0:
            status = 1
        out.write(render_json(path, tags) if options.json else render_text(path, tags))
    for failure in failures:
        print(f"kz_id3: {failure}", file=sys.stderr)
        status = 1
    return status


def index_command(argv: List[str], out: TextIO) -> int:
    from . import index
    parser = argparse.ArgumentParser(
        prog="python3 -m kz_id3 index",
        description="Reads every file under the PATHs into the SQLite database DB; on the next "
                    "run reads only files whose size or modification time changed and "
                    "removes the ones that vanished.  The schema: "
                    "help(kz_id3.index) or docs/scaling.md.")
    parser.add_argument("-j", "--jobs", type=int, default=None, metavar="N",
                        help="N reader threads (default: the number of CPUs)")
    parser.add_argument("db", metavar="DB")
    parser.add_argument("paths", nargs="+", metavar="PATH")
    options = parser.parse_args(argv)
    summary = index.update(options.db, options.paths, workers=options.jobs)
    out.write(f"{summary}\n")
    return 0


def query_command(argv: List[str], out: TextIO) -> int:
    from . import index
    parser = argparse.ArgumentParser(
        prog="python3 -m kz_id3 query",
        description="Lists the indexed files that have every field IDENT=TEXT given "
                    "(exact texts), one path a line.")
    parser.add_argument("db", metavar="DB")
    parser.add_argument("terms", nargs="+", metavar="IDENT=TEXT")
    options = parser.parse_args(argv)
    terms = []
    for term in options.terms:
        ident, equals, text = term.partition("=")
        if not equals:
            parser.error(f"{term!r} is not IDENT=TEXT")
        terms.append((ident, text))
    for path in index.query(options.db, terms):
        out.write(f"{path}\n")
    return 0


def main(argv: Optional[List[str]] = None) -> int:
    argv = sys.argv[1:] if argv is None else argv
    commands = {"index": index_command, "query": query_command}
    command = commands.get(argv[0]) if argv else None
    try:
        if command is not None:
            return command(argv[1:], sys.stdout)
        return dump(argv, sys.stdout)
    except Error as error:
        print(f"kz_id3: {error}", file=sys.stderr)
        return 2
    except BrokenPipeError:
        sys.stderr.close()
        return 1


if __name__ == "__main__":
    sys.exit(main())
