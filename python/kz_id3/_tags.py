"""What a read gives: Tags, the fields of one file, and Field.

Tags holds the kit's packed result (its layout is in kz_host.h), one bytes
object, and builds Field objects only when they are asked for: most of a
scan's cost would otherwise be building objects nobody looks at.  This
module is the one place that reads the packed layout.
"""

from __future__ import annotations

import base64
import os
import re
import struct
from typing import (Any, Dict, Iterator, List, NamedTuple, Optional, Tuple, Union)

# The packed layout of kz_host.h: native byte order, no padding.
_HEAD = struct.Struct("=IiHBB")   # item count, open status, file type, flags, type name length
_ITEM = struct.Struct("=BBBxIIII")  # kind, id3v1, ident length, tag, number, description, text lengths
_NO_DESCRIPTION = 0xFFFFFFFF
_END_SEEN, _TRUNCATED, _DETECTED, _AUDIO = 1, 2, 4, 8
_FLAGS_AT = 10
_KINDS = ("field", "outside", "failure")

# Open status of a file in which the module found nothing to read.
NOTHING_TO_READ = 51

Path = Union[str, bytes]


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
        if self.kind == "field":
            entry: Dict[str, Any] = {"tag": self.tag, "field": self.number, "id": self.ident}
            if self.description is not None:
                entry["description"] = self.description
            entry["text"] = self.text
            entry["id3v1"] = self.id3v1
            return entry
        if self.kind == "outside":
            return {"outside": True, "text": self.text}
        return {"failure": self.tag}


Field.__module__ = "kz_id3"


def split_key(key: str) -> Tuple[str, Optional[str]]:
    """An identifier and the description it names: "TXXX:MusicBrainz Album
    Id" is TXXX with that description (as mutagen writes such keys); a key
    without a colon names no description."""
    ident, colon, description = key.partition(":")
    return (ident, description) if colon else (key, None)


# The identifier the kit gives a user-defined field whose frame it cannot
# tell (the module numbers TXXX and WXXX fields alike).
USER_DEFINED = "TXXX/WXXX"


def idents_of(ident: str) -> Tuple[str, ...]:
    """The identifiers a key's identifier matches: TXXX and WXXX match
    "TXXX/WXXX" too."""
    return (ident, USER_DEFINED) if ident in ("TXXX", "WXXX") else (ident,)


def _matches(field: Field, key: Union[str, int]) -> bool:
    if isinstance(key, int):
        return field.number == key and field.kind == "field"
    ident, description = split_key(key)
    return field.ident in idents_of(ident) and field.kind == "field" and (
        description is None or field.description == description)


# Identifiers as str, by their bytes: a few dozen in any collection (bounded
# all the same).
_IDENTS: Dict[bytes, str] = {}


