#include "render.h"


#include <array>
#include <charconv>

namespace kzdump {

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char kHexDigits[] = "0123456789ABCDEF";
// Input bytes rendered between two chances for the owner to drain.
constexpr size_t kPiece = 64 * 1024;

void AppendNumber(int64_t value, std::string& out) {
    char buffer[24];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, end);
}

// `digits` upper-case hexadecimal digits of `value`.
void AppendHex(uint32_t value, int digits, std::string& out) {
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
        out.push_back(kHexDigits[(value >> shift) & 0xF]);
    }
}

bool IsControl(char32_t cp) { return cp < 0x20 || (cp >= 0x7F && cp <= 0x9F); }

// Characters that print as nothing or break lines in some terminals.
bool IsInvisible(char32_t cp) {
    return cp == 0xFEFF || cp == 0x2028 || cp == 0x2029 || cp == 0xFFFE || cp == 0xFFFF;
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
    if (overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return length;
}

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

// The bytes that go out as they are in each kind of text: one lookup a byte
// while a run lasts.
using ByteSet = std::array<bool, 256>;

template <typename Plain>
constexpr ByteSet MakeByteSet(Plain plain) {
    ByteSet set{};
    for (int b = 0; b < 256; ++b) set[static_cast<size_t>(b)] = plain(static_cast<unsigned char>(b));
    return set;
}

constexpr bool IsPrintableAscii(unsigned char b) { return b >= 0x20 && b < 0x7F; }
constexpr ByteSet kPrintable = MakeByteSet(IsPrintableAscii);
constexpr ByteSet kTextPlain = MakeByteSet([](unsigned char b) { return IsPrintableAscii(b) && b != '\\'; });
constexpr ByteSet kQuotedPlain =
    MakeByteSet([](unsigned char b) { return IsPrintableAscii(b) && b != '\\' && b != '"'; });
constexpr ByteSet kAscii = MakeByteSet([](unsigned char b) { return b < 0x80; });

// Walks UTF-8 text: runs of bytes in `plain` go to plainRun(begin, length),
// every other character to other(cp); a byte that is not UTF-8 is U+FFFD.
// Between pieces of the text the output may be drained.
template <typename PlainRun, typename Other>
void Walk(std::string_view text, Out& out, const ByteSet& plain, PlainRun plainRun, Other other) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    size_t paused = 0;
    for (size_t i = 0; i < text.size();) {
        size_t j = i;
        while (j < text.size() && plain[bytes[j]]) ++j;
        if (j > i) {
            plainRun(text.data() + i, j - i);
            i = j;
        } else {
            char32_t cp = 0;
            const size_t length = Utf8Length(text, i, cp);
            other(length == 0 ? kReplacement : cp);
            i += length == 0 ? 1 : length;
        }
        if (i - paused >= kPiece) {
            paused = i;
            out.Pause();
        }
    }
}

// Text form of a value: a space before the first character, escapes, and
// line feeds continued on an indented line, or shown as \n where a label
// must stay on its line.
class TextValue {
public:
    TextValue(Out& out, bool leadingSpace, bool label)
        : out_(out), leadPending_(leadingSpace), label_(label) {}

    void Append(std::string_view text) {
        Walk(
            text, out_, label_ ? kQuotedPlain : kTextPlain,
            [this](const char* begin, size_t length) {
                Lead();
                out_.text.append(begin, length);
            },
            [this](char32_t cp) { Char(cp); });
    }
    void Raw(std::string_view text) {
        Lead();
        out_.text += text;
    }

private:
    void Char(char32_t cp) {
        std::string& out = out_.text;
        if (cp == U'\n' && !label_) {
            out += "\n    ";
            leadPending_ = false;
            return;
        }
        Lead();
        if (cp == U'\n') {
            out += "\\n";
        } else if (cp == U'\\') {
            out += "\\\\";
        } else if (cp == U'"') {
            out += "\\\"";
        } else if (IsControl(cp)) {
            out += "\\x";
            AppendHex(cp, 2, out);
        } else if (IsInvisible(cp)) {
            out += "\\u";
            AppendHex(cp, 4, out);
        } else {
            AppendUtf8(cp, out);
        }
    }
    void Lead() {
        if (leadPending_) out_.text.push_back(' ');
        leadPending_ = false;
    }

