// Field numbers the module puts in a tag descriptor, as ID3 names.
#ifndef KZDUMP_FIELD_NAMES_H
#define KZDUMP_FIELD_NAMES_H

#include <cstdint>
#include <string_view>

namespace kzdump {

// The ID3v2.3/2.4 frame identifier a field number stands for ("TIT2" for
// 118); empty for a number that names no frame.
std::string_view FrameIdOfField(uint32_t fieldNumber);

// The ID3v1 field name ("title") a trailer field number stands for; empty
// for a number the trailer does not use.
std::string_view Id3v1NameOfField(uint32_t fieldNumber);

// Field numbers from this one up belong to user-defined frames (TXXX, WXXX).
constexpr uint32_t kUserDefinedFieldBase = 500;

}  // namespace kzdump

#endif  // KZDUMP_FIELD_NAMES_H
