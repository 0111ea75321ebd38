#include "field_choice.h"

#include "text_escape.h"

#include <charconv>
#include <cstdio>
#include <map>

namespace kzdump {

namespace {

// Numbers from here on are user-defined fields (500 + the frame's number).
constexpr uint32_t kUserDefinedBase = 500;

// The ID3v1 fields, by the name after "ID3v1:" and the frame whose number
// they carry.
struct Id3v1Name {
    std::string_view name;
    const char* frame;
};
constexpr Id3v1Name kId3v1Names[] = {
    {"title", "TIT2"}, {"artist", "TPE1"}, {"album", "TALB"}, {"year", "TYER"},
    {"comment", "COMM"}, {"track", "TRCK"}, {"genre", "TCON"},
};

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

std::string Lowered(std::string_view text) {
    std::string lowered(text);
    for (char& c : lowered) c = Lower(c);
    return lowered;
}

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") + 1 - first);
}

uint32_t FrameNumber(const char* ident) {
    uint32_t number = 0;
    kz_host_frame_field(ident, &number);
    return number;
}

// A field number that exists; false for any other text.
bool ParseFieldNumber(std::string_view text, FieldChoice& choice) {
    uint32_t number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, ec] = std::from_chars(text.data(), end, number);
    if (text.empty() || ec != std::errc() || stop != end) return false;
    if (number < kUserDefinedBase && kz_host_field_ident(number) == nullptr) return false;
    choice.kind = FieldChoice::Kind::Number;
    choice.number = number;
    choice.name = std::to_string(number);
    return true;
}

// "ID3v1:title" or "ID3v1 title", in any case.
bool ParseId3v1(std::string_view text, FieldChoice& choice) {
    const std::string lowered = Lowered(text);
    if (!lowered.starts_with("id3v1:") && !lowered.starts_with("id3v1 ")) return false;
    for (const Id3v1Name& field : kId3v1Names) {
        if (lowered.substr(6) != field.name) continue;
        choice.kind = FieldChoice::Kind::Id3v1;
        choice.number = FrameNumber(field.frame);
        choice.name = "ID3v1:" + std::string(field.name);
        return true;
    }
    return false;
}

// A frame identifier in any case, with ":DESC" for TXXX and WXXX.
bool ParseFrame(std::string_view text, FieldChoice& choice) {
    const size_t colon = text.find(':');
    std::string ident(text.substr(0, colon));
    for (char& c : ident) c = Upper(c);
    uint32_t number = 0;
    if ((ident.size() != 3 && ident.size() != 4) || kz_host_frame_field(ident.c_str(), &number) != KZ_HOST_OK) {
        return false;
    }
    choice.name = ident;
    if (number != 0) {
        choice.kind = FieldChoice::Kind::Frame;
        choice.number = number;
        return colon == std::string_view::npos;
    }
    // The frames without a number of their own: IPLS, TXXX, WXXX.
    const char first = ident[0];
    if (first == 'I') {
        choice.kind = FieldChoice::Kind::Outside;
        return colon == std::string_view::npos;
    }
    choice.kind = FieldChoice::Kind::UserDefined;
    choice.ident = first == 'T' ? "TXXX" : "WXXX";
    if (colon != std::string_view::npos) {
        choice.described = true;
        choice.description = Lowered(text.substr(colon + 1));
        choice.name.append(text.substr(colon));
    }
    return true;
}

bool EqualIgnoringCase(std::string_view text, std::string_view lowered) {
    if (text.size() != lowered.size()) return false;
    for (size_t i = 0; i < text.size(); ++i)
        if (Lower(text[i]) != lowered[i]) return false;
    return true;
}

}  // namespace

bool FieldChoice::Takes(const kz_host_field& field) const {
    if (kind == Kind::Outside) return field.kind == KZ_HOST_ITEM_OUTSIDE;
    if (field.kind != KZ_HOST_ITEM_FIELD) return false;
    switch (kind) {
        case Kind::Number: return field.number == number;
        case Kind::Frame: return field.number == number && !field.id3v1;
        case Kind::Id3v1: return field.number == number && field.id3v1;
        default: break;
    }
    // The kit names a user-defined field TXXX, WXXX, or TXXX/WXXX when it
    // cannot tell which.
    const std::string_view fieldIdent = field.ident;
    if (field.number < kUserDefinedBase || (fieldIdent != ident && fieldIdent != "TXXX/WXXX")) return false;
    return !described || EqualIgnoringCase(TextOf(field.description, field.description_len), description);
}

bool ParseFieldList(std::string_view text, std::vector<FieldChoice>& fields, std::string& error) {
    for (size_t at = 0;;) {
        const size_t comma = text.find(',', at);
        const std::string_view name = Trimmed(text.substr(at, comma - at));
        FieldChoice choice;
        if (name.empty()) {
            error = "--fields has an empty name";
        } else if (!ParseFieldNumber(name, choice) && !ParseId3v1(name, choice) && !ParseFrame(name, choice)) {
            error = "--fields: unknown field '" + std::string(name) + "' (kzdump --list-fields lists them)";
        }
        if (!error.empty()) return false;
        fields.push_back(std::move(choice));
        if (comma == std::string_view::npos) return true;
        at = comma + 1;
    }
}

std::string FieldNames() {
    // The ID3v2.2 forms, found by asking the kit for every three-letter
    // identifier.
    std::map<uint32_t, std::string> shortForms;
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    char ident[4] = {};
    for (const char a : kLetters) {
        for (const char b : kLetters) {
            for (const char c : kLetters) {
                ident[0] = a, ident[1] = b, ident[2] = c;
                uint32_t number = 0;
                if (kz_host_frame_field(ident, &number) == KZ_HOST_OK && number != 0) shortForms[number] = ident;
            }
        }
    }
    std::string out = "Field numbers, frame identifiers with their ID3v2.2 forms, and labels:\n";
    for (uint32_t number = 0; number < kUserDefinedBase; ++number) {
        const char* name = kz_host_field_ident(number);
        if (name == nullptr) continue;
        const auto form = shortForms.find(number);
        char line[96];
        std::snprintf(line, sizeof line, "  %3u  %s  %-3s  %s\n", number, name,
                      form != shortForms.end() ? form->second.c_str() : "", kz_host_field_label(number));
        out += line;
    }
    out += "Frames without a number of their own:\n"
           "  IPLS  IPL  the involved people list, delivered outside every field\n"
           "  TXXX  TXX  user-defined text; TXXX:DESC chooses one by its description\n"
           "  WXXX  WXX  user-defined URL; WXXX:DESC chooses one by its description\n"
           "  500 and up: user-defined fields by number (500 + the frame's number)\n"
           "The ID3v1 trailer:\n ";
    for (const Id3v1Name& field : kId3v1Names) out += " ID3v1:" + std::string(field.name);
    out += "\n";
    return out;
}

}  // namespace kzdump
