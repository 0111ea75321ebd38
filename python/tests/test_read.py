import errno
import json
import os
import subprocess
import sys

import pytest

import kz_id3
from conftest import FILES, KZDUMP, ROOT, SAMPLES, kzdump_records

def test_read_equals_kzdump():
    if os.environ.get("KZ_ID3_BATCH") == "1":  # the build made kz_id3._batch: read_many uses it
        assert kz_id3._reader._batch is not None
    expected = kzdump_records(FILES)
    # Chunks of two paths, so that both threads read.
    results = list(kz_id3.read_many(FILES, workers=2, chunk_size=2))
    assert [path for path, _ in results] == FILES
    for path, tags in results:
        assert tags.as_dict() == expected[path], path
        with open(path, "rb") as file:
            assert kz_id3.read(file.read()).fields == tags.fields, path


def run_cli(*args):
    return subprocess.run([sys.executable, "-m", "kz_id3", *args], capture_output=True, text=True)


def test_command_prints_like_kzdump():
    json_lines = run_cli("--json", "-j", "2", *FILES).stdout
    assert [json.loads(line) for line in json_lines.splitlines()] == \
        list(kzdump_records(FILES).values())
    text = subprocess.run([*KZDUMP, "--raw", *FILES], capture_output=True, text=True).stdout
    assert run_cli(*FILES).stdout == text


@pytest.mark.parametrize("source, exception, code", [
    ("/nonexistent/song.mp3", kz_id3.ReadError, errno.ENOENT),
    (str(ROOT / "samples"), kz_id3.ReadError, errno.EISDIR),
    (42, TypeError, None),
    (b"ID3 is not enough: no tag here", None, None),
])
def test_bad_input(source, exception, code):
    if exception is None:
        tags = kz_id3.read(source)
        assert (tags.status, len(tags), tags.path) == (51, 0, None)
        return
    with pytest.raises(exception) as raised:
        kz_id3.read(source)
    if code is not None:
        assert (raised.value.errno, raised.value.filename) == (code, source)
        assert isinstance(raised.value, OSError)
        (path, returned), = kz_id3.read_many([source], workers=1)
        assert (path, type(returned), returned.errno) == (source, exception, code)
    with pytest.raises(exception):
        list(kz_id3.read_many(SAMPLES + [source], workers=2, errors="raise"))


def test_missing_kit_names_what_was_tried():
    environment = dict(os.environ, KZ_HOST_LIBRARY="/nonexistent/libkz_host.so")
    done = subprocess.run([sys.executable, "-m", "kz_id3", SAMPLES[0]], env=environment,
                          capture_output=True, text=True)
    assert done.returncode == 2
    assert "KZ_HOST_LIBRARY=/nonexistent/libkz_host.so" in done.stderr
