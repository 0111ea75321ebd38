// JSON Lines: one object per file.
#include "render.h"

namespace kzdump {

namespace {

constexpr ByteSet kJsonPlain =
    MakeByteSet([](unsigned char b) { return IsPrintableAscii(b) && b != '\\' && b != '"'; });

void AppendJsonChar(char32_t cp, std::string_view bytes, std::string& out) {
    switch (cp) {
        case U'"': out += "\\\""; return;
        case U'\\': out += "\\\\"; return;
        case U'\n': out += "\\n"; return;
        case U'\t': out += "\\t"; return;
        case U'\r': out += "\\r"; return;
        case kNotUtf8: out += kReplacement; return;
        default: break;
    }
    // Control and invisible characters escaped: a line stays printable.
    if (IsControl(cp) || IsInvisible(cp)) {
        out += "\\u";
        AppendHex(cp, 4, out);
        return;
    }
    out += bytes;
}

// A JSON string with its quotes; bytes that are not UTF-8 become U+FFFD.
void AppendJsonText(std::string_view text, Out& out) {
    out.text.push_back('"');
    Walk(
        text, out, kJsonPlain, [&out](std::string_view run) { out.text += run; },
        [&out](char32_t cp, std::string_view bytes) { AppendJsonChar(cp, bytes, out.text); });
    out.text.push_back('"');
}

void AppendJsonString(std::string_view text, std::string& out) {
    Out plain(out);
    AppendJsonText(text, plain);
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

}  // namespace

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
            AppendJsonText(TextOf(field.text, field.text_len), out);
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
        AppendJsonText(TextOf(field.description, field.description_len), out);
    }
    out.text += ",\"text\":";
    AppendJsonText(TextOf(field.text, field.text_len), out);
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
        AppendJsonText(TextOf(string.text, string.text_len), out);
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

}  // namespace kzdump