    Out& out_;
    bool leadPending_;
    bool label_;
};

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

// A JSON string with its quotes; bytes that are not UTF-8 become U+FFFD.
void AppendJsonText(std::string_view text, Out& out) {
    out.text.push_back('"');
    Walk(
        text, out, kQuotedPlain,
        [&out](const char* begin, size_t length) { out.text.append(begin, length); },
        [&out](char32_t cp) { AppendJsonChar(cp, out.text); });
    out.text.push_back('"');
}

void AppendJsonString(std::string_view text, std::string& out) {
    Out plain(out, nullptr, nullptr);
    AppendJsonText(text, plain);
}

bool IsUtf8(std::string_view text) {
    char32_t cp = 0;
    for (size_t i = 0, length; i < text.size(); i += length) {
        length = Utf8Length(text, i, cp);
        if (length == 0) return false;
    }
    return true;
}

// The "path" member; a path that is not UTF-8 has U+FFFD there, and its
// exact bytes in "path_base64" too, so that no path is lost.
void AppendJsonPath(std::string_view path, std::string& out) {
    out += "{\"path\":";
    AppendJsonString(path, out);
    if (IsUtf8(path)) return;
    static constexpr char kBase64[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    out += ",\"path_base64\":\"";
    for (size_t i = 0; i < path.size(); i += 3) {
        uint32_t group = static_cast<uint32_t>(static_cast<unsigned char>(path[i])) << 16;
        if (i + 1 < path.size()) group |= static_cast<uint32_t>(static_cast<unsigned char>(path[i + 1])) << 8;
        if (i + 2 < path.size()) group |= static_cast<unsigned char>(path[i + 2]);
        out.push_back(kBase64[group >> 18]);
        out.push_back(kBase64[(group >> 12) & 63]);
        out.push_back(i + 1 < path.size() ? kBase64[(group >> 6) & 63] : '=');
        out.push_back(i + 2 < path.size() ? kBase64[group & 63] : '=');
    }
    out.push_back('"');
}

// The "codes" member: the codes passed to SOOutChar, a line break as -5.
void AppendJsonCodes(const uint32_t* codes, size_t count, Out& out) {
    out.text += ",\"codes\":[";
    for (size_t i = 0; i < count; ++i) {
        if (i != 0) out.text.push_back(',');
        const int64_t code = codes[i] & KZ_HOST_CODE_VALUE;
        AppendNumber((codes[i] & KZ_HOST_CODE_SPECIAL) != 0 ? -code : code, out.text);
        if (i % 4096 == 4095) out.Pause();
    }
    out.text += "]";
}

std::string_view Text(const char* text, size_t length) {
    return std::string_view(text != nullptr ? text : "", text != nullptr ? length : 0);
}

// The name of a routine call, its arguments in decimal or hexadecimal.
struct Hex {
    uint32_t value;
    int digits;
};
void Append(std::string& out, const char* text) { out += text; }
void Append(std::string& out, uint32_t number) { AppendNumber(number, out); }
void Append(std::string& out, Hex hex) {
    out += "0x";
    AppendHex(hex.value, hex.digits, out);
}
template <typename... Parts>
void Line(std::string& out, const Parts&... parts) {
    (Append(out, parts), ...);
    out.push_back('\n');
}

}  // namespace

