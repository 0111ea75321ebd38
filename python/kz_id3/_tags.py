"""What a read gives: Tags, the fields of one file, and Field.

Tags holds the kit's packed result, one bytes object, and builds Field
objects only when they are asked for: most of a scan's cost with the GIL
held would otherwise be building objects nobody looks at.
"""

from __future__ import annotations

import struct
from typing import Any, Dict, Iterator, List, NamedTuple, Optional, Tuple, Union

# The packed layout of kz_host.h: native byte order, no padding.
_HEAD = struct.Struct("=IiHBB")   # item count, open status, file type, flags, type name length
_ITEM = struct.Struct("=BBBxIIII")  # kind, id3v1, ident length, tag, number, description, text lengths
_NO_DESCRIPTION = 0xFFFFFFFF
_END_SEEN, _TRUNCATED, _DETECTED = 1, 2, 4
_KINDS = ("field", "outside", "failure")

try:
    from . import _batch
except ImportError:  # built without a C compiler: parsed in Python
    _batch = None

# Open status of a file in which the module found nothing to read.
NOTHING_TO_READ = 51


class Field(NamedTuple):
    """One item the module delivered, in the order delivered.

    ``kind`` is ``"field"`` for a tag field, ``"outside"`` for text delivered
    outside every field (the involved people list) and ``"failure"`` for a
    failure the module reported (``tag`` then holds its code; 9: the ID3v1
    trailer could not be read whole).
    """

    kind: str
    #: The tag number the module gave the field.
    tag: int
    #: The field number: 118 for TIT2 and so on, 500 + n for TXXX/WXXX.
    number: int
    #: "TIT2", "TXXX", "WXXX", "TXXX/WXXX", "ID3v1 title", "field N"; "" for
    #: outside text and failures.
    ident: str
    #: The description of a user-defined field (TXXX, WXXX), else None.
    description: Optional[str]
    #: The value; a line break is "\n".
    text: str
    #: True for a field of the ID3v1 trailer.
    id3v1: bool

    def as_dict(self) -> Dict[str, Any]:
        """The field as an entry of ``kzdump --json``'s "fields" (without
        "codes" and "strings"), with "id3v1" added."""
        return _entry(*self)


def _entry(kind: str, tag: int, number: int, ident: str, description: Optional[str], text: str,
           id3v1: bool) -> Dict[str, Any]:
    if kind == "field":
        if description is None:
            return {"tag": tag, "field": number, "id": ident, "text": text, "id3v1": id3v1}
        return {"tag": tag, "field": number, "id": ident, "description": description,
                "text": text, "id3v1": id3v1}
    if kind == "outside":
        return {"outside": True, "text": text}
    return {"failure": tag}


# Identifiers as str, by their bytes: a few dozen in any collection (bounded
# all the same).
_IDENTS: Dict[bytes, str] = {}


