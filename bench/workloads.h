// The files the in-process benchmarks feed the module, built with the
// project's tag builder, and the frame contents the corpus generator shares.
#ifndef KZ_BENCH_WORKLOADS_H
#define KZ_BENCH_WORKLOADS_H

#include <cstdint>
#include <random>
#include <string>

#include "tag_builder.h"

namespace kzbench {

using kztest::Bytes;

// Deterministic text of `length` printable characters.
std::string RandomText(std::mt19937& random, size_t length);
std::u16string RandomUtf16Text(std::mt19937& random, size_t length);

// Frame bodies in an ID3v2.3/2.4 tag: encoding byte 0 (Latin-1) or 1
// (UTF-16 little-endian with its mark).
Bytes TextBody(std::mt19937& random, size_t length, bool utf16);
Bytes CommentBody(std::mt19937& random, size_t length, bool utf16);
Bytes UserDefinedBody(std::mt19937& random, size_t length, bool utf16);
Bytes PictureBody(std::mt19937& random, size_t pictureBytes);

// One frame of the text mix: 60% text information frames, 25% comments,
// 15% user-defined text, half of them UTF-16, 10 to 60 characters.
Bytes MixedTextFrame(std::mt19937& random, int major);

// Whole files: an ID3v2.3 tag and a few silent MPEG frames.
Bytes TextHeavyFile(int frames);                    // the text mix
Bytes PictureHeavyFile(size_t pictureBytes, int textFrames);
Bytes TinyFramesFile(int frames);                   // TIT2 frames of one character
Bytes Id3v1OnlyFile();                              // audio and the 128-byte trailer
// A file like one of a music library: 8 to 25 text frames in mixed
// encodings, a comment, one or two user-defined fields, a picture of 10 to
// 300 KB in a third of them, an ID3v1 trailer in a third, a few silent MPEG
// frames.
Bytes LibraryFile(std::mt19937& random);
// A file as a common Python tagger writes a library: two thirds ID3v2.3
// with UTF-16 text, one third ID3v2.4 with UTF-8 text, 8 to 25 text frames,
// ReplayGain and MusicBrainz user-defined fields and a MusicBrainz UFID,
// a picture of 10 to 300 KB as the last frame in a third of them, 1 to 2 KB
// of padding, an ID3v1.1 trailer in 30%, and a few silent MPEG frames.
Bytes TaggerFile(std::mt19937& random);

}  // namespace kzbench

#endif  // KZ_BENCH_WORKLOADS_H
