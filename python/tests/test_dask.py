import collections

import pytest

import kz_id3
from conftest import FILES, ROOT, SAMPLES
from test_index import contents

distributed = pytest.importorskip("distributed")
import kz_id3.dask  # noqa: E402  (after the skip: needs Dask)


def records(paths):
    return [tags.as_dict() for _, tags in kz_id3.read_many(paths, workers=2)]


def test_scan_on_local_cluster_equals_read_many(tmp_path):
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as cluster, \
            distributed.Client(cluster) as client:
        bag = kz_id3.dask.scan(FILES, partition_size=4, client=client)
        assert bag.compute() == records(FILES)
        rows = kz_id3.dask.to_dataframe(bag).compute()
        tags = kz_id3.dask.scan_tags(FILES + [str(ROOT / "missing.mp3")], partition_size=4,
                                     client=client)
        read = tags.compute()
        counts = kz_id3.dask.count_fields(tags).compute()
        assert counts == kz_id3.dask.count_fields(bag).compute()
        assert kz_id3.dask.to_dataframe(tags).compute().equals(rows)
        shards = kz_id3.dask.index_shards(FILES, tmp_path, partition_size=8).compute()
    kz_id3.index.merge(tmp_path / "merged.db", shards)
    kz_id3.index.update(tmp_path / "fresh.db", FILES)
    assert contents(tmp_path / "merged.db") == contents(tmp_path / "fresh.db")
    assert list(rows.itertuples(index=False, name=None)) == [
        (path, f.ident, f.number, f.description, f.text, f.id3v1)
        for path, tags in kz_id3.read_many(FILES) for f in tags if f.kind == "field"]
    assert [tags.as_dict() for tags in read[:-1]] == records(FILES)
    assert isinstance(read[-1], kz_id3.ReadError) and read[-1].filename.endswith("missing.mp3")
    assert counts == collections.Counter(f.ident for _, tags in kz_id3.read_many(FILES)
                                         for f in tags if f.kind == "field")
    pattern = str(ROOT / "samples" / "*.mp3")
    assert kz_id3.dask.scan(pattern).compute(scheduler="threads") == records(SAMPLES)
