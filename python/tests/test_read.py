import base64
import errno
import gc
import io
import itertools
import os
import pathlib
import pickle
import struct
import threading

import pytest

import kz_id3
from conftest import FILES, ROOT, SAMPLES, frame, kzdump_records, run_python, tag

TAGGED = tag(frame("TIT2", "Song"), frame("TPE1", "Artist"),
             frame("TXXX", "MusicBrainz Album Id", "abc"), frame("TXXX", "Mood", "calm"),
             v1=("Old", "Someone"))
V1 = [("ID3v1 title", 118, "Old"), ("ID3v1 artist", 132, "Someone"), ("ID3v1 album", 105, ""),
      ("ID3v1 year", 150, ""), ("ID3v1 comment", 80, ""), ("ID3v1 genre", 108, "")]


def test_read_equals_kzdump_over_samples_and_corpus():
    expected = kzdump_records(FILES)
    for path in FILES:
        tags = kz_id3.read(path)
        assert tags.as_dict() == expected[path], path
        with open(path, "rb") as file:
            assert kz_id3.read_bytes(file.read()) == tags, path


def test_one_and_two_workers_agree_in_order():
    # Chunks of two paths, so that both threads read.
    one = list(kz_id3.read_many(FILES, workers=1))
    two = list(kz_id3.read_many(FILES, workers=2, chunk_size=2))
    assert [path for path, _ in one] == [path for path, _ in two] == FILES
    assert [tags for _, tags in one] == [tags for _, tags in two]
    unordered = kz_id3.read_many(FILES, workers=2, chunk_size=1, ordered=False)
    assert sorted(path for path, _ in unordered) == sorted(FILES)


def test_fields_and_facts_of_a_built_tag():
    tags = kz_id3.read_bytes(TAGGED)
    assert [tuple(field) for field in tags] == [
        ("field", 1, 118, "TIT2", None, "Song", False),
        ("field", 2, 132, "TPE1", None, "Artist", False),
        ("field", 503, 503, "TXXX/WXXX", "MusicBrainz Album Id", "abc", False),
        ("field", 504, 504, "TXXX/WXXX", "Mood", "calm", False)] + [
        ("field", tag_number, number, ident, None, text, True)
        for tag_number, (ident, number, text) in enumerate(V1, 4)]
    assert (tags.status, tags.file_type, tags.type_name, tags.path, tags.end_seen, tags.audio,
            tags.type_detected, tags.truncated) == \
        (0, 1709, "ID3 Ver 2.x", None, True, False, True, False)
    assert tags.fields[2].as_dict() == {"tag": 503, "field": 503, "id": "TXXX/WXXX",
                                        "description": "MusicBrainz Album Id", "text": "abc",
                                        "id3v1": False}
    assert (tags["TIT2"], tags["TXXX:Mood"], tags["WXXX:Mood"], tags["TXXX"]) == \
        (["Song"], ["calm"], ["calm"], ["abc", "calm"])
    assert (tags[0].ident, tags[-1].ident, len(tags)) == ("TIT2", "ID3v1 genre", 10)
    assert (tags.get("TXXX:MusicBrainz Album Id"), tags.get(132), tags.get("TALB"),
            tags.get("TALB", "")) == ("abc", "Artist", None, "")
    assert [f.text for f in tags.getall("ID3v1 title")] == ["Old"]
    assert ["TIT2" in tags, "TXXX:Mood" in tags, 132 in tags, tags[1] in tags] == [True] * 4
    assert ["TALB" in tags, "TXXX:Nothing" in tags, 999 in tags] == [False] * 3
    for missing in ("TALB", "TXXX:Nothing"):
        with pytest.raises(KeyError):
            tags[missing]
    assert tags == kz_id3.read_bytes(TAGGED) != kz_id3.read_bytes(tag(frame("TIT2", "Song")))
    assert tags != TAGGED
    assert (pickle.loads(pickle.dumps(tags)).fields, repr(tags)) == \
        (tags.fields, "<Tags None 'ID3 Ver 2.x': 10 fields>")


