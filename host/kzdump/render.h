// The output forms of kzdump, each in a file of its own: text
// (text_output.cpp), JSON Lines (json_output.cpp), CSV and TSV
// (table_output.cpp) and the trace (trace_output.cpp), written piece by
// piece as a file's fields arrive.
#ifndef KZDUMP_RENDER_H
#define KZDUMP_RENDER_H

#include "kz_host.h"
#include "text_escape.h"

#include <string>
#include <string_view>
#include <vector>

namespace kzdump {

// The first line of a file in the text output: its path and type.
void RenderTextHeader(std::string_view path, const kz_host_file_info& info, Out& out);
void RenderTextField(const kz_host_field& field, Out& out);

// One JSON line per file: the start up to the fields, each field (`first`
// for the first), the end.
void RenderJsonStart(std::string_view path, const kz_host_file_info& info, Out& out);
// `genre`, when not null, is the named form of a genre field.
void RenderJsonField(const kz_host_field& field, bool first, bool codes, const std::string* genre,
                     Out& out);
void RenderJsonEnd(const kz_host_file_info& info, Out& out);
// The JSON line of a file that could not be read.
void RenderJsonError(std::string_view path, std::string_view reason, std::string& out);

// CSV (RFC 4180, CRLF line ends) or TSV: the header row, then one row per
// file.  Every cell's text is escaped alike: a backslash as \\, a NUL as
// \0, a byte that is not UTF-8 as \xNN, and in TSV a tab, line feed and
// carriage return as \t, \n and \r.  Read from left to right, each
// backslash with the character after it, kValueSeparator, which joins the
// values of a column that takes several fields, is never part of a value.
constexpr std::string_view kValueSeparator = "\\|";
// Appends `text` escaped for a cell.
void AppendTableText(std::string_view text, bool tsv, std::string& out);
void RenderTableHeader(const std::vector<std::string>& columns, bool tsv, std::string& out);
// `cells`: the values of each column, escaped and joined.
void RenderTableRow(std::string_view path, const kz_host_file_info& info,
                    const std::vector<std::string>& cells, bool tsv, std::string& out);

// One trace line per host call; the call that reports VwStreamOpen starts
// the file with its path.
void RenderTraceCall(std::string_view path, const kz_host_call& call, Out& out);

}  // namespace kzdump

#endif  // KZDUMP_RENDER_H
