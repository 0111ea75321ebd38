// The frame walk: where it stops, how it counts, which identifiers it
// dispatches, breaks and resumption, saved state and extended headers.
#include <gtest/gtest.h>

#include <cstring>

#include "filter/context.h"
#include "kz_id3.h"
#include "recording_host.h"

namespace {

using namespace kztest;

const Bytes kTrailer = Id3v1({.title = "V"});
const Bytes kFrameA = Frame(3, "TIT2", TextBody("A"));
const Bytes kFrameB = Frame(3, "TPE1", TextBody("B"));
const Calls kA1 = TextField(1, 118, "A") + FrameBreak();

// Identifiers the module does not know (the known ones are in the frame
// field number tests) are skipped and use up no number.
TEST(FrameWalk, StopConditionsAndTheCountTheyLeave) {
    const auto unknown = [](int major, std::initializer_list<const char*> ids) {
        Bytes frames;
        for (const char* id : ids) frames += Frame(major, id, TextBody("X"));
        return Tag(major, frames);
    };
    ExpectWholeReads({
        {"padding after the last frame", Tag(3, kFrameA + kFrameB, {.padding = 20}) + kTrailer,
         kA1 + TextField(2, 132, "B") + FrameBreak() + V1Fields(3) + EndBreak(), 9},
        {"empty tag", Tag(3, {}) + kTrailer, V1Fields(0) + EndBreak(), 6},
        {"padding only", Tag(3, {}, {.padding = 10}) + kTrailer, V1Fields(1) + EndBreak(), 7},
        {"unknown identifiers", unknown(4, {"TDRC", "TDOR"}) + unknown(3, {"tit2", "TT2 "}) +
                                    unknown(2, {"TIT", "TDY", "TRC"}) + kTrailer,
         Repeat(FrameBreak(), 7) + V1Fields(0) + EndBreak(), 6},
        {"ID3v2.3 size with its top bit set",
         Tag(3, kFrameA + Frame(3, "TPE1", TextBody("X"), 0x80000000u) + kFrameB) + kTrailer,
         kA1 + V1Fields(2) + EndBreak(), 8},
        {"next header beyond 0x7FFFFFFF",
         Tag(3, kFrameA + Frame(3, "TPE1", TextBody("X"), 0x7FFFFFF0u) + kFrameB) + kTrailer,
         kA1 + V1Fields(2) + EndBreak(), 8},
        {"ID3v2.4 sizes of 2^21 bytes and more",
         Tag(4, Frame(4, "XYZW", Zeros(1u << 21)) + Frame(4, "TPE1", TextBody("B"))) + kTrailer,
         FrameBreak() + TextField(1, 132, "B") + FrameBreak() + V1Fields(1) + EndBreak(), 7},
        {"unknown frame reaching past the tag",
         Tag(3, kFrameA + Frame(3, "XYZW", TextBody("X"), 0x7FFFFF00u)) + kTrailer,
         kA1 + FrameBreak() + V1Fields(1) + EndBreak(), 7},
        {"only a zero first byte is padding",
         Tag(3, Latin1("X") + Raw({0}) + Latin1("YZ") + Raw({0, 0, 0, 1, 0, 0, 0}) + kFrameB) + kTrailer,
         FrameBreak() + TextField(1, 132, "B") + FrameBreak() + V1Fields(1) + EndBreak(), 7},
        {"header cut short by the end of the stream", Tag(3, kFrameA + Latin1("TPE1") + Raw({0, 0})), kA1 + EndBreak(),
         2},
        {"tag declared longer than the stream", Tag(3, kFrameA, {.declaredSize = 100}), kA1 + EndBreak(), 2},
        {"body reaching past the tag is read whole",
         Tag(3, Frame(3, "TIT2", TextBody("AB"), 5)) + Latin1("CD") + kTrailer,
         TextField(1, 118, "ABCD") + FrameBreak() + V1Fields(1) + EndBreak(), 7},
        {"ID3v2.4 size bytes lose their top bits",
         Tag(4, Latin1("TIT2") + Raw({0x80, 0x80, 0x80, 0x83, 0, 0}) + TextBody("AB") +
                    Frame(4, "TPE1", TextBody("B"))) + kTrailer,
         TextField(1, 118, "AB") + FrameBreak() + TextField(2, 132, "B") + FrameBreak() + V1Fields(2) + EndBreak(), 8},
    });
}

// A break answer stops the walk when its low 16 bits are not all zero; the
// next read goes on with the next frame.  Stopping at every frame break, and
// also saving the state after every stop and restoring it, the stream moved
// and the context spoilt meanwhile, before every read, gives the plain
// output.
TEST(Breaks, StoppingAtEveryFrameGivesThePlainOutput) {
    const Bytes file = Tag(3, kFrameA + Frame(3, "TDRC", TextBody("1")) + kFrameB, {.padding = 4}) +
                       Tag(2, Frame(2, "TAL", TextBody("C"))) + SilentMpegFrames(1) + kTrailer;
    const Calls expected = kA1 + FrameBreak() + TextField(2, 132, "B") + FrameBreak() + TextField(4, 105, "C") +
                           FrameBreak() + V1Fields(4) + EndBreak();
    for (const uint32_t status : {0x10000u, 0xFFFF0000u, 1u, 0x10001u}) {
        for (const bool saving : {false, true}) {
            Session s(file);
            s.Start();
            s.host.breakStatus = status;
            const bool stops = (status & 0xFFFF) != 0;
            int reads = 0;
            for (; reads < 20 && (s.host.calls.empty() || s.host.calls.back() != "break 2"); ++reads) {
                if (saving) {
                    VwSavedState saved;
                    EXPECT_EQ(VwStreamTell(s.file.stream(), s.context), 0);
                    EXPECT_EQ(s.ctx()->savedPos, s.file.position());
                    VwGetData(&saved, s.context);
                    EXPECT_EQ(std::memcmp(&saved, s.ctx(), sizeof saved), 0);
                    s.file.set_position(0);
                    std::memset(s.ctx(), 0x3C, sizeof saved);
                    VwSetData(&saved, s.context);
                    EXPECT_EQ(VwStreamSeek(s.file.stream(), s.context), 0);
                    EXPECT_EQ(s.file.position(), saved.savedPos);
                }
                EXPECT_EQ(s.Read(), 0);
                if (reads > 0 || !stops) continue;
                EXPECT_EQ(s.ctx()->sectionState, kz::kReadingFrames);
                EXPECT_EQ(s.ctx()->tagPos, 10u + 12u);  // the header of the second frame
                EXPECT_EQ(s.ctx()->frameCount, 1u);
            }
            EXPECT_EQ(reads, stops ? 5 : 1) << std::hex << status << saving;
            EXPECT_EQ(s.host.calls, expected) << std::hex << status << saving;
            // A seek the stream refuses: its answer, and the stream stays.
            const uint32_t at = s.file.position();
            s.ctx()->savedPos = static_cast<uint32_t>(file.size()) + 1;
            EXPECT_EQ(VwStreamSeek(s.file.stream(), s.context), -1);
            EXPECT_EQ(s.file.position(), at);
        }
    }
    // Stopping at one frame break only: the read after it goes on to the end.
    Session s(file);
    s.Start();
    s.host.breakStatus = 1;
    s.host.breakAt = 2;
    EXPECT_EQ(s.ReadToEnd(), 2);
    EXPECT_EQ(s.host.calls, expected);
}

TEST(ExtendedHeader, SizeRulePerVersion) {
    const TagOptions ext{.flags = 0x40};
    const Bytes next = Tag(3, kFrameB) + kTrailer;
    const Bytes frameA4 = Frame(4, "TIT2", TextBody("A"));
    const Calls read = kA1 + V1Fields(1) + EndBreak();
    const Calls skipped = TextField(1, 132, "B") + FrameBreak() + V1Fields(1) + EndBreak();
    const Calls both = kA1 + TextField(2, 132, "B") + FrameBreak() + V1Fields(2) + EndBreak();
    ExpectWholeReads({
        {"ID3v2.3 size 6, not counting itself", Tag(3, BigEndian32(6) + Zeros(6) + kFrameA, ext) + kTrailer, read, 7},
        {"ID3v2.3 size 130 is plain", Tag(3, BigEndian32(130) + Zeros(130) + kFrameA, ext) + kTrailer, read, 7},
        {"ID3v2.4 size 10, counting itself", Tag(4, Synchsafe(10) + Zeros(6) + frameA4, ext) + kTrailer, read, 7},
        {"ID3v2.4 size 130 is synchsafe", Tag(4, Synchsafe(130) + Zeros(126) + frameA4, ext) + kTrailer, read, 7},
        {"ID3v2.4 size 4: nothing after it", Tag(4, Synchsafe(4) + frameA4, ext) + kTrailer, read, 7},
        {"ID3v2.4 size below 4", Tag(4, Synchsafe(3) + Zeros(3) + kFrameA, ext) + next, skipped, 7},
        {"ID3v2.2 has no extended header", Tag(2, Frame(2, "TT2", TextBody("A")), ext) + next, skipped, 7},
        {"ID3v2.3 size reaching 0x7FFFFFFF: seek refused, frames read after the size",
         Tag(3, BigEndian32(0x7FFFFFF1u) + kFrameA, ext) + next, both, 8},
        {"ID3v2.3 size past 0x7FFFFFFF", Tag(3, BigEndian32(0x7FFFFFF2u) + kFrameA, ext) + next, skipped, 7},
        {"ID3v2.3 size that wraps 32 bits", Tag(3, BigEndian32(0xFFFFFFF8u) + kFrameA, ext) + next, skipped, 7},
        {"ID3v2.3 size cut short", Tag(3, Raw({0, 0}), {.flags = 0x40, .declaredSize = 20}), EndBreak(), 0},
        {"ID3v2.4 size cut short", Tag(4, Raw({0, 0, 0}), {.flags = 0x40, .declaredSize = 20}), EndBreak(), 0},
    });
    // When the tell after the ID3v2.3 size fails (the second tell; the first
    // finds the tag's end), the position counts as 0 and the size alone
    // decides: 0x7FFFFFFF passes, the seek is refused, frames are read after it.
    Session s(Tag(3, BigEndian32(0x7FFFFFFFu) + kFrameA, ext) + next);
    s.file.failTell = [](int tell) { return tell == 1; };
    EXPECT_EQ(s.StartAndRead(), both);
}

}  // namespace
