#include "render.h"

#include "field_names.h"
#include "kz_id3.h"

#include <charconv>

namespace kzdump {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char kHexDigits[] = "0123456789ABCDEF";


void AppendUtf8(char32_t cp, std::string& out) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

bool IsControl(char32_t cp) { return cp < 0x20 || (cp >= 0x7F && cp <= 0x9F); }

// Characters that print as nothing or break lines in some terminals.
bool IsInvisible(char32_t cp) {
    return cp == 0xFEFF || cp == 0x2028 || cp == 0x2029 || cp == 0xFFFE || cp == 0xFFFF;
}

bool IsSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// One decoded step of a code range.
struct Token {
    enum class Kind : uint8_t { Char, Special, StringBegin, StringEnd };
    Kind kind;
    char32_t value;
};

// Walks entries [begin, end) of the codes, joining UTF-16 surrogate pairs;
// a lone half becomes U+FFFD.  Calls visit(Token) for each step.
template <typename Visit>
void Decode(const std::vector<uint32_t>& codes, size_t begin, size_t end, Visit&& visit) {
    uint32_t pendingHigh = 0;
    for (size_t i = begin; i < end; ++i) {
        const uint32_t entry = codes[i];
        const uint32_t code = entry & kCodeMask;
        const bool isUnit = (entry & ~(kCodeMask | kUtf16Flag)) == 0;
        const bool utf16 = isUnit && (entry & kUtf16Flag) != 0;
        if (pendingHigh != 0) {
            if (utf16 && code >= 0xDC00 && code <= 0xDFFF) {
                visit(Token{Token::Kind::Char,
                            static_cast<char32_t>(0x10000 + ((pendingHigh - 0xD800) << 10) +
                                                  (code - 0xDC00))});
                pendingHigh = 0;
                continue;
            }
            visit(Token{Token::Kind::Char, kReplacement});
            pendingHigh = 0;
        }
        if (isUnit) {
            if (utf16 && code >= 0xD800 && code <= 0xDBFF) {
                pendingHigh = code;
            } else {
                visit(Token{Token::Kind::Char, IsSurrogate(code) ? kReplacement : code});
            }
        } else if ((entry & kSpecialFlag) != 0) {
            visit(Token{Token::Kind::Special, code});
        } else if (entry == kStringBegin) {
            visit(Token{Token::Kind::StringBegin, 0});
        } else {
            visit(Token{Token::Kind::StringEnd, 0});
        }
    }
    if (pendingHigh != 0) visit(Token{Token::Kind::Char, kReplacement});
}

// Text form of a value: a space before the first character, escapes, and
// line breaks continued on an indented line.
class TextValue {
public:
    TextValue(std::string& out, bool leadingSpace) : out_(out), leadPending_(leadingSpace) {}