class Tags:
    """The fields of one file (or buffer), as one read delivered them.

    Iterating gives :class:`Field` objects; ``len()`` is their number.
    ``tags.get("TIT2")`` is the text of the first TIT2 field.
    """

    __slots__ = ("path", "_packed", "_fields", "_only")

    def __init__(self, packed: bytes, path: Optional[str] = None,
                 only: Optional[frozenset] = None) -> None:
        #: The path read, or None when the input was bytes.
        self.path = path
        self._packed = packed
        self._fields: Optional[List[Field]] = None
        self._only = only

    # ---- File-level facts ----------------------------------------------------
    @property
    def status(self) -> int:
        """The module's open status: 0, or 51 when it found nothing to read."""
        return _HEAD.unpack_from(self._packed)[1]

    @property
    def file_type(self) -> int:
        """The file type identifier the file was opened with (1706 to 1715)."""
        return _HEAD.unpack_from(self._packed)[2]

    @property
    def type_name(self) -> str:
        """The type name the module gave, as "MPEG-1 audio - Layer 3, ID3v2.x"."""
        length = _HEAD.unpack_from(self._packed)[4]
        return self._packed[_HEAD.size:_HEAD.size + length].decode("utf-8", "replace")

    @property
    def end_seen(self) -> bool:
        """True when the module signalled the end of the file's content."""
        return bool(self._packed[10] & _END_SEEN)

    @property
    def truncated(self) -> bool:
        """True when a limit of the kit cut the file short."""
        return bool(self._packed[10] & _TRUNCATED)

    @property
    def type_detected(self) -> bool:
        """True when the file type came from the kit's detection."""
        return bool(self._packed[10] & _DETECTED)

    # ---- Fields -----------------------------------------------------------------
    @property
    def fields(self) -> List[Field]:
        """Every item delivered, in order (built on first use)."""
        if self._fields is None:
            self._fields = self._parse()
        return self._fields

    def _parse(self) -> List[Field]:
        new = tuple.__new__
        items = _batch.parse(self._packed, self._only, False) if _batch else self._items()
        return [new(Field, item) for item in items]

    def _items(self) -> Iterator[Tuple[str, int, int, str, Optional[str], str, bool]]:
        """The items of the packed result, as tuples in Field's order.  The
        hot loop of a scan that looks at every field: locals only."""
        data = self._packed
        count, _, _, _, name_length = _HEAD.unpack_from(data)
        offset = _HEAD.size + name_length
        only = self._only
        unpack = _ITEM.unpack_from
        item_size = _ITEM.size
        idents = _IDENTS
        for _ in range(count):
            kind, id3v1, ident_length, tag, number, description_length, text_length = \
                unpack(data, offset)
            offset += item_size
            key = data[offset:offset + ident_length]
            ident = idents.get(key)
            if ident is None:
                ident = key.decode("ascii", "replace")
                if len(idents) < 4096:
                    idents[key] = ident
            offset += ident_length
            description = None
            if description_length != _NO_DESCRIPTION:
                description = data[offset:offset + description_length].decode("utf-8", "replace")
                offset += description_length
            end = offset + text_length
            if only is None or ident in only or number in only:
                yield (_KINDS[kind] if kind < 3 else str(kind), tag, number, ident, description,
                       data[offset:end].decode("utf-8", "replace"), id3v1 != 0)
            offset = end

    def __iter__(self) -> Iterator[Field]:
        return iter(self.fields)

    def __len__(self) -> int:
        return len(self.fields)

    def __getitem__(self, index: int) -> Field:
        return self.fields[index]

    def get(self, ident: Union[str, int], default: Optional[str] = None) -> Optional[str]:
        """The text of the first field with this identifier (or field
        number), or ``default``."""
        for field in self.fields:
            if field.ident == ident or field.number == ident:
                return field.text
        return default

    def getall(self, ident: Union[str, int]) -> List[Field]:
        """Every field with this identifier (or field number), in order."""
        return [f for f in self.fields if f.ident == ident or f.number == ident]

    def as_dict(self) -> Dict[str, Any]:
        """The file as ``kzdump --json`` gives it: "path", "status", "type",
        "fields" and "end", JSON-ready.  The fields carry "id3v1" besides
        kzdump's keys, and leave out "codes" and "strings"."""
        if _batch:  # the whole record in one go
            return _batch.record(self._packed, self.path, self._only)
        items = self._fields if self._fields is not None else self._items()
        fields = [_entry(*item) for item in items]
        return {"path": self.path, "status": self.status, "type": self.type_name,
                "fields": fields, "end": self.end_seen}

    def _field_idents(self) -> List[str]:
        """The identifiers of the tag fields (not outside text or failures),
        in order: what counting fields needs, without their texts."""
        if _batch:
            return _batch.idents(self._packed, self._only)
        items = self._fields if self._fields is not None else self._items()
        return [item[3] for item in items if item[0] == "field"]

    def __reduce__(self) -> Tuple[Any, ...]:
        # Pickled as the packed result: about the size of the tag's text, and
        # no Field built on either side.
        return (Tags, (self._packed, self.path, self._only))

    def __repr__(self) -> str:
        return f"<Tags {self.path!r} {self.type_name!r}: {len(self.fields)} fields>"