def test_packed_result_of_a_later_kit():
    # An item of a kind this package does not know (3), as the packed layout
    # of kz_host.h gives it: kind, id3v1, ident length, 0, tag, number,
    # description length (none), text length, ident, text.
    packed = struct.pack("=IiHBB", 1, 0, 1709, 1 | 8, 1) + b"T" + \
        struct.pack("=BBBxIIII", 3, 0, 4, 7, 118, 0xFFFFFFFF, 2) + b"TIT2" + b"Hi"
    tags = kz_id3.Tags(packed, "x.mp3")
    assert [tuple(field) for field in tags] == [("3", 7, 118, "TIT2", None, "Hi", False)]
    assert (tags.type_name, tags.end_seen, tags.audio, tags.truncated) == ("T", True, True, False)
    # Equal only with the same file-level facts: status, type, flags, type name.
    for status, file_type, flags, name in ((51, 1709, 9, b"T"), (0, 1710, 9, b"T"),
                                           (0, 1709, 11, b"T"), (0, 1709, 9, b"U")):
        other = struct.pack("=IiHBB", 1, status, file_type, flags, 1) + name + packed[13:]
        assert kz_id3.Tags(other) != tags
    assert kz_id3.Tags(packed) == tags


def test_fields_filter_and_file_type():
    tags = kz_id3.read_bytes(TAGGED, fields=["TPE1", 118])
    assert [(f.ident, f.text) for f in tags] == [("TIT2", "Song"), ("TPE1", "Artist"),
                                                ("ID3v1 title", "Old")]
    assert [f.text for f in kz_id3.read_bytes(TAGGED, fields="TPE1")] == ["Artist"]
    typed = kz_id3.read_bytes(TAGGED, file_type=1706)
    assert (typed.file_type, typed.type_name, typed.type_detected) == \
        (1706, "MPEG-1 audio - Layer 3, ID3v1.x", False)
    assert kz_id3.read_bytes(TAGGED, file_type=3000).type_name == ""
    assert kz_id3.read(SAMPLES[0], file_type=0) == kz_id3.read(SAMPLES[0])
    assert kz_id3.read(SAMPLES[0], file_type=65535).file_type == 65535


def test_every_kind_of_path_and_file_object(tmp_path):
    path = tmp_path / "caf\xe9.mp3"
    path.write_bytes(TAGGED)
    raw = os.fsencode(path)
    expected = kz_id3.read_bytes(TAGGED)
    for source in (str(path), raw, path):
        tags = kz_id3.read(source)
        assert (tags, tags.path) == (expected, os.fspath(source))
    undecodable = tmp_path.as_posix().encode() + b"/caf\xe9.mp3"
    os.rename(raw, undecodable)
    record = kz_id3.read(undecodable).as_dict()
    assert (record["path"], record["path_base64"]) == \
        (tmp_path.as_posix() + "/caf\ufffd.mp3", base64.b64encode(undecodable).decode())
    with open(undecodable, "rb") as file:
        file.read(3)  # read from the position onwards: the tag's head is gone
        assert [(f.ident, f.text) for f in kz_id3.read(file)] == \
            [(ident, text) for ident, _, text in V1]
    assert kz_id3.read(io.BytesIO(TAGGED)) == expected
    assert kz_id3.read_bytes(bytearray(TAGGED)) == expected == kz_id3.read_bytes(memoryview(TAGGED))