void AppendPrintable(std::string_view text, std::string& out) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    for (size_t i = 0; i < text.size();) {
        size_t j = i;
        while (j < text.size() && kPrintable[bytes[j]]) ++j;
        if (j > i) {
            out.append(text.data() + i, j - i);
            i = j;
            continue;
        }
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

void RenderTextHeader(std::string_view path, const kz_host_file_info& info, Out& out) {
    AppendPrintable(path, out.text);
    out.text += ": ";
    if (info.type_name[0] == '\0') {
        out.text += "type ";
        AppendNumber(info.file_type, out.text);
    } else {
        AppendPrintable(info.type_name, out.text);
    }
    if (info.open_status == KZ_HOST_OPEN_NO_TAGS) {
        out.text += ": no tags";
    } else if (info.open_status != KZ_HOST_OPEN_TAGS) {
        out.text += ": no tags (open status ";
        AppendNumber(info.open_status, out.text);
        out.text += ")";
    }
    out.text.push_back('\n');
}

void RenderTextField(const kz_host_field& field, Out& out) {
    out.text += "  ";
    if (field.kind == KZ_HOST_ITEM_FAILURE) {
        out.text += "(failure ";
        AppendNumber(field.tag, out.text);
        out.text += " reported by the module)\n";
        return;
    }
    if (field.kind == KZ_HOST_ITEM_OUTSIDE) {
        out.text += "(outside any field)";
    } else {
        out.text += field.ident;
    }
    // A user-defined field's first string is its description, shown as a
    // label; other strings are shown in place as [text].
    const bool described = field.description != nullptr;
    if (described) {
        out.text += " \"";
        TextValue(out, false, true).Append(Text(field.description, field.description_len));
        out.text += "\"";
    }
    out.text += ":";
    TextValue value(out, true, false);
    const std::string_view text = Text(field.text, field.text_len);
    size_t at = 0;
    for (size_t i = described ? 1 : 0; i < field.string_count; ++i) {
        const kz_host_string& string = field.strings[i];
        const size_t offset = string.offset < text.size() ? string.offset : text.size();
        value.Append(text.substr(at, offset - at));
        at = offset;
        value.Raw("[");
        value.Append(Text(string.text, string.text_len));
        value.Raw("]");
    }
    value.Append(text.substr(at));
    out.text.push_back('\n');
}

void RenderJsonStart(std::string_view path, const kz_host_file_info& info, Out& out) {
    AppendJsonPath(path, out.text);
    out.text += ",\"status\":";
    AppendNumber(info.open_status, out.text);
    out.text += ",\"type\":";
    AppendJsonText(info.type_name, out);
    out.text += ",\"fields\":[";
}

void RenderJsonField(const kz_host_field& field, bool first, bool codes, const std::string* genre,
                     Out& out) {
    if (!first) out.text.push_back(',');
    switch (field.kind) {
        case KZ_HOST_ITEM_FAILURE:
            out.text += "{\"failure\":";
            AppendNumber(field.tag, out.text);
            out.text += "}";
            return;
        case KZ_HOST_ITEM_OUTSIDE:
            out.text += "{\"outside\":true,\"text\":";
            AppendJsonText(Text(field.text, field.text_len), out);
            if (codes) AppendJsonCodes(field.codes, field.code_count, out);
            out.text += "}";
            return;
        default: break;
    }
    out.text += "{\"tag\":";
    AppendNumber(field.tag, out.text);
    out.text += ",\"field\":";
    AppendNumber(field.number, out.text);
    out.text += ",\"id\":";
    AppendJsonText(field.ident, out);
    if (field.description != nullptr) {
        out.text += ",\"description\":";
        AppendJsonText(Text(field.description, field.description_len), out);
    }
    out.text += ",\"text\":";
    AppendJsonText(Text(field.text, field.text_len), out);
    if (codes) AppendJsonCodes(field.codes, field.code_count, out);
    if (genre != nullptr) {
        out.text += ",\"genre\":";
        AppendJsonText(*genre, out);
    }
    out.text += ",\"strings\":[";
    for (size_t i = 0; i < field.string_count; ++i) {
        const kz_host_string& string = field.strings[i];
        if (i != 0) out.text.push_back(',');
        out.text += "{\"tag\":";
        AppendNumber(string.tag, out.text);
        out.text += ",\"text\":";
        AppendJsonText(Text(string.text, string.text_len), out);
        if (codes) AppendJsonCodes(string.codes, string.code_count, out);
        out.text += "}";
    }
    out.text += "]}";
}

void RenderJsonEnd(const kz_host_file_info& info, Out& out) {
    out.text += "],\"end\":";
    out.text += info.end_seen ? "true" : "false";
    out.text += "}\n";
}

void RenderJsonError(std::string_view path, std::string_view reason, std::string& out) {
    AppendJsonPath(path, out);
    out += ",\"error\":";
    AppendJsonString(reason, out);
    out += "}\n";
}

namespace {

// A cell as valid UTF-8 (other bytes as U+FFFD), quoted or escaped.
void AppendCell(std::string_view text, bool tsv, std::string& out) {
    std::string cell;
    Out sink(cell, nullptr, nullptr);
    Walk(
        text, sink, kAscii,
        [&cell](const char* begin, size_t length) { cell.append(begin, length); },
        [&cell](char32_t cp) { AppendUtf8(cp, cell); });
    if (tsv) {
        for (const char c : cell) {
            switch (c) {
                case '\t': out += "\\t"; break;
                case '\n': out += "\\n"; break;
                case '\r': out += "\\r"; break;
                case '\\': out += "\\\\"; break;
                default: out.push_back(c);
            }
        }
        return;
    }
    if (cell.find_first_of(",\"\r\n") == std::string::npos) {
        out += cell;
        return;
    }
    out.push_back('"');
    for (const char c : cell) {
        if (c == '"') out.push_back('"');
        out.push_back(c);
    }
    out.push_back('"');
}

void EndRow(bool tsv, std::string& out) { out += tsv ? "\n" : "\r\n"; }

}  // namespace

void RenderTableHeader(const std::vector<std::string>& columns, bool tsv, std::string& out) {
    out += tsv ? "path\ttype" : "path,type";
    for (const std::string& column : columns) {
        out.push_back(tsv ? '\t' : ',');
        AppendCell(column, tsv, out);
    }
    EndRow(tsv, out);
}

void RenderTableRow(std::string_view path, const kz_host_file_info& info,
                    const std::vector<std::string>& cells, bool tsv, std::string& out) {
    AppendCell(path, tsv, out);
    out.push_back(tsv ? '\t' : ',');
    AppendCell(info.type_name, tsv, out);
    for (const std::string& cell : cells) {
        out.push_back(tsv ? '\t' : ',');
        AppendCell(cell, tsv, out);
    }
    EndRow(tsv, out);
}

void RenderTraceCall(std::string_view path, const kz_host_call& call, Out& out) {
    std::string& text = out.text;
    const uint32_t a = call.args[0];
    const uint32_t b = call.args[1];
    const uint32_t c = call.args[2];
    switch (call.routine) {
        case KZ_HOST_CALL_OPENED:
            text += "# ";
            AppendPrintable(path, text);
            text += "\n# ";
            text += call.name;
            text += " = ";
            AppendNumber(static_cast<int32_t>(a), text);
            text += ", type \"";
            AppendPrintable(call.type_name, text);
            text += "\"\n";
            break;
        case KZ_HOST_CALL_CHAR: Line(text, call.name, "(", Hex{a, 4}, ")"); break;
        case KZ_HOST_CALL_SPECIAL: Line(text, call.name, "(", a, ")"); break;
        case KZ_HOST_CALL_BREAK: Line(text, call.name, "(", a, ", ", b, ") = ", call.result); break;
        case KZ_HOST_CALL_START_SECTION: Line(text, call.name, "(", a, ", ", b, ", ", c, ")"); break;
        case KZ_HOST_CALL_FAILURE: Line(text, call.name, "(", a, ")"); break;
        case KZ_HOST_CALL_BEGIN_TAG:
            if (call.has_descriptor) {
                Line(text, call.name, "(", Hex{a, 8}, ", ", b, ", {", c, "})");
            } else {
                Line(text, call.name, "(", Hex{a, 8}, ", ", b, ", null)");
            }
            break;
        case KZ_HOST_CALL_END_TAG: Line(text, call.name, "(", Hex{a, 8}, ", ", b, ")"); break;
        case KZ_HOST_CALL_CHARSET: Line(text, call.name, "(", Hex{a, 8}, ")"); break;
        case KZ_HOST_CALL_SECTION_FLAGS: Line(text, call.name, "(", Hex{a, 4}, ")"); break;
        default: break;
    }
    out.Pause();
}

}  // namespace kzdump
