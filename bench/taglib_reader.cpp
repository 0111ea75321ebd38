// A peer reader for comparison: TagLib reads each file named and prints the
// text of every ID3v2 frame and every ID3v1 field, one line each.
// Usage: kz_taglib_reader FILE...
#include <taglib/id3v1tag.h>
#include <taglib/id3v2frame.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <cstdio>
#include <string>

namespace {

void PrintField(const char* name, const TagLib::String& value) {
    std::printf("%s: %s\n", name, value.toCString(true));
}

void ReadFile(const char* path) {
    TagLib::MPEG::File file(path, false);
    std::printf("%s\n", path);
    if (!file.isValid()) return;
    if (TagLib::ID3v2::Tag* tag = file.ID3v2Tag(); tag != nullptr) {
        for (const TagLib::ID3v2::Frame* frame : tag->frameList()) {
            const std::string id(frame->frameID().data(), frame->frameID().size());
            PrintField(id.c_str(), frame->toString());
        }
    }
    if (TagLib::ID3v1::Tag* tag = file.ID3v1Tag(); tag != nullptr) {
        PrintField("ID3v1 title", tag->title());
        PrintField("ID3v1 artist", tag->artist());
        PrintField("ID3v1 album", tag->album());
        std::printf("ID3v1 year: %u\n", tag->year());
        PrintField("ID3v1 comment", tag->comment());
        std::printf("ID3v1 track: %u\n", tag->track());
        PrintField("ID3v1 genre", tag->genre());
    }
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) ReadFile(argv[i]);
    return 0;
}