@pytest.mark.parametrize("source, code, reason", [
    ("/nonexistent/song.mp3", errno.ENOENT, "No such file or directory"),
    (str(ROOT / "samples"), errno.EISDIR, "Is a directory"),
    ("/dev/null", errno.EINVAL, "Not a regular file"),
])
def test_unreadable_file_is_read_error_with_errno(source, code, reason):
    with pytest.raises(kz_id3.ReadError) as raised:
        kz_id3.read(source)
    assert (raised.value.errno, raised.value.strerror, raised.value.filename) == (code, reason, source)
    assert isinstance(raised.value, OSError) and isinstance(raised.value, kz_id3.Error)
    (path, returned), = kz_id3.read_many([source], workers=1)
    assert (path, type(returned), returned.errno) == (source, kz_id3.ReadError, code)
    with pytest.raises(kz_id3.ReadError):
        list(kz_id3.read_many(SAMPLES + [source], workers=2, errors="raise"))


def test_unreadable_file_without_permission(shared):
    locked = shared / "locked.mp3"
    locked.write_bytes(TAGGED)
    locked.chmod(0)
    code = "import kz_id3, sys\ntry: kz_id3.read(sys.argv[1])\nexcept OSError as e: print(e)"
    done = run_python(code, str(locked), as_nobody=True)
    assert done.stdout == f"[Errno {errno.EACCES}] Permission denied: '{locked}'\n".encode()


FIELDS_MESSAGE = "fields must be identifiers (str) or field numbers (int), not "
TYPE_MESSAGE = "file_type must be a number from 0 (detect) to 65535, such as 1707, not "


@pytest.mark.parametrize("call, exception, message", [
    (lambda: kz_id3.read(42), TypeError, "a path (str, bytes, os.PathLike) or a binary file "
     "object is read, not int; read_bytes() reads a buffer"),
    (lambda: kz_id3.read(io.StringIO("text")), TypeError,
     "the file object gave str, not bytes: open it in binary mode ('rb')"),
    (lambda: kz_id3.read("a\0b"), ValueError, "embedded null character in path 'a\\x00b'"),
    (lambda: kz_id3.read(b"a\0b"), ValueError, "embedded null character in path b'a\\x00b'"),
    (lambda: kz_id3.read_bytes("ID3"), TypeError,
     "read_bytes() reads bytes, bytearray or memoryview, not str; read() reads a path"),
    (lambda: kz_id3.read(SAMPLES[0], file_type=-1), ValueError, TYPE_MESSAGE + "-1"),
    (lambda: kz_id3.read(SAMPLES[0], file_type=65536), ValueError, TYPE_MESSAGE + "65536"),
    (lambda: kz_id3.read(SAMPLES[0], file_type=True), ValueError, TYPE_MESSAGE + "True"),
    (lambda: kz_id3.read(SAMPLES[0], file_type="1707"), ValueError, TYPE_MESSAGE + "'1707'"),
    (lambda: kz_id3.read(SAMPLES[0], fields=[b"TIT2"]), TypeError, FIELDS_MESSAGE + "b'TIT2'"),
    (lambda: kz_id3.read(SAMPLES[0], fields=[True]), TypeError, FIELDS_MESSAGE + "True"),
    (lambda: kz_id3.read(SAMPLES[0], fields=b"TIT2"), TypeError, FIELDS_MESSAGE + "bytes"),
    (lambda: kz_id3.read_many("a.mp3"), TypeError, "read_many(paths) must be an iterable of "
     "paths, not a single path 'a.mp3'; for one file use kz_id3.read()"),
    (lambda: kz_id3.read_many(b"a.mp3"), TypeError, "not a single path b'a.mp3'"),
    (lambda: kz_id3.read_many(pathlib.Path("a.mp3")), TypeError, "PosixPath('a.mp3')"),
    (lambda: kz_id3.read_many([], workers=0), ValueError,
     "workers must be a whole number of at least 1, not 0"),
    (lambda: kz_id3.read_many([], workers=1.5), ValueError, "not 1.5"),
    (lambda: kz_id3.read_many([], workers=True), ValueError, "not True"),
    (lambda: kz_id3.read_many([], chunk_size=0), ValueError, "chunk_size must be"),
    (lambda: kz_id3.read_many([], errors="ignore"), ValueError,
     'errors must be "return" or "raise", not \'ignore\''),
    (lambda: kz_id3.read_many([], file_type=70000), ValueError, TYPE_MESSAGE + "70000"),
    (lambda: list(kz_id3.walk(SAMPLES[0], extensions="mp3")), TypeError,
     "extensions and exclude are lists of names, not a single string"),
    (lambda: list(kz_id3.walk(SAMPLES[0], exclude=b"x")), TypeError, "not a single string"),
])
def test_bad_arguments(call, exception, message):
    with pytest.raises(exception) as raised:
        call()
    assert message in str(raised.value)


