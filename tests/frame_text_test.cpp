// Text information frames, the frames the walker emits itself, URL links,
// user-defined frames and comments.
#include <sstream>

#include "frame_cases.h"
#include "id3v2/frame_id.h"
#include "id3v2/frame_walker.h"

namespace kztest {

TEST_P(FrameRows, EmitsExactlyTheseCalls) { ExpectCase(GetParam()); }

const std::vector<FrameCase>& TextAndLinkCases() {
    static const std::vector<FrameCase> cases = {
        // Text information frames: single-byte text loses its zero bytes and
        // keeps a line feed as a character; UTF-16 text stops at its first
        // zero unit, a line feed in it is a break.
        {"TIT2_strings_run_together", 3, "TIT2", Raw({0, 'A', 'B', 0, 'C', 0x0A, 'D'}), Field(118, Chars("ABC\nD"))},
        {"TPE1_only_first_utf16_string", 3, "TPE1", Raw({1, 0xFF, 0xFE, 'A', 0, 0x0A, 0, 0, 0, 'B', 0}),
         Field(132, Utf16(Chars("A") + LineBreak()))},
        {"TIT2_encoding_3_takes_first_bytes_as_mark", 4, "TIT2", Raw({3, 'A', 'B', 'C', 0}),
         Field(118, Utf16(Codes({0x4300})))},
        {"TIT2_utf16_lone_last_byte_not_read", 3, "TIT2", Raw({1, 0xFF, 0xFE, 'A', 0, 'B'}),
         Field(118, Utf16(Chars("A")))},
        {"TIT2_empty_body", 3, "TIT2", {}, Field(118, {})},

        // Frames the walker emits itself: numbers go out as raw bytes.
        {"AENC_owner_and_preview", 3, "AENC", Raw({0x6F, 0, 0x00, 0x10, 0x00, 0x20, 0xAA, 0xBB}),
         Field(77, Codes({0x6F, 0x20, 0x00, 0x10, 0x20, 0x00, 0x20}))},
        {"AENC_owner_runs_to_body_end", 3, "AENC", Raw({'o', 'w'}),
         Field(77, Chars("ow") + Codes({0x20, 0, 0, 0x20, 0, 0}))},
        {"APIC_single_byte", 3, "APIC", Raw({0, 0x69, 0x2F, 0x6A, 0, 3, 0x63, 0x0A, 0, 0xFF, 0xD8}),
         Field(78, Codes({0x69, 0x2F, 0x6A, 0x20, 3, 0x20, 0x63, 0x0A}))},
        {"APIC_empty_mime_utf16_description", 3, "APIC", Raw({1, 0, 3, 0xFF, 0xFE, 0x41, 0, 0, 0}),
         Field(78, Codes({0x20, 3, 0x20}) + Utf16(Chars("A")))},
        {"ASPI_fields_then_spaced_points", 4, "ASPI", Raw({0, 0, 0, 0x0A, 0, 0, 1, 0, 0, 2, 8, 0x7F, 0x80}),
         Field(79, Codes({0, 0, 0, 0x0A, 0x20, 0, 0, 1, 0, 0x20, 0, 2, 0x20, 8, 0x20, 0x7F, 0x20, 0x80, 0x20}))},
        {"ASPI_body_shorter_than_fixed_fields", 4, "ASPI", Raw({1, 2, 3}),
         Field(79, Codes({1, 2, 3, 0, 0x20, 0, 0, 0, 0, 0x20, 0, 0, 0x20, 0, 0x20}))},
        {"CNT_is_the_play_counter", 2, "CNT", Raw({0, 0, 1, 0x2C}), Field(94, Codes({0, 0, 1, 0x2C}))},
        {"SEEK_bytes", 4, "SEEK", Raw({0, 0, 0x40, 0}), Field(101, Codes({0, 0, 0x40, 0}))},

        // URL links: every byte of the body, a terminator included.
        {"WOAR_every_byte", 3, "WOAR", Raw({0x61, 0x2E, 0x63, 0}), Field(157, Codes({0x61, 0x2E, 0x63, 0}))},

        // User-defined frames: a field numbered frameCount + 500 named by
        // its description.
        {"TXXX_value_keeps_zero_and_line_feed", 3, "TXXX", Raw({0, 'A', 'B', 0, '1', 0x0A, 0}),
         UserField(Chars("AB"), Codes({'1', 0x0A, 0}))},
        {"TXXX_empty_description", 3, "TXXX", Raw({0, 0, 'v'}), UserField({}, Chars("v"))},
        {"TXXX_description_runs_to_body_end", 3, "TXXX", Raw({0, 'A', 0x0A}), UserField(Chars("A\n"), {})},
        {"TXXX_utf16_value_has_its_own_mark", 3, "TXXX",
         Raw({1, 0xFF, 0xFE, 'd', 0, 0, 0, 0xFE, 0xFF, 0, 'v', 0, 0x0A}),
         UserField(Utf16(Chars("d")), Utf16(Chars("v") + LineBreak()))},
        {"WXXX_url_is_single_byte", 3, "WXXX", Raw({1, 0xFF, 0xFE, 'd', 0, 0, 0, 'h', 0x0A, 0}),
         UserField(Utf16(Chars("d")), Codes({'h', 0x0A, 0}))},

        // Comments and lyrics: descriptor, a space, the text; a line feed is
        // a character in the descriptor and a break in the text.
        {"COMM_descriptor_and_text", 3, "COMM", Raw({0, 'e', 'n', 'g', 'a', 0x0A, 'c', 0, 'x', 0x0A, 'y'}),
         Field(80, Chars("a\nc ") + Chars("x") + LineBreak() + Chars("y"))},
        {"USLT_same_body", 3, "USLT", Raw({0, 'e', 'n', 'g', 'a', 0, 'x', 0x0A}),
         Field(153, Chars("a x") + LineBreak())},
        {"COMM_second_string_not_emitted", 3, "COMM", Raw({0, 'e', 'n', 'g', 0, 'x', 0, 'y'}), Field(80, Chars(" x"))},
        {"COMM_utf16_each_string_has_its_mark", 3, "COMM",
         Raw({1, 'e', 'n', 'g', 0xFF, 0xFE, 'd', 0, 0, 0, 0xFE, 0xFF, 0, 'x', 0, 0x0A, 0, 'y'}),
         Field(80, Utf16(Chars("d x") + LineBreak() + Chars("y")))},
    };
    return cases;
}

INSTANTIATE_TEST_SUITE_P(FrameText, FrameRows, ::testing::ValuesIn(TextAndLinkCases()), CaseName);

// Every text and URL link identifier, in both forms, opens its field: the
// fields of a group are numbered one after another from the group's first,
// and "-" marks a frame ID3v2.2 does not have.
TEST(FrameFieldNumbers, TextAndUrlIdentifiersInBothForms) {
    const struct {
        uint32_t first;
        const char *v34, *v22;
    } groups[] = {
        {105,
         "TALB TBPM TCOM TCON TCOP TDAT TDLY TENC TEXT TFLT TIME TIPL TIT1 TIT2 TIT3 TKEY TLAN TLEN TMCL TMOO TMED "
         "TOAL TOFN TOLY TOPE TORY TOWN TPE1 TPE2 TPE3 TPE4 TPOS TPRO TPUB TRCK TRDA TRSN TRSO TSIZ TSRC TSOA TSOP "
         "TSOT TSSE TSST TYER",
         "TAL TBP TCM TCO TCR TDA TDI TEN TXT TFT TIM - TT1 TT2 TT3 TKE TLA TLE - - TMT TOT TOF TOL TOA TOR - TP1 TP2 "
         "TP3 TP4 TPA - TPB TRK TRD - - TSI TRS - - - TSS - TYE"},
        {154, "WCOM WCOP WOAF WOAR WOAS WORS WPAY WPUB", "WCM WCP WAF WAR WAS - - WPB"},
    };
    for (const int major : {2, 3, 4}) {
        Bytes frames;
        Calls expected;
        uint32_t number = 0;
        for (const auto& group : groups) {
            std::istringstream ids(major == 2 ? group.v22 : group.v34);
            uint32_t field = group.first;
            for (std::string id; ids >> id; ++field) {
                if (id == "-") continue;
                frames += Frame(major, id, Raw({0, 'x'}));
                ++number;
                const Calls content = id[0] == 'T' ? Chars("x") : Codes({0, 'x'});
                expected += BeginFrame(number, field) + content + EndFrame(number) + FrameBreak();
            }
        }
        EXPECT_EQ(ReadTag(major, frames), expected + EndBreak()) << major;
    }
    // User-defined and involved-people identifiers name no field, nor does
    // an unknown one.
    using kz::FrameId;
    for (const uint32_t id : {FrameId("TXXX"), FrameId("WXX"), FrameId("IPLS"), FrameId("IPL"), FrameId("XYZW")})
        EXPECT_EQ(kz::FieldNumberOf(id), 0u) << std::hex << id;
}

}  // namespace kztest