    void Char(char32_t cp, bool quoted) {
        Lead();
        if (cp > U' ' && cp < 0x7F && cp != U'\\' && cp != U'"') {
            out_.push_back(static_cast<char>(cp));
        } else if (cp == U'\\') {
            out_ += "\\\\";
        } else if (quoted && cp == U'"') {
            out_ += "\\\"";
        } else if (IsControl(cp)) {
            out_ += "\\x";
            AppendHex(cp, 2, out_);
        } else if (IsInvisible(cp)) {
            out_ += "\\u";
            AppendHex(cp, 4, out_);
        } else {
            AppendUtf8(cp, out_);
        }
    }
    void Special(uint32_t code) {
        if (code == kLineBreakSpecial) {
            out_ += "\n    ";
            leadPending_ = false;
            return;
        }
        Lead();
        out_ += "\\special(";
        AppendNumber(code, out_);
        out_ += ")";
    }
    void Raw(std::string_view text) {
        Lead();
        out_ += text;
    }

private:
    void Lead() {
        if (leadPending_) out_.push_back(' ');
        leadPending_ = false;
    }
    std::string& out_;
    bool leadPending_;
};

// The first string tag inside an item: [begin, end) with its markers,
// [contentBegin, contentEnd) without; all at the item's end when there is
// none.
struct Span {
    size_t begin;
    size_t end;
    size_t contentBegin;
    size_t contentEnd;
    bool Empty() const { return begin == end; }
};

Span NoString(const Item& item) { return Span{item.end, item.end, item.end, item.end}; }

Span FirstString(const std::vector<uint32_t>& codes, const Item& item) {
    for (size_t i = item.begin; i < item.end; ++i) {
        if (codes[i] != kStringBegin) continue;
        size_t j = i + 1;
        while (j < item.end && codes[j] != kStringEnd) ++j;
        return Span{i, j < item.end ? j + 1 : j, i + 1, j};
    }
    return NoString(item);
}

std::string_view UserDefinedId(const Item& item) {
    if (item.valueUtf16) return "TXXX";
    if (item.descriptionUtf16) return "WXXX";
    return "TXXX/WXXX";
}

bool IsUserDefined(const Item& item) {
    return item.kind == Item::Kind::Field && !item.trailer &&
           item.fieldNumber >= kUserDefinedFieldBase;
}

// The identifier shown for a field (without a user-defined description).
void AppendFieldId(const Item& item, std::string& out) {
    if (item.trailer) {
        const std::string_view name = Id3v1NameOfField(item.fieldNumber);
        if (!name.empty()) {
            out += "ID3v1 ";
            out += name;
            return;
        }
    }
    if (IsUserDefined(item)) {
        out += UserDefinedId(item);
        return;
    }
    const std::string_view id = FrameIdOfField(item.fieldNumber);
    if (!id.empty()) {
        out += id;
        return;
    }
    out += "field ";
    AppendNumber(item.fieldNumber, out);
}

// Renders codes [begin, end) as a text value, skipping `skip`, strings shown
// in place as [text].
void RenderTextRange(const std::vector<uint32_t>& codes, size_t begin, size_t end, Span skip,
                     TextValue& value) {
    auto visit = [&](const Token& token) {
        switch (token.kind) {
            case Token::Kind::Char: value.Char(token.value, false); break;
            case Token::Kind::Special: value.Special(token.value); break;
            case Token::Kind::StringBegin: value.Raw("["); break;
            case Token::Kind::StringEnd: value.Raw("]"); break;
        }
    };
    Decode(codes, begin, skip.begin, visit);
    Decode(codes, skip.end, end, visit);
}

void AppendJsonChar(char32_t cp, std::string& out) {
    switch (cp) {
        case U'"': out += "\\\""; return;
        case U'\\': out += "\\\\"; return;
        case U'\n': out += "\\n"; return;
        case U'\t': out += "\\t"; return;
        case U'\r': out += "\\r"; return;
        default: break;
    }
    // Control and invisible characters escaped: a line stays printable.
    if (IsControl(cp) || IsInvisible(cp)) {
        out += "\\u";
        AppendHex(cp, 4, out);
        return;
    }
    AppendUtf8(cp, out);
}

// "text" and "codes" members of codes [begin, end), strings excluded.
void RenderJsonValue(const std::vector<uint32_t>& codes, size_t begin, size_t end,
                     std::string& out) {
    out += "\"text\":\"";
    int depth = 0;
    Decode(codes, begin, end, [&](const Token& token) {
        switch (token.kind) {
            case Token::Kind::Char:
                if (depth == 0) AppendJsonChar(token.value, out);
                break;
            case Token::Kind::Special:
                if (depth == 0 && token.value == kLineBreakSpecial) out += "\\n";
                break;
            case Token::Kind::StringBegin: ++depth; break;
            case Token::Kind::StringEnd: depth = depth > 0 ? depth - 1 : 0; break;
        }
    });
    out += "\",\"codes\":[";
    bool first = true;
    depth = 0;
    for (size_t i = begin; i < end; ++i) {
        const uint32_t entry = codes[i];
        if (entry == kStringBegin) {
            ++depth;
            continue;
        }
        if (entry == kStringEnd) {
            depth = depth > 0 ? depth - 1 : 0;
            continue;
        }
        if (depth != 0) continue;
        if (!first) out.push_back(',');
        first = false;
        const int64_t code = entry & kCodeMask;
        AppendNumber((entry & kSpecialFlag) != 0 ? -code : code, out);
    }
    out += "]";
}

// The "strings" member: every string tag in the item, in order.
void RenderJsonStrings(const FileRecord& record, const Item& item, std::string& out) {
    const std::vector<uint32_t>& codes = record.Codes();
    size_t stringIndex = item.firstString;
    out += "\"strings\":[";
    bool first = true;
    for (size_t i = item.begin; i < item.end; ++i) {
        if (codes[i] != kStringBegin) continue;
        size_t j = i + 1;
        while (j < item.end && codes[j] != kStringEnd) ++j;
        if (!first) out.push_back(',');
        first = false;
        out += "{\"tag\":";
        const uint32_t tag =
            stringIndex < record.StringTags().size() ? record.StringTags()[stringIndex] : 0;
        ++stringIndex;
        AppendNumber(tag, out);
        out.push_back(',');
        RenderJsonValue(codes, i + 1, j, out);
        out.push_back('}');
        i = j;
    }
    out += "]";
}

// Length of the UTF-8 sequence at text[i], or 0 when it is not valid UTF-8.
size_t Utf8Length(std::string_view text, size_t i, char32_t& cp) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    size_t length = 0;
    if (lead < 0x80) {
        cp = lead;
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        cp = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        cp = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (byte(i + k) & 0x3F);
    }
    const bool overlong = (length == 3 && cp < 0x800) || (length == 4 && cp < 0x10000);
    if (overlong || cp > 0x10FFFF || IsSurrogate(cp)) return 0;
    return length;
}

}  // namespace

void AppendNumber(int64_t value, std::string& out) {
    char buffer[24];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, end);
}

