// Frame bodies in a host block: failed allocations, bodies above 16,383 and
// above 65,535 bytes; the byte order that UTF-16 strings leave behind.
#include <algorithm>
#include <set>

#include "frame_cases.h"
#include "kz_sys.h"

namespace kztest {
namespace {

Bytes Fill(size_t count, uint8_t byte) { return Bytes(count, byte); }
Calls Same(size_t count, uint32_t code) { return Repeat(Codes({code}), count); }

// Allocation failures stop at the end of the test, whatever it asserts.
// Host blocks that cannot be had: refused, or given but not locked.
struct FailingBlocks {
    explicit FailingBlocks(bool locks) { locks ? KzSysFailLocks(1) : KzSysFailAllocationsAfter(0); }
    ~FailingBlocks() { KzSysResetFaults(); }
};

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
                SCOPED_TRACE(id);
                Session s(Tag(major, Frame(major, id, Fill(20000, 'a')) + TitleFrame(major)));
                s.Start();
                const int64_t liveBlocks = KzSysLiveBlocks();
                {
                    const FailingBlocks failing(id.size() == 3);
                    s.ReadToEnd();
                }
                EXPECT_EQ(KzSysLiveBlocks(), liveBlocks);
                EXPECT_EQ(s.host.Take(), empty + AfterCase());
            }
        }
    }
}

TEST(FrameHostBlock, TextZeroBytesDependOnWhereTheBodyLies) {
    for (const size_t size : {100u, 16383u, 16384u, 20000u}) {
        SCOPED_TRACE(size);
        const Bytes body = Raw({0}) + Latin1("abcdefghi") + Raw({0}) + Fill(size - 11, 'x');
        Session s(Tag(3, Frame(3, "TIT2", body) + TitleFrame(3)));
        s.Start();
        const int64_t allocations = KzSysAllocationCount();
        const int64_t liveBlocks = KzSysLiveBlocks();
        s.ReadToEnd();
        EXPECT_EQ(KzSysAllocationCount() - allocations, size > 16383 ? 1 : 0);
        EXPECT_EQ(KzSysLiveBlocks(), liveBlocks);
        const Calls zero = size > 16383 ? Codes({0}) : Calls{};
        ExpectCalls(s.host.Take(),
                    Field(118, Chars("abcdefghi") + zero + Same(size - 11, 'x')) + AfterCase());
    }
}

// A body that the file cuts short: what a host block did not receive reads
// as zero bytes.
TEST(FrameHostBlock, ShortReadLeavesZeros) {
    const Calls calls = ReadTag(3, Frame(3, "ETCO", Raw({2, 7, 7}), 20000));
    ExpectCalls(calls, Field(85, Codes({7, 0x20, 7, 0x20}) + Repeat(Codes({0, 0x20}), 20000 - 3)) +
                           FrameBreak() + EndBreak());
}

