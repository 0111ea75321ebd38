// Synchronised lyrics, event timing, equalisation, relative volume, reverb,
// buffer size, location table and position synchronisation frames.
#include "frame_cases.h"

namespace kztest {

const std::vector<FrameCase>& TimingCases() {
    static const std::vector<FrameCase> cases = {
        // Synchronised lyrics: descriptor, a space, the items without their
        // time stamps; a line feed is a character in the descriptor and a
        // break in an item; an item's last byte is read only with a byte
        // after it.
        {"SYLT_single_byte", 3, "SYLT",
         Raw({0, 'e', 'n', 'g', 2, 1, 'L', 0x0A, 0, 'H', 'e', 'l', 0, 0, 0, 0, 0x10, 0x0A, 'l', 'o', 0, 0, 0, 0, 0x20}),
         Field(103, Chars("L\n Hel") + LineBreak() + Chars("lo"))},
        {"SYLT_utf16_little_endian_item_mark_is_a_character", 3, "SYLT",
         Raw({1, 'e', 'n', 'g', 2, 1, 0xFF, 0xFE, 'D', 0, 0, 0, 0xFF, 0xFE, 'H', 0, 'i', 0, 0, 0, 0, 0, 0, 0x10}),
         Field(103, Utf16(Chars("D ") + Codes({0xFEFF}) + Chars("Hi")))},
        {"SYLT_encoding_3_takes_descriptor_bytes_as_mark", 4, "SYLT",
         Raw({3, 'e', 'n', 'g', 2, 1, 0, 'A', 0, 0, 0, 'B', 0, 0, 0, 0, 0, 1}), Field(103, Utf16(Chars(" B")))},
        {"SYLT_utf16_item_cut_by_body_end", 3, "SYLT", Raw({1, 'e', 'n', 'g', 2, 1, 0xFF, 0xFE, 0, 0, 'A', 0, 'B'}),
         Field(103, Utf16(Chars(" A")))},
        {"SYLT_item_without_terminator_loses_last_byte", 3, "SYLT", Raw({0, 'e', 'n', 'g', 2, 1, 0, 'A', 'B', 'C'}),
         Field(103, Chars(" AB"))},

        // Event timing: every byte after the format byte, each and a space.
        {"ETCO_events", 3, "ETCO", Raw({2, 3, 0, 0, 1, 0xF4}),
         Field(85, Codes({3, 0x20, 0, 0x20, 0, 0x20, 1, 0x20, 0xF4, 0x20}))},

        // Equalisation.
        {"EQU2_identification_and_points", 4, "EQU2", Raw({1, 'a', 'b', 0, 0, 0x64, 0xFE, 0, 0x12, 0x34, 0x56, 0x78}),
         Field(84, Codes({1, 0x20, 'a', 'b', 0x20, 0, 0x64, 0x20, 0xFE, 0, 0x20, 0x12, 0x34, 0x20, 0x56, 0x78, 0x20}))},
        {"EQU2_final_point_cut", 4, "EQU2", Raw({0, 0, 0, 0x64, 0xFE}),
         Field(84, Codes({0, 0x20, 0x20, 0, 0x64, 0x20, 0xFE, 0, 0x20}))},
        {"EQUA_units_split_into_flag_and_frequency", 3, "EQUA", Raw({0x10, 0x80, 0x64, 0, 0x20}),
         Field(83, Codes({0x10, 0x20, 0x80, 0x20, 0, 0x20, 0x64, 0x20, 0, 0x20, 0, 0x20, 0x20, 0x20}))},
        {"EQUA_final_unit_cut_in_v24_tag", 4, "EQUA", Raw({0x10, 0x80, 0x64, 0xFF}),
         Field(83, Codes({0x10, 0x20, 0x80, 0x20, 0, 0x20, 0x64, 0x20, 0x80, 0x20, 0x7F, 0x20, 0, 0x20}))},

        // Relative volume: RVA2 records are 5 bytes whatever the peak width.
        {"RVA2_16_bit_peak_spills_into_next_record", 4, "RVA2", Raw({'v', 0, 1, 0xFC, 0, 0x10, 0x7F, 0x7F, 2, 0, 0, 8}),
         Field(99, Chars("v") + Codes({1, 0x20, 0xFC, 0, 0x20, 0x10, 0x20, 0x7F, 0x20}) +
                       Codes({0x7F, 0x20, 2, 0, 0x20, 0, 0x20, 8, 0x20}))},
        {"RVA2_final_record_cut", 4, "RVA2", Raw({0, 1, 0xFC}),
         Field(99, Codes({1, 0x20, 0xFC, 0, 0x20, 0, 0x20, 0, 0x20}))},
        {"RVAD_two_values", 3, "RVAD", Raw({3, 0x10, 0, 0x40, 0, 0x40}),
         Field(98, Codes({3, 0x20, 0x10, 0x20, 0, 0x40, 0x20, 0, 0x40, 0x20}))},
        {"RVAD_final_value_cut", 3, "RVAD", Raw({3, 0x10, 0x7F}),
         Field(98, Codes({3, 0x20, 0x10, 0x20, 0x7F, 0, 0x20}))},

        // Reverb, buffer size, location table and position synchronisation:
        // fixed layouts, then for the last two the rest of the body.
        {"RVRB_all_fields", 3, "RVRB", Raw({0, 0x64, 0, 0x64, 3, 3, 0x40, 0, 0x40, 0, 0x10, 0x10, 0xAA}),
         Field(100, Codes({0, 0x64, 0x20, 0, 0x64, 0x20, 3, 0x20, 3, 0x20, 0x40, 0x20, 0, 0x20, 0x40, 0x20, 0, 0x20}) +
                        Codes({0x10, 0x20, 0x10}))},
        {"RBUF_all_fields", 4, "RBUF", Raw({0, 0x10, 0, 1, 0, 0, 4, 0, 0xAA}),
         Field(97, Codes({0, 0x10, 0, 0x20, 1, 0x20, 0, 0, 4, 0}))},
        {"MLLT_fields_then_table_run_together", 3, "MLLT", Raw({0, 1, 0, 1, 0xA1, 0, 0, 0x1A, 8, 8, 0x11, 0x22}),
         Field(91, Codes({0, 1, 0x20, 0, 1, 0xA1, 0x20, 0, 0, 0x1A, 0x20, 8, 8, 0x11, 0x22}))},
        {"POSS_format_and_position", 4, "POSS", Raw({2, 0, 0, 0x10, 0}), Field(96, Codes({2, 0x20, 0, 0, 0x10, 0}))},
    };
    return cases;
}

INSTANTIATE_TEST_SUITE_P(FrameTiming, FrameRows, ::testing::ValuesIn(TimingCases()), CaseName);

}  // namespace kztest
