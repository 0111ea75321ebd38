// Writes the sample files of samples/: small MP3 files (a few silent MPEG
// frames) with ID3v2.2, 2.3 and 2.4 tags and ID3v1 trailers, each stated
// byte by byte with the tag builder.  Usage: make_samples DIRECTORY
#include "tag_builder.h"

#include <cstdio>
#include <fstream>
#include <string>

using namespace kztest;

namespace {

constexpr int kAudioFrames = 3;

// Encoding byte 0: ISO-8859-1 text.
Bytes Text(std::string_view text) { return Raw({0x00}) + Latin1(text); }
// Encoding byte 1: UTF-16 with a byte-order mark.
Bytes TextLe(std::u16string_view text) { return Raw({0x01}) + Utf16Le(text); }
Bytes TextBe(std::u16string_view text) { return Raw({0x01}) + Utf16Be(text); }

Bytes V22Latin1() {
    const Bytes frames = Cat({
        Frame(2, "TT2", Text("Morning Song")),
        Frame(2, "TP1", Text("The Testers")),
        Frame(2, "TAL", Text("Sample Album")),
        Frame(2, "TYE", Text("2001")),
        Frame(2, "TRK", Text("3/12")),
        Frame(2, "TCO", Text("(13)Pop")),
        Frame(2, "COM", Cat({Raw({0x00}), Latin1("eng"), Raw({0x00}), Latin1("Recorded live")})),
    });
    return Tag(2, frames, {.padding = 32}) + SilentMpegFrames(kAudioFrames);
}

Bytes V23Utf16() {
    const Bytes pngSignature = Raw({0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A});
    const Bytes frames = Cat({
        Frame(3, "TIT2", TextLe(u"Caf\u00E9 \u00DCn\u00EFcode")),
        // U+1D11E, the G clef, as the surrogate pair D834 DD1E.
        Frame(3, "TPE1", TextBe(u"\u03A9mega \U0001D11E Band")),
        Frame(3, "TALB", Text("Gr\xFC\xDF" "e")),
        Frame(3, "COMM", Cat({Raw({0x01}), Latin1("eng"), Utf16Le(u"note"), Raw({0x00, 0x00}),
                              Utf16Le(u"Line one\nLine two")})),
        Frame(3, "TXXX", Cat({Raw({0x00}), Latin1("MOOD"), Raw({0x00}), Latin1("calm")})),
        Frame(3, "TXXX", Cat({Raw({0x01}), Utf16Le(u"TEMPO"), Raw({0x00, 0x00}),
                              Utf16Le(u"andante")})),
        Frame(3, "WXXX", Cat({Raw({0x01}), Utf16Le(u"Homepage"), Raw({0x00, 0x00}),
                              Latin1("http://example.com/")})),
        Frame(3, "APIC", Cat({Raw({0x00}), Latin1("image/png"), Raw({0x00, 0x03}),
                              Latin1("cover"), Raw({0x00}), pngSignature})),
    });
    return Tag(3, frames, {.padding = 64}) + SilentMpegFrames(kAudioFrames);
}

Bytes V24WithId3v1() {
    const Bytes frames = Cat({
        Frame(4, "TIT2", Text("Evening Song")),
        Frame(4, "TPE1", Text("The Testers")),
        Frame(4, "TRCK", Text("7")),
        Frame(4, "TDRC", Text("2004")),  // not one of the module's frames: skipped
    });
    const Id3v1Fields trailer{.title = "Evening Song",
                              .artist = "The Testers",
                              .album = "Sample Album",
                              .year = "2004",
                              .comment = "ID3v1.1 trailer",
                              .track = 7,
                              .genre = 13};
    return Tag(4, frames) + SilentMpegFrames(kAudioFrames) + Id3v1(trailer);
}

Bytes TwoTags() {
    const Bytes first = Tag(3, Cat({Frame(3, "TIT2", Text("First tag")),
                                    Frame(3, "TPE1", Text("Band A"))}));
    const Bytes second = Tag(4, Cat({Frame(4, "TIT2", Text("Second tag")),
                                     Frame(4, "TALB", Text("Other album"))}));
    return first + second + SilentMpegFrames(kAudioFrames);
}

Bytes Id3v1Only() {
    const Id3v1Fields trailer{.title = "Only Trailer",
                              .artist = "Nobody",
                              .album = "",
                              .year = "1999",
                              .comment = "A comment that fills 30 bytes.",
                              .track = std::nullopt,
                              .genre = 255};
    return SilentMpegFrames(kAudioFrames) + Id3v1(trailer);
}

Bytes PeopleAndLyrics() {
    const Bytes frames = Cat({
        Frame(3, "TIT2", Text("Credits")),
        Frame(3, "IPLS", Cat({Raw({0x00}), Latin1("producer"), Raw({0x00}), Latin1("Ann"),
                              Raw({0x00}), Latin1("mixer"), Raw({0x00}), Latin1("Bob"),
                              Raw({0x00})})),
        Frame(3, "USLT", Cat({Raw({0x00}), Latin1("eng"), Raw({0x00}),
                              Latin1("first line\nsecond line")})),
        Frame(3, "PCNT", Raw({0x00, 0x00, 0x01, 0x2C})),
    });
    return Tag(3, frames, {.padding = 16}) + SilentMpegFrames(kAudioFrames);
}

bool Write(const std::string& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_samples DIRECTORY\n");
        return 2;
    }
    const std::string directory = argv[1];
    const struct {
        const char* name;
        Bytes bytes;
    } samples[] = {
        {"v22_latin1.mp3", V22Latin1()},
        {"v23_utf16.mp3", V23Utf16()},
        {"v23_people_lyrics.mp3", PeopleAndLyrics()},
        {"v24_with_id3v1.mp3", V24WithId3v1()},
        {"two_tags.mp3", TwoTags()},
        {"id3v1_only.mp3", Id3v1Only()},
    };
    for (const auto& sample : samples) {
        const std::string path = directory + "/" + sample.name;
        if (!Write(path, sample.bytes)) {
            std::fprintf(stderr, "make_samples: %s: cannot write\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
