import collections
import errno

import pytest

import kz_id3
from conftest import FILES, ROOT, SAMPLES, frame, tag
from test_index import contents

distributed = pytest.importorskip("distributed")
import kz_id3.dask  # noqa: E402  (after the skip: needs Dask)

MISSING = str(ROOT / "missing.mp3")


def records(paths):
    return [tags.as_dict() for _, tags in kz_id3.read_many(paths, workers=2)]


def values(table):
    return [tuple(None if value is kz_id3.dask.pandas.NA else value for value in row)
            for row in table.itertuples(index=False)]


def test_scans_on_local_cluster_equal_read_many(tmp_path):
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        assert sorted(client.run(lambda: kz_id3.read_bytes(b"").status).values()) == [51, 51]
        bag = kz_id3.dask.scan(FILES, partition_size=4, client=client)
        assert bag.compute() == records(FILES)
        tags = kz_id3.dask.scan_tags(FILES + [MISSING], partition_size=4, client=client)
        read = tags.compute()
        counts = kz_id3.dask.count_fields(tags).compute()
        assert counts == kz_id3.dask.count_fields(bag).compute()
        dataframe = kz_id3.dask.to_dataframe(tags)
        rows = dataframe.compute()
        assert kz_id3.dask.to_dataframe(bag).compute().equals(rows[:-1])
        shards = kz_id3.dask.index_shards(FILES, tmp_path, partition_size=8).compute()
    local = kz_id3.to_dataframe(kz_id3.read_many(FILES + [MISSING]))
    assert values(rows) == values(local)
    assert values(rows)[-1] == (MISSING, None, None, None, None, None, "No such file or directory")
    assert (list(local.index), dataframe.known_divisions) == (list(range(len(local))), True)
    assert list(rows.index[:3]) == [0, 1, 2] and rows.index[-1] // 2 ** 32 == len(FILES) // 4
    kz_id3.index.merge(tmp_path / "merged.db", shards)
    kz_id3.index.update(tmp_path / "fresh.db", FILES)
    assert contents(tmp_path / "merged.db") == contents(tmp_path / "fresh.db")
    assert [tags.as_dict() for tags in read[:-1]] == records(FILES)
    assert (type(read[-1]), read[-1].errno, read[-1].filename) == \
        (kz_id3.ReadError, errno.ENOENT, MISSING)
    assert counts == collections.Counter(f.ident for _, tags in kz_id3.read_many(FILES)
                                         for f in tags if f.kind == "field")


def test_patterns_and_directories_on_threads(tmp_path):
    pattern = str(ROOT / "samples" / "**" / "*.mp3")
    assert kz_id3.dask.scan(pattern).compute(scheduler="threads") == records(SAMPLES)
    (tmp_path / "a.mp3").write_bytes(tag(frame("TIT2", "A")))
    scanned = kz_id3.dask.scan([tmp_path, tmp_path / "none"]).compute(scheduler="threads")
    assert scanned == [
        {"path": f"{tmp_path}/a.mp3", "status": 0, "type": "ID3 Ver 2.x", "end": True,
         "fields": [{"tag": 1, "field": 118, "id": "TIT2", "text": "A", "id3v1": False}]},
        {"path": f"{tmp_path}/none", "error": "No such file or directory"}]
    with pytest.raises(ValueError, match="partition_size"):
        kz_id3.dask.scan(SAMPLES, partition_size=0)
    with pytest.raises(ValueError, match="file_type"):
        kz_id3.dask.scan_tags(SAMPLES, file_type=-5)


def test_local_frame_of_every_kind_of_result():
    table = kz_id3.to_dataframe([
        ("a.mp3", kz_id3.read_bytes(tag(frame("TIT2", "A"), frame("TPE1", "B")))),
        ("b.mp3", kz_id3.read_bytes(b"")),
        ("c.mp3", kz_id3.ReadError(errno.EACCES, "Permission denied", "c.mp3"))])
    assert list(table.columns) == list(kz_id3.dask.COLUMNS)
    assert values(table) == [("a.mp3", "TIT2", 118, None, "A", False, None),
                             ("a.mp3", "TPE1", 132, None, "B", False, None),
                             ("b.mp3", None, None, None, None, None, None),
                             ("c.mp3", None, None, None, None, None, "Permission denied")]
    assert (str(table.dtypes["number"]), str(table.dtypes["id3v1"])) == ("Int64", "boolean")