class Tags:
    """The fields of one file (or buffer), as one read delivered them.

    A sequence of :class:`Field`: iterating gives them in file order,
    ``len()`` is their number and ``tags[0]`` the first.  By identifier:
    ``tags["TIT2"]`` is the list of the texts of every TIT2 field (a
    ``KeyError`` when there is none), ``tags["TXXX:description"]`` those of
    the user-defined fields with that description, ``"TIT2" in tags`` tells
    whether there is one, ``tags.get("TIT2")`` is the first text or None.
    Two ``Tags`` are equal when they hold the same fields and file-level
    facts, wherever they were read from.
    """

    __slots__ = ("path", "_packed", "_fields", "_only")

    def __init__(self, packed: bytes, path: Optional[Path] = None,
                 only: Optional[frozenset] = None) -> None:
        #: The path read, as given (str or bytes), or None when the input
        #: was a buffer or a file object.
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

    def _flag(self, flag: int) -> bool:
        return bool(self._packed[_FLAGS_AT] & flag)

    @property
    def end_seen(self) -> bool:
        """True when the module signalled the end of the file's content."""
        return self._flag(_END_SEEN)

    @property
    def truncated(self) -> bool:
        """True when a limit of the kit cut the file short."""
        return self._flag(_TRUNCATED)

    @property
    def type_detected(self) -> bool:
        """True when the file type came from the kit's detection."""
        return self._flag(_DETECTED)

    @property
    def audio(self) -> bool:
        """True when type detection found an MPEG audio frame (False when
        it found none, or when the type was given)."""
        return self._flag(_AUDIO)

    # ---- Fields -----------------------------------------------------------------
    @property
    def fields(self) -> List[Field]:
        """Every item delivered, in order (built on first use)."""
        if self._fields is None:
            new = tuple.__new__
            self._fields = [new(Field, item) for item in self._items()]
        return self._fields

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

    def __getitem__(self, key: Union[int, str]) -> Any:
        if isinstance(key, str):
            texts = [field.text for field in self.fields if _matches(field, key)]
            if not texts:
                raise KeyError(key)
            return texts
        return self.fields[key]

    def __contains__(self, key: object) -> bool:
        if isinstance(key, (str, int)):
            return any(_matches(field, key) for field in self.fields)
        return key in self.fields

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Tags):
            return NotImplemented
        return self._facts() == other._facts() and self.fields == other.fields

    __hash__ = None  # type: ignore[assignment]

    def _facts(self) -> Tuple[Any, ...]:
        return _HEAD.unpack_from(self._packed)[1:3] + (self.type_name,
                                                       self._packed[_FLAGS_AT])

    def get(self, key: Union[str, int], default: Optional[str] = None) -> Optional[str]:
        """The text of the first field with this identifier ("TIT2",
        "TXXX:description") or field number, or ``default``."""
        for field in self.fields:
            if _matches(field, key):
                return field.text
        return default

    def getall(self, key: Union[str, int]) -> List[Field]:
        """Every field with this identifier ("TIT2", "TXXX:description") or
        field number, in order."""
        return [field for field in self.fields if _matches(field, key)]

    def as_dict(self) -> Dict[str, Any]:
        """The file as ``kzdump --json`` gives it: "path" (see
        :func:`json_path`: None for a buffer), "status", "type", "fields" and
        "end", JSON-ready.  The fields carry "id3v1" besides kzdump's keys,
        and leave out "codes" and "strings"."""
        record: Dict[str, Any] = json_path(self.path) if self.path is not None else {"path": None}
        record.update(status=self.status, type=self.type_name,
                      fields=[field.as_dict() for field in self.fields], end=self.end_seen)
        return record

    def field_idents(self) -> List[str]:
        """The identifiers of the tag fields (not outside text or failures),
        in order: what counting fields needs."""
        return [field.ident for field in self.fields if field.kind == "field"]

    def __reduce__(self) -> Tuple[Any, ...]:
        # Pickled as the packed result: about the size of the tag's text, and
        # no Field built on either side.
        return (Tags, (self._packed, self.path, self._only))

    def __repr__(self) -> str:
        return f"<Tags {self.path!r} {self.type_name!r}: {len(self.fields)} fields>"


Tags.__module__ = "kz_id3"


def json_path(path: Path) -> Dict[str, str]:
    """A path as kzdump --json gives it: {"path": the path as UTF-8}, and
    when its bytes are not UTF-8, U+FFFD for each byte that is not and
    "path_base64" with the exact bytes."""
    raw = os.fsencode(path)
    try:
        return {"path": raw.decode("utf-8")}
    except UnicodeDecodeError:
        replaced = _ESCAPED_BYTE.sub("\ufffd", raw.decode("utf-8", "surrogateescape"))
        return {"path": replaced, "path_base64": base64.b64encode(raw).decode("ascii")}


_ESCAPED_BYTE = re.compile("[\udc80-\udcff]")
_BATCH_ENTRY = struct.Struct("=iiI")  # status, errno, packed size


def split_batch(buffer: bytes) -> Iterator[Tuple[int, int, Optional[bytes]]]:
    """The entries of a kz_host_collect_files buffer: (status, errno,
    packed result or None), in order."""
    offset = 0
    end = len(buffer)
    unpack = _BATCH_ENTRY.unpack_from
    while offset < end:
        status, error, size = unpack(buffer, offset)
        offset += 12
        yield status, error, (buffer[offset:offset + size] if size else None)
        offset += size
