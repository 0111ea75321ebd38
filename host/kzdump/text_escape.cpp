#include "text_escape.h"

#include <charconv>

namespace kzdump {

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

bool IsUtf8(std::string_view text) {
    char32_t cp = 0;
    for (size_t i = 0, length; i < text.size(); i += length) {
        length = Utf8Length(text, i, cp);
        if (length == 0) return false;
    }
    return true;
}

void AppendNumber(int64_t value, std::string& out) {
    char buffer[24];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, end);
}

void AppendHex(uint32_t value, int digits, std::string& out) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) out.push_back(kHexDigits[(value >> shift) & 0xF]);
}

void AppendTextChar(char32_t cp, std::string_view bytes, std::string& out) {
    if (cp == U'\\') {
        out += "\\\\";
    } else if (cp == kNotUtf8) {
        out += "\\x";
        AppendHex(static_cast<unsigned char>(bytes[0]), 2, out);
    } else if (IsControl(cp)) {
        out += "\\x";
        AppendHex(cp, 2, out);
    } else if (IsInvisible(cp)) {
        out += "\\u";
        AppendHex(cp, 4, out);
    } else {
        out += bytes;
    }
}

void AppendPrintable(std::string_view text, std::string& out) {
    static constexpr ByteSet kPlain = MakeByteSet([](unsigned char b) { return IsPrintableAscii(b) && b != '\\'; });
    Out sink(out);
    Walk(
        text, sink, kPlain, [&out](std::string_view run) { out += run; },
        [&out](char32_t cp, std::string_view bytes) {
            if (cp != kNotUtf8 && !IsControl(cp)) {
                AppendTextChar(cp, bytes, out);
                return;
            }
            // Byte by byte, so that a C1 control (two bytes) is told from a
            // byte that is not UTF-8.
            for (const char byte : bytes) {
                out += "\\x";
                AppendHex(static_cast<unsigned char>(byte), 2, out);
            }
        });
}

}  // namespace kzdump
