"""Shared for the package's tests: the files read, and kzdump's view of them.

Run through ctest, which points KZ_HOST_LIBRARY and KZ_ID3_MODULE at the
built kit and module and KZDUMP at the built kzdump.
"""

import json
import os
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SAMPLES = sorted(str(path) for path in (ROOT / "samples").glob("*.mp3"))
CORPUS = ROOT.parent / "shared" / "corpus"
FILES = SAMPLES + (sorted(str(p) for p in CORPUS.iterdir() if p.is_file())
                   if CORPUS.is_dir() else [])
KZDUMP = [os.environ.get("KZDUMP", str(ROOT / "build" / "bin" / "kzdump"))]
if "KZ_ID3_MODULE" in os.environ:
    KZDUMP += ["--filter", os.environ["KZ_ID3_MODULE"]]


def kzdump_records(paths):
    """kzdump --json of the paths, by path, in the form of Tags.as_dict():
    without "codes" and "strings", with "id3v1" (kzdump names the fields of
    the trailer "ID3v1 ..."), and without "genre", the genre names that
    kzdump adds to the raw text and the package does not."""
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
