// Text and JSON forms of a file's record.
#ifndef KZDUMP_RENDER_H
#define KZDUMP_RENDER_H

#include "file_record.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kzdump {

struct FileHeader {
    std::string_view path;
    int32_t openStatus = 0;
    uint16_t fileType = 0;
    std::string_view typeName;
    bool endSeen = false;
};

void RenderText(const FileHeader& header, const FileRecord& record, std::string& out);
void RenderJson(const FileHeader& header, const FileRecord& record, std::string& out);
// The JSON line of a file that could not be opened.
void RenderJsonError(std::string_view path, std::string_view reason, std::string& out);

void AppendNumber(int64_t value, std::string& out);
// `digits` upper-case hexadecimal digits of `value`.
void AppendHex(uint32_t value, int digits, std::string& out);

// A path or other host text for a text line: valid UTF-8 as it is, control
// characters and bytes that are not UTF-8 as \xNN.
void AppendPrintable(std::string_view text, std::string& out);
// The same as a JSON string with its quotes; bytes that are not UTF-8
// become U+FFFD.
void AppendJsonString(std::string_view text, std::string& out);

}  // namespace kzdump

#endif  // KZDUMP_RENDER_H