@pytest.mark.parametrize("status, error, path, expected", [
    (-6, errno.EACCES, "a.mp3", (kz_id3.ReadError, "[Errno 13] Permission denied: 'a.mp3'")),
    (-6, 0, "a.mp3", (kz_id3.ReadError, "[Errno 5] Input/output error: 'a.mp3'")),
    (-8, 0, "a.mp3", (kz_id3.ReadError, "[Errno 27] File too large: 'a.mp3'")),
    (-9, 0, "a.mp3", (kz_id3.Error, "a.mp3: the module did not finish the file")),
    (-8, 0, None, (kz_id3.Error, "<buffer>: larger than 4 GiB: beyond the module's 32-bit "
                                 "positions")),
])
def test_failures_as_exceptions(status, error, path, expected):
    made = kz_id3._reader.failure(kz_id3._library.kit(), status, error, path)
    assert (type(made), str(made)) == expected


def reader_threads():
    return [thread for thread in threading.enumerate() if thread.name.startswith("kz_id3 reader")]


def test_read_many_of_items_that_are_not_paths_and_a_failing_iterable():
    results = list(kz_id3.read_many([42, io.BytesIO(TAGGED), "a\0b"], workers=1))
    assert [type(result) for _, result in results] == [TypeError, kz_id3.Tags, ValueError]
    assert results[1][1] == kz_id3.read_bytes(TAGGED)

    def paths():
        yield SAMPLES[0]
        raise RuntimeError("the list broke")
    with pytest.raises(RuntimeError, match="the list broke"):
        list(kz_id3.read_many(paths(), workers=2, chunk_size=1))
    assert reader_threads() == []


@pytest.mark.parametrize("cpus, threads", [(3, 3), (1, 0), (None, 0)])
def test_read_many_on_a_thread_per_cpu_in_chunks_of_64(monkeypatch, cpus, threads):
    monkeypatch.setattr(os, "cpu_count", lambda: cpus)
    taken = itertools.count()
    with kz_id3.read_many(path for path, _ in zip(itertools.cycle(SAMPLES), taken)) as results:
        next(results)
        assert len(reader_threads()) == threads
        assert threads or next(taken) == 64
    assert reader_threads() == []


def test_read_many_stops_its_threads():
    many = FILES * 20
    results = kz_id3.read_many(many, workers=2, chunk_size=1)
    next(results)
    assert len(reader_threads()) == 2
    results.close()
    assert (list(results), reader_threads()) == ([], [])
    results = kz_id3.read_many(many, workers=2, chunk_size=1)
    next(results)
    del results
    gc.collect()
    assert reader_threads() == []


def test_walk_in_order_with_choices_and_errors(tmp_path):
    for name in ("b.MP3", "a.mp3", "c.txt", "d/x.mp3", "d/skip/y.mp3", "e.tmp.mp3"):
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).write_bytes(b"")
    root = str(tmp_path)
    assert list(kz_id3.walk(root, extensions=["mp3"], exclude=["skip", "*.tmp.*"])) == \
        [f"{root}/a.mp3", f"{root}/b.MP3", f"{root}/d/x.mp3"]
    assert list(kz_id3.walk(os.fsencode(root + "/d"))) == \
        [os.fsencode(f"{root}/d/skip/y.mp3"), os.fsencode(f"{root}/d/x.mp3")]
    (path, missing), = kz_id3.read_many(kz_id3.walk(root + "/none"), workers=1)
    assert (path, type(missing), missing.errno, missing.filename) == \
        (root + "/none", kz_id3.ReadError, errno.ENOENT, root + "/none")


