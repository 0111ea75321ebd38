// The read driver: the ID3v1 trailer, tags one after another, the end of
// content and reads in states that have no content.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "filter/context.h"
#include "kz_id3.h"
#include "recording_host.h"

namespace {

using namespace kztest;

Bytes Patched(Bytes trailer, std::initializer_list<std::pair<size_t, uint8_t>> bytes) {
    for (const auto& [offset, value] : bytes) trailer[offset] = value;
    return trailer;
}

TEST(Trailer, CommentTrackAndGenreRules) {
    const Bytes v11abc = Id3v1({.comment = "abc", .track = 7, .genre = 9});
    // Title, artist, album and year empty; the comment, track and genre
    // fields numbered from 4.
    const auto row = [](const char* name, const Bytes& trailer, const Calls& afterYear, uint32_t count) {
        return FileCase{name, SilentMpegFrames(1) + trailer,
                        TextField(0, 118, "") + TextField(1, 132, "") + TextField(2, 105, "") + TextField(3, 150, "") +
                            afterYear + EndBreak(),
                        count};
    };
    ExpectWholeReads({
        row("ID3v1.1 track 7", v11abc, TextField(4, 80, "abc") + TextField(5, 139, "7") + TextField(6, 108, "9"), 7),
        row("ID3v1.1 track 255", Id3v1({.track = 255, .genre = 0}),
            TextField(4, 80, "") + TextField(5, 139, "255") + TextField(6, 108, "0"), 7),
        row("ID3v1.1 track 10", Id3v1({.track = 10, .genre = 12}),
            TextField(4, 80, "") + TextField(5, 139, "10") + TextField(6, 108, "12"), 7),
        row("ID3v1.0 comment of 30 characters", Id3v1({.comment = "123456789012345678901234567890", .genre = 5}),
            TextField(4, 80, "123456789012345678901234567890") + TextField(5, 108, "5"), 6),
        row("bytes 125 and 126 both zero", Id3v1({.comment = "abc", .genre = 254}),
            TextField(4, 80, "abc") + TextField(5, 108, "254"), 6),
        row("byte 125 set: no track", Patched(v11abc, {{125, 'X'}, {126, 5}, {127, 255}}),
            TextField(4, 80, "abcX\x05") + TextField(5, 108, ""), 6),
        row("byte 125 set, byte 126 zero", Patched(v11abc, {{125, 'X'}, {126, 0}, {127, 100}}),
            TextField(4, 80, "abcX") + TextField(5, 108, "100"), 6),
        row("zero inside the comment", Patched(v11abc, {{98, 0}, {110, 'z'}}),
            TextField(4, 80, "acz") + TextField(5, 139, "7") + TextField(6, 108, "9"), 7),
        // Title A, zero, B; year 1, 9, zero, 9: text bytes go out as they are,
        // zero bytes are skipped.
        {"text bytes", Patched(Id3v1({.title = "A", .artist = "\xE9t\xE9", .year = "19"}), {{5, 'B'}, {96, '9'}}),
         TextField(0, 118, "AB") + TextField(1, 132, "\xE9t\xE9") + TextField(2, 105, "") + TextField(3, 150, "199") +
             TextField(4, 80, "") + TextField(5, 108, "") + EndBreak(),
         6},
    });
}

// A trailer that cannot be read whole is reported once.  A section started
// on a file with nothing to read reads the last 125 bytes as trailer fields
// all the same.
TEST(Trailer, UnreadableOrMissingTrailer) {
    Bytes fake = Id3v1({.title = "X"});
    fake[0] = 'N';
    const std::pair<Bytes, Calls> cases[] = {
        {SilentMpegFrames(1) + Id3v1({.title = "Song"}), Calls{"failure 9"} + EndBreak()},
        {Bytes(20, 0) + fake, V1Fields(0, "X") + EndBreak()},
        {Bytes(50, 'a'), Calls{"failure 9"} + EndBreak()},
    };
    for (const auto& [file, expected] : cases) {
        Session s(file);
        const bool hasTrailer = file.size() > 500;  // then read one byte short
        if (hasTrailer) s.file.readLimit = [](int, uint32_t count) { return count == 125 ? 124u : count; };
        EXPECT_EQ(s.Open(), hasTrailer ? VW_OPEN_OK : VW_OPEN_NOTHING_TO_READ);
        EXPECT_EQ(VwStreamSection(s.file.stream(), s.context), 0);
        s.host.Take();
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(s.Read(), 0);
            EXPECT_EQ(s.host.Take(), i == 0 ? expected : EndBreak());
        }
    }
}

