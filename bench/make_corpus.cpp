// Writes a corpus like a music library, deterministic for a given count and
// shape.  "library" (the default): COUNT MP3 files of 8 to 25 text frames in
// mixed encodings, a comment, one or two user-defined fields, a picture of
// 10 to 300 KB in a third of them, an ID3v1 trailer in some, and a few
// silent MPEG frames as audio.  "tagger": files as a common Python tagger
// writes them (see TaggerFile in workloads.h).
// Usage: kz_bench_corpus DIRECTORY [COUNT [library|tagger]]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "workloads.h"

using namespace kzbench;

int main(int argc, char** argv) {
    const bool tagger = argc == 4 && std::strcmp(argv[3], "tagger") == 0;
    if (argc < 2 || argc > 4 || (argc == 4 && !tagger && std::strcmp(argv[3], "library") != 0)) {
        std::fprintf(stderr, "usage: kz_bench_corpus DIRECTORY [COUNT [library|tagger]]\n");
        return 2;
    }
    const std::string directory = argv[1];
    const int count = argc >= 3 ? std::atoi(argv[2]) : 2000;
    std::mt19937 random(2024);
    for (int i = 0; i < count; ++i) {
        const Bytes file = tagger ? TaggerFile(random) : LibraryFile(random);
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