void AppendHex(uint32_t value, int digits, std::string& out) {
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
        out.push_back(kHexDigits[(value >> shift) & 0xF]);
    }
}

void AppendPrintable(std::string_view text, std::string& out) {
    for (size_t i = 0; i < text.size();) {
        char32_t cp = 0;
        const size_t length = Utf8Length(text, i, cp);
        if (length == 0 || IsControl(cp)) {
            out += "\\x";
            AppendHex(static_cast<unsigned char>(text[i]), 2, out);
            ++i;
            continue;
        }
        out.append(text.substr(i, length));
        i += length;
    }
}

void AppendJsonString(std::string_view text, std::string& out) {
    out.push_back('"');
    for (size_t i = 0; i < text.size();) {
        char32_t cp = 0;
        const size_t length = Utf8Length(text, i, cp);
        AppendJsonChar(length == 0 ? kReplacement : cp, out);
        i += length == 0 ? 1 : length;
    }
    out.push_back('"');
}

void RenderText(const FileHeader& header, const FileRecord& record, std::string& out) {
    AppendPrintable(header.path, out);
    out += ": ";
    if (header.typeName.empty()) {
        out += "type ";
        AppendNumber(header.fileType, out);
    } else {
        AppendPrintable(header.typeName, out);
    }
    if (header.openStatus == VW_OPEN_NOTHING_TO_READ) {
        out += ": no tags";
    } else if (header.openStatus != VW_OPEN_OK) {
        out += ": no tags (open status ";
        AppendNumber(header.openStatus, out);
        out += ")";
    }
    out.push_back('\n');

    const std::vector<uint32_t>& codes = record.Codes();
    for (const Item& item : record.Items()) {
        out += "  ";
        if (item.kind == Item::Kind::Failure) {
            out += "(failure ";
            AppendNumber(item.tag, out);
            out += " reported by the module)\n";
            continue;
        }
        Span skip = NoString(item);
        if (item.kind == Item::Kind::Outside) {
            out += "(outside any field)";
        } else {
            AppendFieldId(item, out);
            if (IsUserDefined(item)) skip = FirstString(codes, item);
            if (!skip.Empty()) {
                out += " \"";
                // A label stays on its line: a line break shows as \n.
                TextValue description(out, false);
                Decode(codes, skip.contentBegin, skip.contentEnd, [&](const Token& token) {
                    if (token.kind == Token::Kind::Char) description.Char(token.value, true);
                    if (token.kind == Token::Kind::Special) description.Raw("\\n");
                });
                out += "\"";
            }
        }
        out += ":";
        TextValue value(out, true);
        RenderTextRange(codes, item.begin, item.end, skip, value);
        out.push_back('\n');
    }
}

void RenderJson(const FileHeader& header, const FileRecord& record, std::string& out) {
    out += "{\"path\":";
    AppendJsonString(header.path, out);
    out += ",\"status\":";
    AppendNumber(header.openStatus, out);
    out += ",\"type\":";
    AppendJsonString(header.typeName, out);
    out += ",\"fields\":[";
    const std::vector<uint32_t>& codes = record.Codes();
    bool first = true;
    for (const Item& item : record.Items()) {
        if (!first) out.push_back(',');
        first = false;
        switch (item.kind) {
            case Item::Kind::Failure:
                out += "{\"failure\":";
                AppendNumber(item.tag, out);
                out += "}";
                continue;
            case Item::Kind::Outside:
                out += "{\"outside\":true,";
                RenderJsonValue(codes, item.begin, item.end, out);
                out += "}";
                continue;
            case Item::Kind::Field: break;
        }
        out += "{\"tag\":";
        AppendNumber(item.tag, out);
        out += ",\"field\":";
        AppendNumber(item.fieldNumber, out);
        out += ",\"id\":\"";
        AppendFieldId(item, out);
        out += "\",";
        const Span description =
            IsUserDefined(item) ? FirstString(codes, item) : NoString(item);
        if (!description.Empty()) {
            out += "\"description\":\"";
            Decode(codes, description.contentBegin, description.contentEnd,
                   [&](const Token& token) {
                if (token.kind == Token::Kind::Char) AppendJsonChar(token.value, out);
                if (token.kind == Token::Kind::Special && token.value == kLineBreakSpecial) {
                    out += "\\n";
                }
            });
            out += "\",";
        }
        RenderJsonValue(codes, item.begin, item.end, out);
        out.push_back(',');
        RenderJsonStrings(record, item, out);
        out += "}";
    }
    out += "],\"end\":";
    out += header.endSeen ? "true" : "false";
    out += "}\n";
}

void RenderJsonError(std::string_view path, std::string_view reason, std::string& out) {
    out += "{\"path\":";
    AppendJsonString(path, out);
    out += ",\"error\":";
    AppendJsonString(reason, out);
    out += "}\n";
}

}  // namespace kzdump