namespace {

// Bodies in a host block, most of them beyond 65,535 bytes: every string
// and every loop runs to the true end of the body, and the block is released.
std::vector<FrameCase> LargeCases() {
    constexpr size_t kBig = 70001;  // odd: whole EQUA units after byte 0
    const Bytes tail = Fill(kBig - 8, 'x');
    const Calls tailOut = Same(kBig - 8, 'x');
    Bytes pairs = Raw({1, 0xFF, 0xFE, 'a', 0, 0, 0, 0xFF, 0xFE, 'b', 0, 0, 0});
    for (int i = 0; i < 2732; ++i) pairs += Raw({0xFF, 0xFE, 'c', 0, 0, 0});
    const Bytes text = Raw({0}) + Latin1("abcdefghi") + Raw({0});
    return {
        // Up to 16,383 bytes a body lies in frameBuffer, above in a host
        // block; single-byte text drops its zero bytes only in the first.
        {"TIT2_16383_in_frame_buffer", 3, "TIT2", text + Fill(16383 - 11, 'x'),
         Field(118, Chars("abcdefghi") + Same(16383 - 11, 'x'))},
        {"TIT2_16384_in_host_block", 3, "TIT2", text + Fill(16384 - 11, 'x'),
         Field(118, Chars("abcdefghi") + Codes({0}) + Same(16384 - 11, 'x'))},
        {"TIT2_above_65535", 3, "TIT2", Raw({0}) + Fill(65540, 'x') + Raw({0, 'y'}),
         Field(118, Same(65540, 'x') + Codes({0, 'y'}))},
        {"COMM_text_without_terminator", 3, "COMM",
         Raw({0, 'e', 'n', 'g', 'd', 0, 'a', 0x0A}) + tail,
         Field(80, Chars("d a") + LineBreak() + tailOut)},
        {"TXXX_value_to_body_end", 3, "TXXX", Raw({0, 'd', 0, 0, 0, 0, 0, 0}) + tail,
         UserField(Chars("d"), Same(5, 0) + tailOut)},
        {"WOAR_every_byte", 3, "WOAR", Fill(kBig, 'u'), Field(157, Same(kBig, 'u'))},
        {"GEOB_mime_without_terminator", 3, "GEOB", Raw({0}) + Fill(kBig - 1, 'm'),
         Field(86, Same(kBig - 1, 'm') + Chars("  "))},
        // An odd count of strings (a, b, c and 16,378 empty ones): taken
        // pair by pair, the last would bring an extra space.
        {"IPLS_one_string_at_a_time", 3, "IPLS",
         Raw({0, 'a', 0, 'b', 0, 'c', 0}) + Fill(16385 - 7, 0),
         Chars("a b c ") + Same(16385 - 7, ' ')},
        {"IPLS_utf16_pairs", 3, "IPLS", pairs, Utf16(Chars("a b ") + Repeat(Chars("c "), 2732))},
        {"UFID_identifier_to_body_end", 3, "UFID", Raw({'o', 0}) + Fill(kBig - 2, 0xB7),
         Field(151, Chars("o ") + Same(kBig - 2, 0xB7))},
        {"POPM_counter_to_body_end", 3, "POPM", Raw({'e', 0, 0xC4}) + Fill(kBig - 3, 1),
         Field(95, Codes({'e', 0x20, 0xC4, 0x20}) + Same(kBig - 3, 1))},
        {"SYLT_item_to_body_end", 3, "SYLT", Raw({0, 'e', 'n', 'g', 2, 1, 'd', 0}) + tail,
         Field(103, Chars("d ") + Same(kBig - 9, 'x'))},
        {"ETCO_every_byte_spaced", 3, "ETCO", Raw({2}) + Fill(kBig - 1, 9),
         Field(85, Repeat(Codes({9, 0x20}), kBig - 1))},
        {"EQUA_every_unit", 3, "EQUA", Raw({0x10}) + Fill(kBig - 1, 0x81),
         Field(83, Codes({0x10, 0x20}) +
                       Repeat(Codes({0x80, 0x20, 1, 0x20, 0x81, 0x20}), (kBig - 1) / 2))},
        {"RVA2_every_record", 4, "RVA2", Raw({'v', 0}) + Fill(70000, 5),
         Field(99, Chars("v") + Repeat(Codes({5, 0x20, 5, 5, 0x20, 5, 0x20, 5, 0x20}), 14000))},
        {"MLLT_table_to_body_end", 3, "MLLT", Fill(kBig, 3),
         Field(91, Codes({3, 3, 0x20, 3, 3, 3, 0x20, 3, 3, 3, 0x20}) + Same(kBig - 8, 3))},
        {"RBUF_fixed_fields_only", 3, "RBUF", Fill(kBig, 4),
         Field(97, Codes({4, 4, 4, 0x20, 4, 0x20, 4, 4, 4, 4}))},
    };
}

}  // namespace

TEST(FrameLargeBodies, EveryLoopRunsToTheBodyEnd) {
    for (const FrameCase& c : LargeCases()) {
        SCOPED_TRACE(c.name);
        const int64_t liveBlocks = KzSysLiveBlocks();
        ExpectCalls(ReadTag(c.major, Frame(c.major, c.id, c.body) + TitleFrame(c.major)),
                    c.expected + AfterCase());
        EXPECT_EQ(KzSysLiveBlocks(), liveBlocks);
    }
}

}  // namespace kztest
