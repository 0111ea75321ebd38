// Writes a corpus like a music library: COUNT MP3 files of 8 to 25 text
// frames in mixed encodings, a comment, one or two user-defined fields, a
// picture of 10 to 300 KB in a third of them, an ID3v1 trailer in some, and
// a few silent MPEG frames as audio.  Deterministic for a given count.
// Usage: kz_bench_corpus DIRECTORY [COUNT]
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "workloads.h"

using namespace kztest;
using namespace kzbench;

namespace {

int Between(std::mt19937& random, int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(random);
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

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        std::fprintf(stderr, "usage: kz_bench_corpus DIRECTORY [COUNT]\n");
        return 2;
    }
    const std::string directory = argv[1];
    const int count = argc == 3 ? std::atoi(argv[2]) : 2000;
    std::mt19937 random(2024);
    for (int i = 0; i < count; ++i) {
        const Bytes file = LibraryFile(random);
        char name[32];
        std::snprintf(name, sizeof name, "/track_%05d.mp3", i);
        std::ofstream out(directory + name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
        if (!out) {
            std::fprintf(stderr, "kz_bench_corpus: cannot write %s%s\n", directory.c_str(), name);
            return 1;
        }
    }
    return 0;
}