TEST(ReadDriver, WholeFiles) {
    const std::string kLong(200, 'L');  // a size of at least 128 shows how it is coded
    const Bytes audio = SilentMpegFrames(2);
    const Bytes trailer = Id3v1({.title = "V"});
    const Calls twoFrames = TextField(1, 118, "Song") + FrameBreak() + TextField(2, 132, kLong) + FrameBreak();
    const auto tag = [](int major, const char* id, const std::string& text) {
        return Tag(major, Frame(major, id, TextBody(text)));
    };
    const Calls ab = TextField(1, 118, "A") + FrameBreak() + TextField(2, 132, "B") + FrameBreak();
    // An empty tag; a tag that declares 332 bytes, of which its frames and
    // 10 bytes of padding take 42; a tag right after that padding, running
    // to the end of the file.  The stream refuses the seek to the
    // overrunning tag's end and stays where the padding was read.
    const Bytes overrun =
        Tag(4, Frame(4, "CHAP", Raw({3})) + Frame(4, "TPE3", Raw({3})), {.padding = 10, .declaredSize = 332});
    ExpectWholeReads({
        {"ID3v2.3", Tag(3, Frame(3, "TIT2", TextBody("Song")) + Frame(3, "TPE1", TextBody(kLong))) + audio + trailer,
         twoFrames + V1Fields(2) + EndBreak(), 8},
        {"ID3v2.2", Tag(2, Frame(2, "TT2", TextBody("Song")) + Frame(2, "TP1", TextBody(kLong))) + audio + trailer,
         twoFrames + V1Fields(2) + EndBreak(), 8},
        {"ID3v2.4 tag is the whole file",
         Tag(4, Frame(4, "TIT2", TextBody("Song")) + Frame(4, "TPE1", TextBody(kLong))),
         twoFrames + EndBreak(), 2},
        {"two tags back to back, the first padded",
         Tag(3, Frame(3, "TIT2", TextBody("A")), {.padding = 5}) + tag(4, "TPE1", "B") + audio + trailer,
         TextField(1, 118, "A") + FrameBreak() + TextField(3, 132, "B") + FrameBreak() + V1Fields(3) + EndBreak(), 9},
        {"ID3v2.2 after ID3v2.4", tag(4, "TIT2", "A") + tag(2, "TP1", "B") + audio, ab + EndBreak(), 2},
        {"majors 5 and 1 between two tags",
         tag(3, "TIT2", "A") + tag(5, "TIT2", "X") + tag(1, "TIT2", "Y") + tag(3, "TPE1", "B") + audio + trailer,
         ab + V1Fields(2) + EndBreak(), 8},
        {"major 5 last, then trailer", tag(3, "TIT2", "A") + tag(5, "TIT2", "X") + audio + trailer,
         TextField(1, 118, "A") + FrameBreak() + V1Fields(1) + EndBreak(), 7},
        {"a tag that overruns the file does not hide the next tag", Tag(3, {}) + overrun + tag(3, "TPE1", "B"),
         FrameBreak() + BeginFrame(1, 134) + Utf16({}) + EndFrame(1) + FrameBreak() + TextField(3, 132, "B") +
             FrameBreak() + EndBreak(),
         3},
    });
}

// A saved-state block of a state the driver does not know: VwSetData copies
// exactly the leading block (the file type after it stays), and a read then
// does nothing.
TEST(ReadDriver, ReadBeforeOpenOrSectionOrInUnknownStateDoesNothing) {
    Session s(Tag(3, Frame(3, "TIT2", TextBody("A"))) + Id3v1({.title = "V"}));
    EXPECT_EQ(s.Read(), 0);  // not even opened
    EXPECT_EQ(s.Open(), VW_OPEN_OK);
    const int reads = s.file.reads;
    EXPECT_EQ(s.Read(), 0);
    EXPECT_EQ(s.file.reads, reads);
    EXPECT_EQ(VwStreamSection(s.file.stream(), s.context), 0);
    EXPECT_EQ(s.host.Take(), SectionStart());
    VwSavedState block;
    std::memset(&block, 0x3C, sizeof block);
    const uint16_t fileType = s.ctx()->fileType;
    VwSetData(&block, s.context);
    EXPECT_EQ(std::memcmp(s.ctx(), &block, sizeof block), 0);
    EXPECT_EQ(s.ctx()->fileType, fileType);
    EXPECT_EQ(s.Read(), 0);
    EXPECT_TRUE(s.host.Take().empty());
    EXPECT_EQ(s.ctx()->sectionState, 0x3C3C);
}

}  // namespace