def test_names_and_versions():
    assert (repr(kz_id3.Error), repr(kz_id3.ReadError), repr(kz_id3.Field)) == \
        ("<class 'kz_id3.Error'>", "<class 'kz_id3.ReadError'>", "<class 'kz_id3.Field'>")
    header = (ROOT / "include" / "kz_host.h").read_text()
    assert f'#define KZ_HOST_VERSION_STRING "{kz_id3.kit_version()}"' in header
    assert kz_id3.__version__ == "2.0.0"
    assert 'version = "2.0.0"' in (ROOT / "python" / "pyproject.toml").read_text()


def test_reader_of_a_named_module():
    with kz_id3.Reader() as reader:
        module = reader.module_path
        assert module.endswith("/libkz_id3.so")
        assert reader.read(SAMPLES[0]) == kz_id3.read(SAMPLES[0])
    assert kz_id3.Reader(module).module_version == kz_id3.Reader().module_version
    with pytest.raises(kz_id3.Error, match="the reader is closed"):
        reader.read(SAMPLES[0])
    with pytest.raises(kz_id3.Error, match="cannot load the ID3 module: /nonexistent.so"):
        kz_id3.Reader("/nonexistent.so")
    results = list(kz_id3.read_many(SAMPLES, workers=2, module_path=module))
    assert [tags for _, tags in results] == [kz_id3.read(path) for path in SAMPLES]


def test_kit_where_pkg_config_says_and_every_place_tried(monkeypatch, tmp_path):
    (tmp_path / "kz_host.pc").write_text(f"libdir={tmp_path}\nName: kz_host\nDescription: kit\n"
                                         "Version: 2.0.0\n")
    monkeypatch.delenv("KZ_HOST_LIBRARY", raising=False)
    monkeypatch.setenv("PKG_CONFIG_PATH", str(tmp_path))
    monkeypatch.setattr(kz_id3._library, "BUNDLED", str(tmp_path / "bundled.so"))
    monkeypatch.setattr(kz_id3._library.ctypes.util, "find_library", lambda name: None)
    os.symlink(kz_id3._library.kit().path, tmp_path / "libkz_host.so.2")
    assert kz_id3._library._load().path == f"{tmp_path}/libkz_host.so.2"
    os.unlink(tmp_path / "libkz_host.so.2")
    with pytest.raises(kz_id3.Error) as raised:
        kz_id3._library._load()
    assert str(raised.value) == (
        "cannot find the host kit libkz_host.so: install the package with pip from the source "
        "tree (it builds the kit), install the kit system-wide, or set KZ_HOST_LIBRARY to its "
        f"path; tried: KZ_HOST_LIBRARY (not set); the dynamic loader's search path (no "
        f"libkz_host); {tmp_path}/bundled.so (no such file); {tmp_path}/libkz_host.so.2 (no such "
        f"file); {tmp_path}/libkz_host.so (no such file)")
    monkeypatch.setenv("PKG_CONFIG_PATH", str(tmp_path / "none"))
    with pytest.raises(kz_id3.Error, match=r"\(not set\); pkg-config kz_host \(no such package"):
        kz_id3._library._load()


def test_missing_kit_names_what_was_tried():
    done = run_python("import kz_id3; kz_id3.read('x')",
                      env=dict(os.environ, KZ_HOST_LIBRARY="/nonexistent/libkz_host.so"))
    assert b"kz_id3.Error: KZ_HOST_LIBRARY=/nonexistent/libkz_host.so: cannot load the " \
        b"host kit" in done.stderr
