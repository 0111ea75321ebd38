#include "workloads.h"

#include <array>
#include <string_view>

using namespace kztest;

namespace kzbench {

namespace {

constexpr std::array<std::string_view, 16> kTextIds = {
    "TIT2", "TPE1", "TALB", "TCON", "TRCK", "TYER", "TCOM", "TPE2",
    "TPUB", "TENC", "TCOP", "TIT1", "TIT3", "TBPM", "TLAN", "TKEY",
};

constexpr int kAudioFrames = 4;

int Below(std::mt19937& random, int bound) {
    return std::uniform_int_distribution<int>(0, bound - 1)(random);
}

int Between(std::mt19937& random, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
}

Bytes Encoded(std::mt19937& random, size_t length, bool utf16) {
    return utf16 ? Utf16Le(RandomUtf16Text(random, length)) : Latin1(RandomText(random, length));
}

Bytes Terminator(bool utf16) { return utf16 ? Raw({0x00, 0x00}) : Raw({0x00}); }

Bytes EncodingByte(bool utf16) { return Raw({static_cast<uint8_t>(utf16 ? 1 : 0)}); }

}  // namespace

std::string RandomText(std::mt19937& random, size_t length) {
    static constexpr std::string_view kLetters =
        "abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ 0123456789 \xE9\xFC\xF1";
    std::string text(length, ' ');
    for (char& c : text) c = kLetters[static_cast<size_t>(Below(random, kLetters.size()))];
    return text;
}

std::u16string RandomUtf16Text(std::mt19937& random, size_t length) {
    static constexpr std::u16string_view kLetters =
        u"abcdefghijklmnopqrstuvwxyz ABCDEFGHIJKLMNOPQRSTUVWXYZ \u00E9\u00FC\u03A9\u0416\u4E2D";
    std::u16string text(length, u' ');
    for (char16_t& c : text) c = kLetters[static_cast<size_t>(Below(random, kLetters.size()))];
    return text;
}

Bytes TextBody(std::mt19937& random, size_t length, bool utf16) {
    return EncodingByte(utf16) + Encoded(random, length, utf16);
}

Bytes CommentBody(std::mt19937& random, size_t length, bool utf16) {
    return Cat({EncodingByte(utf16), Latin1("eng"), Encoded(random, 8, utf16), Terminator(utf16),
                Encoded(random, length, utf16)});
}

Bytes UserDefinedBody(std::mt19937& random, size_t length, bool utf16) {
    return Cat({EncodingByte(utf16), Encoded(random, 10, utf16), Terminator(utf16),
                Encoded(random, length, utf16)});
}

Bytes PictureBody(std::mt19937& random, size_t pictureBytes) {
    Bytes picture(pictureBytes);
    for (uint8_t& byte : picture) byte = static_cast<uint8_t>(random());
    return Cat({Raw({0x00}), Latin1("image/jpeg"), Raw({0x00, 0x03}), Latin1("Front cover"),
                Raw({0x00}), picture});
}

Bytes MixedTextFrame(std::mt19937& random, int major) {
    const int kind = Below(random, 100);
    const bool utf16 = Below(random, 2) == 1;
    const size_t length = static_cast<size_t>(10 + Below(random, 51));
    if (kind < 60) {
        const std::string_view id = kTextIds[static_cast<size_t>(Below(random, kTextIds.size()))];
        return Frame(major, id, TextBody(random, length, utf16));
    }
    if (kind < 85) return Frame(major, "COMM", CommentBody(random, length, utf16));
    return Frame(major, "TXXX", UserDefinedBody(random, length, utf16));
}

Bytes TextHeavyFile(int frames) {
    std::mt19937 random(1);
    Bytes content;
    for (int i = 0; i < frames; ++i) content += MixedTextFrame(random, 3);
    return Tag(3, content) + SilentMpegFrames(kAudioFrames);
}

Bytes PictureHeavyFile(size_t pictureBytes, int textFrames) {
    std::mt19937 random(2);
    Bytes content;
    for (int i = 0; i < textFrames; ++i) {
        const std::string_view id = kTextIds[static_cast<size_t>(i) % kTextIds.size()];
        content += Frame(3, id, TextBody(random, 24, i % 2 == 1));
    }
    content += Frame(3, "APIC", PictureBody(random, pictureBytes));
    return Tag(3, content) + SilentMpegFrames(kAudioFrames);
}

Bytes TinyFramesFile(int frames) {
    const Bytes tiny = Frame(3, "TIT2", Latin1(std::string_view("\0A", 2)));
    Bytes content;
    content.reserve(tiny.size() * static_cast<size_t>(frames));
    for (int i = 0; i < frames; ++i) content += tiny;
    return Tag(3, content) + SilentMpegFrames(kAudioFrames);
}

Bytes Id3v1OnlyFile() {
    return SilentMpegFrames(kAudioFrames) + Id3v1({.title = "Evening Song",
                                                   .artist = "The Testers",
                                                   .album = "Sample Album",
                                                   .year = "2004",
                                                   .comment = "Recorded live",
                                                   .track = 7,
                                                   .genre = 13});
}

Bytes LibraryFile(std::mt19937& random) {
    const int major = Between(random, 0, 3) == 0 ? 4 : 3;
    const bool utf16 = Between(random, 0, 1) == 1;
    const char* const ids[] = {"TIT2", "TPE1", "TALB", "TRCK", "TYER", "TCON", "TPE2", "TCOM",
                               "TPOS", "TENC", "TSSE", "TBPM", "TPUB", "TCOP", "TLEN", "TKEY",
                               "TIT1", "TIT3", "TOPE", "TOAL", "TLAN", "TMED", "TSRC", "TSOP",
                               "TSOA"};
    Bytes content;
    const int textFrames = Between(random, 8, 25);
    for (int i = 0; i < textFrames; ++i) {
        // Mostly one encoding per file, as a tagger writes it, now and then the other.
        const bool frameUtf16 = Between(random, 0, 9) == 0 ? !utf16 : utf16;
        content += Frame(major, ids[i], TextBody(random, static_cast<size_t>(Between(random, 2, 40)),
                                                 frameUtf16));
    }
    content += Frame(major, "COMM", CommentBody(random, static_cast<size_t>(Between(random, 0, 80)), utf16));
    const int userDefined = Between(random, 1, 2);
    for (int i = 0; i < userDefined; ++i) {
        content += Frame(major, "TXXX", UserDefinedBody(random, static_cast<size_t>(Between(random, 4, 36)), utf16));
    }
    if (Between(random, 0, 2) == 0) {
        const auto pictureBytes = static_cast<size_t>(Between(random, 10, 300)) * 1024;
        content += Frame(major, "APIC", PictureBody(random, pictureBytes));
    }
    const auto padding = static_cast<uint32_t>(Between(random, 0, 4) * 512);
    Bytes file = Tag(major, content, {.padding = padding}) + SilentMpegFrames(Between(random, 3, 8));
    if (Between(random, 0, 2) == 0) {
        file += Id3v1({.title = RandomText(random, 20),
                       .artist = RandomText(random, 16),
                       .album = RandomText(random, 24),
                       .year = "1999",
                       .comment = RandomText(random, 12),
                       .track = static_cast<uint8_t>(Between(random, 1, 20)),
                       .genre = static_cast<uint8_t>(Between(random, 0, 125))});
    }
    return file;
}

Bytes TaggerFile(std::mt19937& random) {
    const bool v24 = Between(random, 0, 2) == 0;
    const int major = v24 ? 4 : 3;
    // The tagger writes every text in one encoding: UTF-8 in ID3v2.4,
    // UTF-16 with its mark in ID3v2.3.
    const auto encoded = [&](std::string_view latin1) {
        if (!v24) {
            std::u16string utf16;
            for (const char c : latin1) utf16 += static_cast<char16_t>(static_cast<uint8_t>(c));
            return Utf16Le(utf16);
        }
        Bytes utf8;
        for (const char c : latin1) {
            const auto code = static_cast<uint8_t>(c);
            utf8 += code < 0x80 ? Raw({code}) : Raw({static_cast<uint8_t>(0xC0 | code >> 6),
                                                    static_cast<uint8_t>(0x80 | (code & 0x3F))});
        }
        return utf8;
    };
    const auto text = [&](std::string_view latin1) { return Raw({v24 ? uint8_t{3} : uint8_t{1}}) + encoded(latin1); };
    const auto terminator = [&] { return v24 ? Raw({0}) : Raw({0, 0}); };
    const char* const ids[] = {"TIT2", "TPE1", "TALB", "TRCK", "TCON", "TPE2", "TPOS", "TSOP",
                               "TCOM", "TPUB", "TMED", "TSRC", "TLAN", "TBPM", "TSSE", "TENC",
                               "TIT1", "TIT3", "TOPE", "TOAL", "TCOP", "TKEY", "TSOA", "TSOT",
                               "TLEN"};
    Bytes content;
    const int textFrames = Between(random, 8, 25);
    for (int i = 0; i < textFrames; ++i) {
        content += Frame(major, ids[i], text(RandomText(random, static_cast<size_t>(Between(random, 2, 40)))));
    }
    content += Frame(major, v24 ? "TDRC" : "TYER", text("2004"));
    const char* const userDefined[][2] = {
        {"REPLAYGAIN_TRACK_GAIN", "-1.80 dB"}, {"REPLAYGAIN_TRACK_PEAK", "0.988312"},
        {"REPLAYGAIN_ALBUM_GAIN", "-2.41 dB"}, {"REPLAYGAIN_ALBUM_PEAK", "1.000000"},
        {"MusicBrainz Album Id", "1f4d5e3a-8c7b-4e2a-9d61-0b3c5a7e9f12"},
        {"MusicBrainz Artist Id", "7a9e2c14-3b5d-4f68-a1c0-92e4d7b6f035"},
        {"MusicBrainz Release Group Id", "c3e8a5f1-6d2b-4a97-8e04-5f1b9d3c7a26"}};
    for (const auto& [description, value] : userDefined) {
        content += Frame(major, "TXXX", text(description) + terminator() + encoded(value));
    }
    content += Frame(major, "UFID", Latin1("http://musicbrainz.org") + Raw({0}) +
                                        Latin1("9b1e4f7c-2a6d-4c83-b5e0-7d3f1a8c6e49"));
    if (Between(random, 0, 2) == 0) {
        const auto pictureBytes = static_cast<size_t>(Between(random, 10, 300)) * 1024;
        content += Frame(major, "APIC", PictureBody(random, pictureBytes));
    }
    const auto padding = static_cast<uint32_t>(Between(random, 1024, 2048));
    Bytes file = Tag(major, content, {.padding = padding}) + SilentMpegFrames(Between(random, 4, 12));
    if (Between(random, 0, 9) < 3) {
        file += Id3v1({.title = RandomText(random, 20),
                       .artist = RandomText(random, 16),
                       .album = RandomText(random, 24),
                       .year = "2004",
                       .comment = "",
                       .track = static_cast<uint8_t>(Between(random, 1, 20)),
                       .genre = static_cast<uint8_t>(Between(random, 0, 125))});
    }
    return file;
}

}  // namespace kzbench
