// Frame bodies in a host block: failed allocations, bodies above 16,383 and
// above 65,535 bytes; the byte order that UTF-16 strings leave behind.
#include <set>

#include "frame_cases.h"
#include "kz_sys.h"

namespace kztest {
namespace {

Calls Same(size_t count, uint32_t code) { return Repeat(Codes({code}), count); }

}  // namespace

// A body that needs a host block when none can be had (refused for the
// four-letter identifiers, unlockable for the three-letter ones): the field
// is empty, no block is left, and the next frame is still read where it
// begins.  Every identifier of the case tables, and its three-letter form.
TEST(FrameAllocationFailure, EmptyFieldAndNextFrameReadRight) {
    std::set<std::string> seen;
    for (const auto* table : {&TextAndLinkCases(), &DescriptiveCases(), &TimingCases()}) {
        for (const FrameCase& c : *table) {
            if (!seen.insert(c.id).second) continue;
            Calls empty;
            for (const std::string& call : c.expected)
                if (call.starts_with("begin F") || call.starts_with("end F")) empty.push_back(call);
            for (const auto& [major, id] : {std::pair{c.major, c.id}, {2, ThreeLetterForm(c.id)}}) {
                if (id.empty()) continue;
                Session s(Tag(major, Frame(major, id, Bytes(20000, 'a')) + TitleFrame(major)));
                s.Start();
                const int64_t liveBlocks = KzSysLiveBlocks();
                id.size() == 3 ? KzSysFailLocks(1) : KzSysFailAllocationsAfter(0);
                s.ReadToEnd();
                KzSysResetFaults();
                EXPECT_EQ(KzSysLiveBlocks(), liveBlocks) << id;
                EXPECT_EQ(s.host.Take(), empty + AfterCase()) << id;
            }
        }
    }
}

// A body that the file cuts short: what a host block did not receive reads
// as zero bytes.
TEST(FrameHostBlock, ShortReadLeavesZeros) {
    ExpectCalls(ReadTag(3, Frame(3, "ETCO", Raw({2, 7, 7}), 20000)),
                Field(85, Codes({7, 0x20, 7, 0x20}) + Repeat(Codes({0, 0x20}), 20000 - 3)) + FrameBreak() + EndBreak());
}

// Up to 16,383 bytes a body lies in frameBuffer, above in a host block of
// its own, released after the frame; single-byte text drops its zero bytes
// only in the first.  Bodies beyond 65,535 bytes: every string and every
// loop runs to the true end of the body.
TEST(FrameLargeBodies, EveryLoopRunsToTheBodyEnd) {
    constexpr size_t kBig = 70001;  // odd: whole EQUA units after byte 0
    const Bytes tail(kBig - 8, 'x');
    const Calls tailOut = Same(kBig - 8, 'x');
    Bytes pairs = Raw({1, 0xFF, 0xFE, 'a', 0, 0, 0, 0xFF, 0xFE, 'b', 0, 0, 0});
    for (int i = 0; i < 2732; ++i) pairs += Raw({0xFF, 0xFE, 'c', 0, 0, 0});
    const Bytes text = Raw({0}) + Latin1("abcdefghi") + Raw({0});
    const FrameCase cases[] = {
        {"TIT2_16383_in_frame_buffer", 3, "TIT2", text + Bytes(16383 - 11, 'x'),
         Field(118, Chars("abcdefghi") + Same(16383 - 11, 'x'))},
        {"TIT2_16384_in_host_block", 3, "TIT2", text + Bytes(16384 - 11, 'x'),
         Field(118, Chars("abcdefghi") + Codes({0}) + Same(16384 - 11, 'x'))},
        {"TIT2_above_65535", 3, "TIT2", Raw({0}) + Bytes(65540, 'x') + Raw({0, 'y'}),
         Field(118, Same(65540, 'x') + Codes({0, 'y'}))},
        {"COMM_text_without_terminator", 3, "COMM", Raw({0, 'e', 'n', 'g', 'd', 0, 'a', 0x0A}) + tail,
         Field(80, Chars("d a") + LineBreak() + tailOut)},
        {"TXXX_value_to_body_end", 3, "TXXX", Raw({0, 'd', 0, 0, 0, 0, 0, 0}) + tail,
         UserField(Chars("d"), Same(5, 0) + tailOut)},
        {"WOAR_every_byte", 3, "WOAR", Bytes(kBig, 'u'), Field(157, Same(kBig, 'u'))},
        // An odd count of strings (a, b, c and 16,378 empty ones): taken
        // pair by pair, the last would bring an extra space.
        {"IPLS_one_string_at_a_time", 3, "IPLS", Raw({0, 'a', 0, 'b', 0, 'c', 0}) + Bytes(16385 - 7, 0),
         Chars("a b c ") + Same(16385 - 7, ' ')},
        {"IPLS_utf16_pairs", 3, "IPLS", pairs, Utf16(Chars("a b ") + Repeat(Chars("c "), 2732))},
        {"SYLT_item_to_body_end", 3, "SYLT", Raw({0, 'e', 'n', 'g', 2, 1, 'd', 0}) + tail,
         Field(103, Chars("d ") + Same(kBig - 9, 'x'))},
        {"ETCO_every_byte_spaced", 3, "ETCO", Raw({2}) + Bytes(kBig - 1, 9),
         Field(85, Repeat(Codes({9, 0x20}), kBig - 1))},
        {"EQUA_every_unit", 3, "EQUA", Raw({0x10}) + Bytes(kBig - 1, 0x81),
         Field(83, Codes({0x10, 0x20}) + Repeat(Codes({0x80, 0x20, 1, 0x20, 0x81, 0x20}), (kBig - 1) / 2))},
        {"EQU2_every_point", 4, "EQU2", Raw({0, 0}) + Bytes(70000, 6),
         Field(84, Codes({0, 0x20, 0x20}) + Repeat(Codes({6, 6, 0x20, 6, 6, 0x20}), 17500))},
        {"RVA2_every_record", 4, "RVA2", Raw({'v', 0}) + Bytes(70000, 5),
         Field(99, Chars("v") + Repeat(Codes({5, 0x20, 5, 5, 0x20, 5, 0x20, 5, 0x20}), 14000))},
        {"RVAD_every_value", 3, "RVAD", Raw({3, 0x10}) + Bytes(70000, 7),
         Field(98, Codes({3, 0x20, 0x10, 0x20}) + Repeat(Codes({7, 7, 0x20}), 35000))},
    };
    for (const FrameCase& c : cases) {
        SCOPED_TRACE(c.name);
        const int64_t liveBlocks = KzSysLiveBlocks(), allocations = KzSysAllocationCount();
        ExpectCase(c);
        EXPECT_EQ(KzSysAllocationCount() - allocations, c.body.size() > 16383 ? 2 : 1);  // the context's, the body's
        EXPECT_EQ(KzSysLiveBlocks(), liveBlocks);
    }
}

}  // namespace kztest
