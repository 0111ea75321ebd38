// The read driver: the ID3v1 trailer, tags one after another, the end of
// content and reads in states that have no content.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "filter/context.h"
#include "filter/read_driver.h"
#include "kz_id3.h"
#include "kz_sys.h"
#include "recording_host.h"

namespace {

using namespace kztest;

// ---- ID3v1 trailer ---------------------------------------------------------------------

Bytes Patched(Bytes trailer, std::initializer_list<std::pair<size_t, uint8_t>> bytes) {
    for (const auto& [offset, value] : bytes) trailer[offset] = value;
    return trailer;
}

TEST(Trailer, CommentTrackAndGenreRules) {
    const Bytes v11abc = Id3v1({.comment = "abc", .track = 7});
    const Bytes full30 = Id3v1({.comment = "123456789012345678901234567890", .genre = 5});
    // Title, artist, album and year empty; the comment, track and genre
    // fields numbered from 4.
    const auto row = [](const char* name, const Bytes& trailer, const Calls& afterYear,
                        uint32_t count) {
        return FileCase{name, SilentMpegFrames(1) + trailer,
                        TextField(0, 118, "") + TextField(1, 132, "") + TextField(2, 105, "") +
                            TextField(3, 150, "") + afterYear + EndBreak(),
                        count};
    };
    ExpectWholeReads({
        row("ID3v1.1 track 7", v11abc,
            TextField(4, 80, "abc") + TextField(5, 139, "7") + TextField(6, 108, ""), 7),
        row("ID3v1.1 track 255", Id3v1({.track = 255, .genre = 0}),
            TextField(4, 80, "") + TextField(5, 139, "255") + TextField(6, 108, "0"), 7),
        row("ID3v1.1 track 10", Id3v1({.track = 10, .genre = 12}),
            TextField(4, 80, "") + TextField(5, 139, "10") + TextField(6, 108, "12"), 7),
        row("ID3v1.0 comment of 30 characters", full30,
            TextField(4, 80, "123456789012345678901234567890") + TextField(5, 108, "5"), 6),
        row("bytes 125 and 126 both zero", Id3v1({.comment = "abc", .genre = 254}),
            TextField(4, 80, "abc") + TextField(5, 108, "254"), 6),
        row("byte 125 set: no track", Patched(v11abc, {{125, 'X'}, {126, 5}}),
            TextField(4, 80, "abcX\x05") + TextField(5, 108, ""), 6),
        row("byte 125 set, byte 126 zero", Patched(v11abc, {{125, 'X'}, {126, 0}, {127, 100}}),
            TextField(4, 80, "abcX") + TextField(5, 108, "100"), 6),
        row("genre 9", Id3v1({.genre = 9}), TextField(4, 80, "") + TextField(5, 108, "9"), 6),
        row("zero inside the comment", Patched(v11abc, {{98, 0}, {110, 'z'}}),
            TextField(4, 80, "acz") + TextField(5, 139, "7") + TextField(6, 108, ""), 7),
        // Title A, zero, B; year 1, 9, zero, 9: text bytes go out as they are,
        // zero bytes are skipped.
        {"text bytes",
         Patched(Id3v1({.title = "A", .artist = "\xE9t\xE9", .year = "19"}), {{5, 'B'}, {96, '9'}}),
         TextField(0, 118, "AB") + TextField(1, 132, "\xE9t\xE9") + TextField(2, 105, "") +
             TextField(3, 150, "199") + TextField(4, 80, "") + TextField(5, 108, "") + EndBreak(),
         6},
    });
}

TEST(Trailer, UnreadableTrailerIsReportedOnce) {
    Session s(SilentMpegFrames(1) + Id3v1({.title = "Song"}));
    s.file.readLimit = [](int, uint32_t count) { return count == 125 ? 124u : count; };
    EXPECT_EQ(s.StartAndRead(), Calls{"failure 9"} + EndBreak());
    EXPECT_EQ(s.Read(), 0);
    EXPECT_EQ(s.host.Take(), EndBreak());
}

TEST(Trailer, SectionStartedOnAFileWithNothingToRead) {
    // Without a trailer the last 125 bytes are read as trailer fields all
    // the same.
    Bytes fake = Id3v1({.title = "X"});
    fake[0] = 'N';
    const std::pair<Bytes, Calls> cases[] = {
        {Bytes(20, 0) + fake, V1Fields(0, "X") + EndBreak()},
        {Bytes(50, 'a'), Calls{"failure 9"} + EndBreak()},
    };
    for (const auto& [file, expected] : cases) {
        Session s(file);
        EXPECT_EQ(s.Open(), VW_OPEN_NOTHING_TO_READ);
        EXPECT_EQ(VwStreamSection(s.file.stream(), s.context), 0);
        s.host.Take();
        EXPECT_EQ(s.Read(), 0);
        EXPECT_EQ(s.host.Take(), expected);
    }
}

// ---- Tags in sequence ---------------------------------------------------------------------

const std::string kLong(200, 'L');  // a size of at least 128 shows how it is coded

TEST(ReadDriver, WholeFiles) {
    const Bytes audio = SilentMpegFrames(2);
    const Bytes trailer = Id3v1({.title = "V"});
    const Calls twoFrames = TextField(1, 118, "Song") + FrameBreak() +
                            TextField(2, 132, kLong) + FrameBreak();
    // 198 bytes: an empty tag; a tag that declares 332 bytes, of which its
    // frames and 10 bytes of padding take 42; a tag right after that padding,
    // running to the end of the file.  The stream refuses the seek to the
    // overrunning tag's end and stays where the padding was read.
    const Bytes overrun = Tag(4, Frame(4, "CHAP", Raw({3})) + Frame(4, "TPE3", Raw({3})),
                              {.padding = 10, .declaredSize = 332});
    const Bytes rbuf = Raw({0x02, 0x39, 0x31, 0x63, 0x62, 0x00, 0x41, 0x00, 0x00, 0xDE, 0x00,
                            0x00, 0x41, 0x00, 0x41, 0x00, 0x00, 0x00, 0x41, 0x00, 0xE9, 0x00,
                            0x7A, 0x00, 0x00, 0x20, 0xAC, 0x00, 0x41, 0x00, 0x00, 0x61, 0xFF,
                            0x63, 0x5A, 0x5A, 0x62, 0x5A, 0x20, 0x62, 0xFF, 0x58, 0x0A, 0x00});
    const Bytes aspi = Raw({0x01, 0xE0, 0xC6, 0xC3, 0x85, 0x6C, 0xB1, 0xC7, 0x7F, 0xA7, 0x27, 0xBF});
    const std::string wcom("\x03 \xE9" "c\xFF\n\xFF\n1 1\0" "191Zac\0X0\0\0A\0\0\xFF\xFE\0\0", 30);
    const Bytes tmoo = Raw({2, 0x00, 0xFE, 0xFF, 0x00, 0x41, 0x62, 0x0A, 0xE9, 0x00});
    const Bytes next = Tag(3, Frame(3, "TMOO", tmoo) + Frame(3, "RBUF", rbuf) +
                                  Frame(3, "ASPI", aspi) + Frame(3, "WCOM", Latin1(wcom)));
    ExpectWholeReads({
        {"ID3v2.3",
         Tag(3, Frame(3, "TIT2", TextBody("Song")) + Frame(3, "TPE1", TextBody(kLong))) + audio + trailer,
         twoFrames + V1Fields(2) + EndBreak(), 8},
        {"ID3v2.2",
         Tag(2, Frame(2, "TT2", TextBody("Song")) + Frame(2, "TP1", TextBody(kLong))) + audio + trailer,
         twoFrames + V1Fields(2) + EndBreak(), 8},
        {"ID3v2.3 without trailer",
         Tag(3, Frame(3, "TIT2", TextBody("Song")) + Frame(3, "TPE1", TextBody(kLong))) + audio,
         twoFrames + EndBreak(), 2},
        {"ID3v2.4 tag is the whole file",
         Tag(4, Frame(4, "TIT2", TextBody("Song")) + Frame(4, "TPE1", TextBody(kLong))),
         twoFrames + EndBreak(), 2},
        {"two tags back to back, the first padded",
         Tag(3, Frame(3, "TIT2", TextBody("A")), {.padding = 5}) +
             Tag(4, Frame(4, "TPE1", TextBody("B"))) + audio + trailer,
         TextField(1, 118, "A") + FrameBreak() + TextField(3, 132, "B") + FrameBreak() +
             V1Fields(3) + EndBreak(),
         9},
        {"ID3v2.2 after ID3v2.4",
         Tag(4, Frame(4, "TIT2", TextBody("A"))) + Tag(2, Frame(2, "TAL", TextBody("B"))) + audio,
         TextField(1, 118, "A") + FrameBreak() + TextField(2, 105, "B") + FrameBreak() + EndBreak(), 2},
        {"major 5 between two tags",
         Tag(3, Frame(3, "TIT2", TextBody("A"))) + Tag(5, Frame(3, "TIT2", TextBody("X"))) +
             Tag(4, Frame(4, "TPE1", TextBody("B"))) + audio + trailer,
         TextField(1, 118, "A") + FrameBreak() + TextField(2, 132, "B") + FrameBreak() +
             V1Fields(2) + EndBreak(),
         8},
        {"majors 5 and 1 between two tags",
         Tag(3, Frame(3, "TIT2", TextBody("A"))) + Tag(5, Frame(3, "TIT2", TextBody("X"))) +
             Tag(1, Frame(3, "TIT2", TextBody("Y"))) + Tag(3, Frame(3, "TPE1", TextBody("B"))),
         TextField(1, 118, "A") + FrameBreak() + TextField(2, 132, "B") + FrameBreak() + EndBreak(), 2},
        {"major 5 last, then trailer",
         Tag(3, Frame(3, "TIT2", TextBody("A"))) + Tag(5, Frame(3, "TIT2", TextBody("X"))) + audio + trailer,
         TextField(1, 118, "A") + FrameBreak() + V1Fields(1) + EndBreak(), 7},
        {"a tag that overruns the file does not hide the next tag", Tag(3, {}) + overrun + next,
         FrameBreak() + BeginFrame(1, 134) + Utf16({}) + EndFrame(1) + FrameBreak() + BeginFrame(3, 124) +
             Utf16(Codes({0xFF00, 0x4162, 0x0AE9})) + EndFrame(3) + FrameBreak() +
             TextField(4, 97, std::string("\x02" "91 c b\0A\0", 10)) + FrameBreak() +
             TextField(5, 79, "\x01\xE0\xC6\xC3 \x85l\xB1\xC7 \x7F\xA7 ' \xBF ") + FrameBreak() +
             TextField(6, 154, wcom) + FrameBreak() + EndBreak(),
         6},
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
    EXPECT_TRUE(s.host.Take().empty());
    EXPECT_EQ(s.file.reads, reads);

    EXPECT_EQ(VwStreamSection(s.file.stream(), s.context), 0);
    s.host.Take();
    VwSavedState block;
    std::memset(&block, 0x3C, sizeof block);
    const uint16_t fileType = s.ctx()->fileType;
    VwSetData(&block, s.context);
    EXPECT_EQ(std::memcmp(s.ctx(), &block, sizeof block), 0);
    EXPECT_EQ(s.ctx()->fileType, fileType);
    VwSavedState copy;
    VwGetData(&copy, s.context);
    EXPECT_EQ(std::memcmp(&copy, &block, sizeof block), 0);
    EXPECT_EQ(s.Read(), 0);
    EXPECT_TRUE(s.host.Take().empty());
    EXPECT_EQ(s.ctx()->sectionState, 0x3C3C);
}

}  // namespace
