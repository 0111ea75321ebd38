"""Shared for the package's tests: the files read, a builder of tag bytes,
kzdump's view of files, and running code as a user whom permissions stop.

Run through ctest, which stages the package with its kit (or points
KZ_HOST_LIBRARY at the kit) and points KZDUMP at the built kzdump.
"""

import json
import os
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SAMPLES = sorted(str(path) for path in (ROOT / "samples").glob("*.mp3"))
CORPUS = ROOT.parent / "shared" / "corpus"
FILES = SAMPLES + (sorted(str(p) for p in CORPUS.iterdir() if p.is_file())
                   if CORPUS.is_dir() else [])
KZDUMP = [os.environ.get("KZDUMP", str(ROOT / "build" / "bin" / "kzdump"))]
if "KZ_ID3_MODULE" in os.environ:
    KZDUMP += ["--filter", os.environ["KZ_ID3_MODULE"]]
NOBODY = 65534


# ---- Tag bytes ----------------------------------------------------------------------
def synchsafe(value):
    return bytes(((value >> 21) & 0x7F, (value >> 14) & 0x7F, (value >> 7) & 0x7F, value & 0x7F))


def frame(ident, body):
    """An ID3v2.3 frame: identifier, 32-bit size, two zero flag bytes, body."""
    return ident.encode("ascii") + struct.pack(">I", len(body)) + b"\0\0" + body


def text_frame(ident, text):
    """A text frame of ISO-8859-1 text (encoding byte 0)."""
    return frame(ident, b"\0" + text.encode("latin-1"))


def user_frame(description, text):
    """A TXXX frame: encoding 0, the description, a NUL, the value."""
    return frame("TXXX", b"\0" + description.encode("latin-1") + b"\0" + text.encode("latin-1"))


def tag(*frames):
    """An ID3v2.3 tag holding the frames."""
    content = b"".join(frames)
    return b"ID3\x03\x00\x00" + synchsafe(len(content)) + content


def id3v1(title="", artist="", album="", year="", comment="", genre=255):
    """The 128-byte ID3v1 trailer."""
    def padded(text, size):
        return text.encode("latin-1").ljust(size, b"\0")
    return (b"TAG" + padded(title, 30) + padded(artist, 30) + padded(album, 30) +
            padded(year, 4) + padded(comment, 30) + bytes((genre,)))


# ---- kzdump -------------------------------------------------------------------------
def kzdump_records(paths):
    # kzdump --json in the form of Tags.as_dict(): without "codes",
    # "strings" and the genre names kzdump adds; with "id3v1".
    lines = subprocess.run([*KZDUMP, "--json", *paths], capture_output=True, text=True).stdout
    records = {}
    for line in lines.splitlines():
        record = json.loads(line)
        for field in record["fields"]:
            field.pop("codes", None)
            field.pop("genre", None)
            if field.pop("strings", None) is not None:
                field["id3v1"] = field["id"].startswith("ID3v1 ")
        records[record["path"]] = record
    assert len(records) == len(paths)
    return records


# ---- Commands -----------------------------------------------------------------------
def drop_to_nobody():
    os.setgid(NOBODY)
    os.setuid(NOBODY)


def run_python(*args, as_nobody=False, **options):
    """python3 -c CODE ARGS... (or -m ...), as the user nobody when asked and
    this process is root, so that permissions apply."""
    options.setdefault("stdout", subprocess.PIPE)
    options.setdefault("stderr", subprocess.PIPE)
    return subprocess.run([sys.executable, "-c", *args] if args[0] != "-m" else
                          [sys.executable, *args],
                          preexec_fn=drop_to_nobody if as_nobody and os.geteuid() == 0 else None,
                          **options)


def needs_nobody():
    """Skips a test that runs code as nobody where nobody cannot load the
    package (a checkout in a directory of root's alone)."""
    if os.geteuid() == 0 and run_python("import kz_id3; kz_id3.kit_version()",
                                        as_nobody=True).returncode != 0:
        pytest.skip("the user nobody cannot load the package from here")


def run_cli(*args, **options):
    return run_python("-m", "kz_id3", *args, **options)


def shared_directory():
    """A new directory every user may enter and write (a test's tmp_path is
    its owner's alone)."""
    path = Path(tempfile.mkdtemp(prefix="kz_id3-test."))
    path.chmod(0o777)
    return path
