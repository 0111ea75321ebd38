#include "tag_builder.h"

#include <algorithm>

namespace kztest {

Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes& operator+=(Bytes& to, const Bytes& more) {
    to.insert(to.end(), more.begin(), more.end());
    return to;
}

Bytes operator+(Bytes a, const Bytes& b) { return a += b; }

Bytes Latin1(std::string_view s) { return Bytes(s.begin(), s.end()); }

namespace {
Bytes Utf16(std::u16string_view s, bool mark, bool big) {
    Bytes out;
    for (const char16_t unit : mark ? u"\uFEFF" + std::u16string(s) : std::u16string(s)) {
        out.push_back(static_cast<uint8_t>(big ? unit >> 8 : unit & 0xFF));
        out.push_back(static_cast<uint8_t>(big ? unit & 0xFF : unit >> 8));
    }
    return out;
}
}  // namespace

Bytes Utf16Le(std::u16string_view s, bool mark) { return Utf16(s, mark, false); }
Bytes Utf16Be(std::u16string_view s, bool mark) { return Utf16(s, mark, true); }

Bytes Zeros(size_t count) { return Bytes(count, 0); }

Bytes Synchsafe(uint32_t value) {
    return {static_cast<uint8_t>((value >> 21) & 0x7F), static_cast<uint8_t>((value >> 14) & 0x7F),
            static_cast<uint8_t>((value >> 7) & 0x7F), static_cast<uint8_t>(value & 0x7F)};
}

Bytes BigEndian32(uint32_t value) {
    return {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Bytes Frame(int major, std::string_view id, const Bytes& body,
            std::optional<uint32_t> declaredSize) {
    const uint32_t size = declaredSize.value_or(static_cast<uint32_t>(body.size()));
    Bytes out = Latin1(id);
    if (major == 2) {
        out += {static_cast<uint8_t>(size >> 16), static_cast<uint8_t>(size >> 8),
                static_cast<uint8_t>(size)};
    } else {
        out += major == 4 ? Synchsafe(size) : BigEndian32(size);
        out += {0x00, 0x00};
    }
    return out + body;
}

Bytes Tag(int major, const Bytes& content, const TagOptions& options) {
    const uint32_t size =
        options.declaredSize.value_or(static_cast<uint32_t>(content.size() + options.padding));
    Bytes out = {'I', 'D', '3', static_cast<uint8_t>(major), options.revision, options.flags};
    out += Synchsafe(size);
    out += content;
    out += Zeros(options.padding);
    return out;
}

namespace {
Bytes Padded(const std::string& text, size_t width) {
    Bytes out = Latin1(text.substr(0, std::min(text.size(), width)));
    out.resize(width, 0);
    return out;
}
}  // namespace

Bytes Id3v1(const Id3v1Fields& fields) {
    Bytes out = Latin1("TAG") + Padded(fields.title, 30) + Padded(fields.artist, 30) +
                Padded(fields.album, 30) + Padded(fields.year, 4);
    out += fields.track ? Padded(fields.comment, 28) + Bytes{0x00, *fields.track} : Padded(fields.comment, 30);
    out.push_back(fields.genre);
    return out;
}

Bytes SilentMpegFrames(int count) {
    // MPEG-1 Layer III, 128 kbit/s, 44.1 kHz, no padding, no CRC: 417 bytes.
    Bytes frame = {0xFF, 0xFB, 0x90, 0x64};
    frame.resize(417, 0);
    Bytes out;
    for (int i = 0; i < count; ++i) out += frame;
    return out;
}

}  // namespace kztest
