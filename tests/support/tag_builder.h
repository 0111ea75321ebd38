// Builds ID3v2.2/2.3/2.4 tags, frames and ID3v1 trailers byte by byte, so a
// test (or a sample generator) states exactly the bytes it feeds the module.
#ifndef KZ_TESTS_TAG_BUILDER_H
#define KZ_TESTS_TAG_BUILDER_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kztest {

using Bytes = std::vector<uint8_t>;

// Concatenation: Cat({a, b, c}).
Bytes Cat(std::initializer_list<Bytes> parts);
Bytes& operator+=(Bytes& to, const Bytes& more);
Bytes operator+(Bytes a, const Bytes& b);

// The characters of s as single bytes, no terminator.
Bytes Latin1(std::string_view s);
// A byte string: Raw({0x00, 0x41}).
inline Bytes Raw(std::initializer_list<uint8_t> bytes) { return Bytes(bytes); }
// UTF-16 units, little- or big-endian, optionally preceded by the mark for
// that order (FF FE or FE FF).  No terminator.
Bytes Utf16Le(std::u16string_view s, bool mark = true);
Bytes Utf16Be(std::u16string_view s, bool mark = true);
Bytes Zeros(size_t count);

Bytes Synchsafe(uint32_t value);
Bytes BigEndian32(uint32_t value);

// A frame header and its body in the form of the tag's major version:
// 2 (three-letter identifier, 24-bit size), 3 (32-bit size, two flag bytes)
// or 4 (synchsafe size).  `declaredSize` overrides the size written in the
// header (to declare more or less than the body holds).
Bytes Frame(int major, std::string_view id, const Bytes& body,
            std::optional<uint32_t> declaredSize = std::nullopt);

struct TagOptions {
    uint8_t revision = 0;
    uint8_t flags = 0;  // 0x80 unsynchronisation, 0x40 extended header, ...
    uint32_t padding = 0;
    std::optional<uint32_t> declaredSize{};  // overrides the computed tag size
};
// The 10-byte header "ID3", major, revision, flags, synchsafe size, then the
// content (frames, and an extended header if the test writes one) and the
// padding zeros.
Bytes Tag(int major, const Bytes& content, const TagOptions& options = {});

struct Id3v1Fields {
    std::string title{}, artist{}, album{}, year{}, comment{};
    std::optional<uint8_t> track{};  // ID3v1.1: byte 125 zero, byte 126 the track
    uint8_t genre = 255;
};
// The 128-byte trailer: "TAG" and the fields, each padded with zeros.
Bytes Id3v1(const Id3v1Fields& fields);

// A few silent MPEG-1 Layer III frames (128 kbit/s, 44.1 kHz), so that a
// file looks like audio between its tags.
Bytes SilentMpegFrames(int count);

}  // namespace kztest

#endif  // KZ_TESTS_TAG_BUILDER_H
