// CSV and TSV: a header row, then one row per file.
#include "render.h"

namespace kzdump {

namespace {

constexpr ByteSet kCsvPlain = MakeByteSet([](unsigned char b) { return b != 0 && b != '\\' && b < 0x80; });
constexpr ByteSet kTsvPlain =
    MakeByteSet([](unsigned char b) { return b != 0 && b != '\\' && b != '\t' && b != '\n' && b != '\r' && b < 0x80; });

// A cell as CSV has it: quoted, its quotes doubled, when it holds a comma,
// a quote or a line end.
void AppendCsvCell(std::string_view cell, std::string& out) {
    if (cell.find_first_of(",\"\r\n") == std::string_view::npos) {
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

void AppendCell(std::string_view text, bool tsv, std::string& out) {
    if (tsv) {
        AppendTableText(text, true, out);
        return;
    }
    std::string cell;
    AppendTableText(text, false, cell);
    AppendCsvCell(cell, out);
}

void EndRow(bool tsv, std::string& out) { out += tsv ? "\n" : "\r\n"; }

}  // namespace

void AppendTableText(std::string_view text, bool tsv, std::string& out) {
    Out sink(out);
    Walk(
        text, sink, tsv ? kTsvPlain : kCsvPlain, [&out](std::string_view run) { out += run; },
        [&out](char32_t cp, std::string_view bytes) {
            switch (cp) {
                case U'\\': out += "\\\\"; return;
                case U'\0': out += "\\0"; return;
                case U'\t': out += "\\t"; return;
                case U'\n': out += "\\n"; return;
                case U'\r': out += "\\r"; return;
                case kNotUtf8:
                    out += "\\x";
                    AppendHex(static_cast<unsigned char>(bytes[0]), 2, out);
                    return;
                default: out += bytes;
            }
        });
}

void RenderTableHeader(const std::vector<std::string>& columns, bool tsv, std::string& out) {
    out += tsv ? "path\ttype" : "path,type";
    for (const std::string& column : columns) {
        out.push_back(tsv ? '\t' : ',');
        AppendCell(column, tsv, out);
    }
    EndRow(tsv, out);
}

void RenderTableRow(std::string_view path, const kz_host_file_info& info, const std::vector<std::string>& cells,
                    bool tsv, std::string& out) {
    AppendCell(path, tsv, out);
    out.push_back(tsv ? '\t' : ',');
    AppendCell(info.type_name, tsv, out);
    for (const std::string& cell : cells) {
        out.push_back(tsv ? '\t' : ',');
        if (tsv) {
            out += cell;
        } else {
            AppendCsvCell(cell, out);
        }
    }
    EndRow(tsv, out);
}

}  // namespace kzdump
