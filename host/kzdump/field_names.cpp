#include "field_names.h"

#include "kz_id3.h"

#include <array>

namespace kzdump {

namespace {

struct NamedField {
    uint32_t number;
    std::string_view id;
};

constexpr NamedField kFrameFields[] = {
    {KZ_FIELD_AENC, "AENC"}, {KZ_FIELD_APIC, "APIC"}, {KZ_FIELD_ASPI, "ASPI"},
    {KZ_FIELD_COMM, "COMM"}, {KZ_FIELD_COMR, "COMR"}, {KZ_FIELD_ENCR, "ENCR"},
    {KZ_FIELD_EQUA, "EQUA"}, {KZ_FIELD_EQU2, "EQU2"}, {KZ_FIELD_ETCO, "ETCO"},
    {KZ_FIELD_GEOB, "GEOB"}, {KZ_FIELD_GRID, "GRID"}, {KZ_FIELD_LINK, "LINK"},
    {KZ_FIELD_MLLT, "MLLT"}, {KZ_FIELD_OWNE, "OWNE"}, {KZ_FIELD_PRIV, "PRIV"},
    {KZ_FIELD_PCNT, "PCNT"}, {KZ_FIELD_POPM, "POPM"}, {KZ_FIELD_POSS, "POSS"},
    {KZ_FIELD_RBUF, "RBUF"}, {KZ_FIELD_RVAD, "RVAD"}, {KZ_FIELD_RVA2, "RVA2"},
    {KZ_FIELD_RVRB, "RVRB"}, {KZ_FIELD_SEEK, "SEEK"}, {KZ_FIELD_SYLT, "SYLT"},
    {KZ_FIELD_TALB, "TALB"}, {KZ_FIELD_TBPM, "TBPM"}, {KZ_FIELD_TCOM, "TCOM"},
    {KZ_FIELD_TCON, "TCON"}, {KZ_FIELD_TCOP, "TCOP"}, {KZ_FIELD_TDAT, "TDAT"},
    {KZ_FIELD_TDLY, "TDLY"}, {KZ_FIELD_TENC, "TENC"}, {KZ_FIELD_TEXT, "TEXT"},
    {KZ_FIELD_TFLT, "TFLT"}, {KZ_FIELD_TIME, "TIME"}, {KZ_FIELD_TIPL, "TIPL"},
    {KZ_FIELD_TIT1, "TIT1"}, {KZ_FIELD_TIT2, "TIT2"}, {KZ_FIELD_TIT3, "TIT3"},
    {KZ_FIELD_TKEY, "TKEY"}, {KZ_FIELD_TLAN, "TLAN"}, {KZ_FIELD_TLEN, "TLEN"},
    {KZ_FIELD_TMCL, "TMCL"}, {KZ_FIELD_TMOO, "TMOO"}, {KZ_FIELD_TMED, "TMED"},
    {KZ_FIELD_TOAL, "TOAL"}, {KZ_FIELD_TOFN, "TOFN"}, {KZ_FIELD_TOLY, "TOLY"},
    {KZ_FIELD_TOPE, "TOPE"}, {KZ_FIELD_TORY, "TORY"}, {KZ_FIELD_TOWN, "TOWN"},
    {KZ_FIELD_TPE1, "TPE1"}, {KZ_FIELD_TPE2, "TPE2"}, {KZ_FIELD_TPE3, "TPE3"},
    {KZ_FIELD_TPE4, "TPE4"}, {KZ_FIELD_TPOS, "TPOS"}, {KZ_FIELD_TPRO, "TPRO"},
    {KZ_FIELD_TPUB, "TPUB"}, {KZ_FIELD_TRCK, "TRCK"}, {KZ_FIELD_TRDA, "TRDA"},
    {KZ_FIELD_TRSN, "TRSN"}, {KZ_FIELD_TRSO, "TRSO"}, {KZ_FIELD_TSIZ, "TSIZ"},
    {KZ_FIELD_TSRC, "TSRC"}, {KZ_FIELD_TSOA, "TSOA"}, {KZ_FIELD_TSOP, "TSOP"},
    {KZ_FIELD_TSOT, "TSOT"}, {KZ_FIELD_TSSE, "TSSE"}, {KZ_FIELD_TSST, "TSST"},
    {KZ_FIELD_TYER, "TYER"}, {KZ_FIELD_UFID, "UFID"}, {KZ_FIELD_USER, "USER"},
    {KZ_FIELD_USLT, "USLT"}, {KZ_FIELD_WCOM, "WCOM"}, {KZ_FIELD_WCOP, "WCOP"},
    {KZ_FIELD_WOAF, "WOAF"}, {KZ_FIELD_WOAR, "WOAR"}, {KZ_FIELD_WOAS, "WOAS"},
    {KZ_FIELD_WORS, "WORS"}, {KZ_FIELD_WPAY, "WPAY"}, {KZ_FIELD_WPUB, "WPUB"},
};

// Indexed by field number, so a lookup is one load.
constexpr auto kFrameIdByNumber = [] {
    std::array<std::string_view, KZ_FIELD_LAST + 1> table{};
    for (const NamedField& field : kFrameFields) table[field.number] = field.id;
    return table;
}();

constexpr NamedField kId3v1Fields[] = {
    {KZ_FIELD_TIT2, "title"},   {KZ_FIELD_TPE1, "artist"}, {KZ_FIELD_TALB, "album"},
    {KZ_FIELD_TYER, "year"},    {KZ_FIELD_COMM, "comment"}, {KZ_FIELD_TRCK, "track"},
    {KZ_FIELD_TCON, "genre"},
};

}  // namespace

std::string_view FrameIdOfField(uint32_t fieldNumber) {
    return fieldNumber < kFrameIdByNumber.size() ? kFrameIdByNumber[fieldNumber]
                                                 : std::string_view();
}

std::string_view Id3v1NameOfField(uint32_t fieldNumber) {
    for (const NamedField& field : kId3v1Fields) {
        if (field.number == fieldNumber) return field.id;
    }
    return {};
}

}  // namespace kzdump
