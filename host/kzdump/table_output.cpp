// CSV and TSV: a header row, then one row per file.
#include "render.h"

namespace kzdump {

namespace {

constexpr ByteSet kAscii = MakeByteSet([](unsigned char b) { return b < 0x80; });

// A cell as valid UTF-8 (other bytes as U+FFFD), quoted or escaped.
void AppendCell(std::string_view text, bool tsv, std::string& out) {
    std::string cell;
    Out sink(cell);
    Walk(
        text, sink, kAscii, [&cell](std::string_view run) { cell += run; },
        [&cell](char32_t cp, std::string_view bytes) { cell += cp == kNotUtf8 ? kReplacement : bytes; });
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

}  // namespace kzdump
