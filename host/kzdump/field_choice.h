// The fields chosen by --fields, and the names --list-fields lists.
#ifndef KZDUMP_FIELD_CHOICE_H
#define KZDUMP_FIELD_CHOICE_H

#include "kz_host.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kzdump {

// One name of --fields: a field number, a frame identifier (its ID3v2.2
// form too), an ID3v1 field, or a user-defined field by its description.
struct FieldChoice {
    enum class Kind {
        Number,       // every field of that number, ID3v2 and ID3v1
        Frame,        // the ID3v2 fields of that number
        Id3v1,        // the ID3v1 field of that number
        Outside,      // IPLS: the text delivered outside every field
        UserDefined,  // TXXX or WXXX (`ident`), by `description` when given
    };
    std::string name;  // as the column header shows it
    Kind kind = Kind::Number;
    uint32_t number = 0;
    std::string ident;        // UserDefined: "TXXX" or "WXXX"
    std::string description;  // UserDefined: lower case; empty: any
    bool described = false;   // UserDefined: a description was given

    bool Takes(const kz_host_field& field) const;
};

// Comma-separated names, spaces around each ignored, identifiers and ID3v1
// names in any case.  False, with the reason, for an empty list or entry and
// for a name that is no field.
bool ParseFieldList(std::string_view text, std::vector<FieldChoice>& fields, std::string& error);

// Every name --fields takes, for --list-fields.
std::string FieldNames();

}  // namespace kzdump

#endif  // KZDUMP_FIELD_CHOICE_H
