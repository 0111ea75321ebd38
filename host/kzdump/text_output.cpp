// The text output: a header line per file, then one line per field.
#include "render.h"

namespace kzdump {

namespace {

constexpr ByteSet kTextPlain = MakeByteSet([](unsigned char b) { return IsPrintableAscii(b) && b != '\\'; });
constexpr ByteSet kQuotedPlain =
    MakeByteSet([](unsigned char b) { return IsPrintableAscii(b) && b != '\\' && b != '"'; });

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
            [this](std::string_view run) {
                Lead();
                out_.text += run;
            },
            [this](char32_t cp, std::string_view bytes) { Char(cp, bytes); });
    }
    void Raw(std::string_view text) {
        Lead();
        out_.text += text;
    }

private:
    void Char(char32_t cp, std::string_view bytes) {
        std::string& out = out_.text;
        if (cp == U'\n' && !label_) {
            out += "\n    ";
            leadPending_ = false;
            return;
        }
        Lead();
        if (cp == U'\n') {
            out += "\\n";
        } else if (cp == U'"') {
            out += "\\\"";
        } else {
            AppendTextChar(cp, bytes, out);
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

}  // namespace

void RenderTextHeader(std::string_view path, const kz_host_file_info& info, Out& out) {
    AppendPrintable(path, out.text);
    out.text += ": ";
    if (info.type_name[0] == '\0') {
        out.text += "type ";
        AppendNumber(info.file_type, out.text);
    } else {
        AppendPrintable(info.type_name, out.text);
    }
    // Detection fell back on a type, having found no audio frame.
    if (info.detected && !info.audio) out.text += " (no MPEG audio frame)";
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
        TextValue(out, false, true).Append(TextOf(field.description, field.description_len));
        out.text += "\"";
    }
    out.text += ":";
    TextValue value(out, true, false);
    const std::string_view text = TextOf(field.text, field.text_len);
    size_t at = 0;
    for (size_t i = described ? 1 : 0; i < field.string_count; ++i) {
        const kz_host_string& string = field.strings[i];
        const size_t offset = string.offset < text.size() ? string.offset : text.size();
        value.Append(text.substr(at, offset - at));
        at = offset;
        value.Raw("[");
        value.Append(TextOf(string.text, string.text_len));
        value.Raw("]");
    }
    value.Append(text.substr(at));
    out.text.push_back('\n');
}

}  // namespace kzdump
