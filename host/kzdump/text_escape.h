// Reading UTF-8 back to escape it.  kzdump never encodes UTF-8 (the kit
// does): it decodes a character only to classify it, and copies the bytes
// of every character it does not escape.
#ifndef KZDUMP_TEXT_ESCAPE_H
#define KZDUMP_TEXT_ESCAPE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kzdump {

// Where rendered text goes: a buffer that its owner may take away whenever
// Pause() is called between pieces, so a large field is written as it is
// rendered.
class Out {
public:
    using Drain = void (*)(void* owner);
    explicit Out(std::string& text, Drain drain = nullptr, void* owner = nullptr)
        : text(text), drain_(drain), owner_(owner) {}
    void Pause() {
        if (drain_ != nullptr && text.size() >= kDrainSize) drain_(owner_);
    }
    std::string& text;

private:
    static constexpr size_t kDrainSize = 64 * 1024;
    Drain drain_;
    void* owner_;
};

// U+FFFD, written for a byte that is not UTF-8 where no escape is used.
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
// The code point Walk passes for a byte that is not UTF-8.
constexpr char32_t kNotUtf8 = 0xFFFFFFFF;

// Length of the UTF-8 sequence at text[i], with its code point in `cp`; 0
// when it is not valid UTF-8.
size_t Utf8Length(std::string_view text, size_t i, char32_t& cp);
bool IsUtf8(std::string_view text);

// C0, DEL and C1.
constexpr bool IsControl(char32_t cp) { return cp < 0x20 || (cp >= 0x7F && cp <= 0x9F); }
// Characters that print as nothing or break lines in some terminals.
constexpr bool IsInvisible(char32_t cp) {
    return cp == 0xFEFF || cp == 0x2028 || cp == 0x2029 || cp == 0xFFFE || cp == 0xFFFF;
}

// A text the kit hands over; null is empty.
inline std::string_view TextOf(const char* text, size_t length) {
    return text != nullptr ? std::string_view(text, length) : std::string_view();
}

void AppendNumber(int64_t value, std::string& out);
// `digits` upper-case hexadecimal digits of `value`.
void AppendHex(uint32_t value, int digits, std::string& out);

// The bytes that go out as they are in some kind of text: one lookup a byte
// while a run of them lasts.
using ByteSet = std::array<bool, 256>;

template <typename Plain>
constexpr ByteSet MakeByteSet(Plain plain) {
    ByteSet set{};
    for (int b = 0; b < 256; ++b) set[static_cast<size_t>(b)] = plain(static_cast<unsigned char>(b));
    return set;
}

constexpr bool IsPrintableAscii(unsigned char b) { return b >= 0x20 && b < 0x7F; }

// The end of the run of characters that go out as they are from text[i]:
// bytes in `plain`, and characters of two to four bytes that every output
// copies (valid UTF-8, neither a C1 control nor an invisible character).
inline size_t PlainRunEnd(std::string_view text, size_t i, const ByteSet& plain) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    while (i < text.size()) {
        if (plain[bytes[i]]) {
            ++i;
            continue;
        }
        char32_t cp = 0;
        const size_t length = bytes[i] >= 0x80 ? Utf8Length(text, i, cp) : 0;
        if (length == 0 || IsControl(cp) || IsInvisible(cp)) break;
        i += length;
    }
    return i;
}

// Walks text: runs of characters that go out as they are (see
// PlainRunEnd) go to plainRun(run), every other character to other(cp,
// bytes) with its bytes (one byte and kNotUtf8 for a byte that is not
// UTF-8).  Every 64 KiB of input the output may drain.
template <typename PlainRun, typename Other>
void Walk(std::string_view text, Out& out, const ByteSet& plain, PlainRun plainRun, Other other) {
    constexpr size_t kPiece = 64 * 1024;
    size_t paused = 0;
    for (size_t i = 0; i < text.size();) {
        const size_t j = PlainRunEnd(text, i, plain);
        if (j > i) {
            plainRun(text.substr(i, j - i));
            i = j;
        } else {
            char32_t cp = 0;
            const size_t length = Utf8Length(text, i, cp);
            if (length == 0) {
                other(kNotUtf8, text.substr(i, 1));
                ++i;
            } else {
                other(cp, text.substr(i, length));
                i += length;
            }
        }
        if (i - paused >= kPiece) {
            paused = i;
            out.Pause();
        }
    }
}

// One character of a value in the text output that is not plain printable
// ASCII: a backslash as \\, control characters (C0, DEL, C1) as \xNN of
// their code, invisible characters as \uNNNN, a byte that is not UTF-8 as
// \xNN, any other character as its bytes.
void AppendTextChar(char32_t cp, std::string_view bytes, std::string& out);

// A path or other host text in the text output and on stderr, escaped as
// values are, except that control characters and bytes that are not UTF-8
// are escaped byte by byte: every path can be told from every other.
void AppendPrintable(std::string_view text, std::string& out);

}  // namespace kzdump

#endif  // KZDUMP_TEXT_ESCAPE_H
