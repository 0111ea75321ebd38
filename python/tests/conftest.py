# Shared by the package's tests: the files read, a builder of tag bytes,
# kzdump's view of files, and running code as a user whom permissions stop.
# Run through ctest, which stages the package with its kit (or points
# KZ_HOST_LIBRARY at the kit) and points KZDUMP at the built kzdump.
import json
import os
import shutil
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


# An ID3v2.3 frame of ISO-8859-1 texts separated by NUL (a TXXX frame:
# description, value): identifier, 32-bit size, two zero flag bytes, body.
def frame(ident, *texts):
    body = b"\0" + b"\0".join(text.encode("latin-1") for text in texts)
    return ident.encode("ascii") + struct.pack(">I", len(body)) + b"\0\0" + body


# An ID3v2.3 tag of the frames (its synchsafe size one byte: below 128
# here), then the ID3v1 trailer of the title and artist ``v1`` when given.
def tag(*frames, v1=()):
    content = b"".join(frames)
    trailer = b"".join(text.encode().ljust(30, b"\0") for text in v1)
    return b"ID3\3\0\0\0\0\0" + bytes((len(content),)) + content + \
        (b"TAG" + trailer + bytes(64) + b"\xff" if v1 else b"")


# kzdump --json in the form of Tags.as_dict(): without "codes", "strings"
# and the genre names kzdump adds; with "id3v1".
def kzdump_records(paths):
    records = {}
    for line in subprocess.run([*KZDUMP, "--json", *paths], capture_output=True).stdout.splitlines():
        record = json.loads(line)
        for field in record["fields"]:
            field.pop("codes", None)
            field.pop("genre", None)
            if field.pop("strings", None) is not None:
                field["id3v1"] = field["id"].startswith("ID3v1 ")
        records[record["path"]] = record
    assert len(records) == len(paths)
    return records


def drop_to_nobody():
    os.setgid(NOBODY)
    os.setuid(NOBODY)


# python3 -c CODE ARGS... (or -m ...), as the user nobody when asked and this
# process is root, so that permissions apply.
def run_python(*args, as_nobody=False, **options):
    options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
    return subprocess.run([sys.executable, *(args if args[0] == "-m" else ("-c", *args))],
                          preexec_fn=drop_to_nobody if as_nobody and os.geteuid() == 0 else None,
                          **options)


def run_cli(*args, **options):
    return run_python("-m", "kz_id3", *args, **options)


# A new directory every user may enter and write (a test's tmp_path is its
# owner's alone); the test is skipped where nobody cannot load the package
# (a checkout in a directory of root's alone).
@pytest.fixture
def shared():
    if os.geteuid() == 0 and run_python("import kz_id3; kz_id3.kit_version()",
                                        as_nobody=True).returncode != 0:
        pytest.skip("the user nobody cannot load the package from here")
    path = Path(tempfile.mkdtemp(prefix="kz_id3-test."))
    path.chmod(0o777)
    yield path
    subprocess.run(["chmod", "-R", "u+rwx", path], check=True)
    shutil.rmtree(path)
