"""Tables of fields for pandas: the one shape of kz_id3.to_dataframe and
kz_id3.dask.to_dataframe."""

from __future__ import annotations

from typing import Any, Iterable, List, Tuple

import pandas

from ._errors import reason
from ._tags import Tags

#: The columns, one row per field.
COLUMNS = ("path", "ident", "number", "description", "text", "id3v1", "error")
_DTYPES = {"number": "Int64", "id3v1": "boolean"}


def rows(results: Iterable[Tuple[Any, Any]]) -> List[Tuple[Any, ...]]:
    """The rows of ``(path, result)`` pairs, the result a Tags, an exception
    or a record of Tags.as_dict() ({"path", "error"} for a file that could
    not be read).  A tag field is a row; a file with none is one row whose
    field columns are missing, and a file that could not be read one row
    with its error."""
    made: List[Tuple[Any, ...]] = []
    for path, result in results:
        if isinstance(result, Tags):
            fields = [(path, f.ident, f.number, f.description, f.text, f.id3v1, None)
                      for f in result if f.kind == "field"]
            made.extend(fields or [(path, None, None, None, None, None, None)])
        elif isinstance(result, BaseException):
            made.append((path, None, None, None, None, None, reason(result)))
        elif "error" in result:
            made.append((path, None, None, None, None, None, result["error"]))
        else:
            fields = [(path, f["id"], f["field"], f.get("description"), f["text"], f["id3v1"], None)
                      for f in result["fields"] if "id" in f]
            made.extend(fields or [(path, None, None, None, None, None, None)])
    return made


def frame(results: Iterable[Tuple[Any, Any]], first_row: int = 0) -> pandas.DataFrame:
    """The DataFrame of :func:`rows`, its index counting from ``first_row``."""
    made = rows(results)
    table = pandas.DataFrame.from_records(made, columns=COLUMNS)
    table.index = pandas.RangeIndex(first_row, first_row + len(made))
    return table.astype(_DTYPES)
