// Commercial, ownership, terms of use, encapsulated object, registration,
// involved people, linked information, popularimeter, private and unique
// file identifier frames.
#include "frame_cases.h"

namespace kztest {

const std::vector<FrameCase>& DescriptiveCases() {
    const Bytes date = Latin1("20200101");
    static const std::vector<FrameCase> cases = {
        // Commercial: price, date, URL, received-as, seller, description,
        // MIME type; the logo stays.
        {"COMR_single_byte", 3, "COMR",
         Raw({0, '$', '1', 0}) + date + Raw({'x', 0, 1, 'S', 0, 'D', 0, 'i', 0, 0xFF, 0xD8}),
         Field(81, Chars("$1 20200101 x ") + Codes({1}) + Chars(" S D i"))},
        {"COMR_utf16_seller_and_description_only", 4, "COMR",
         Raw({1, '$', 0}) + date + Raw({'x', 0, 3, 0xFF, 0xFE, 'S', 0, 0, 0, 0xFE, 0xFF, 0, 'D', 0, 0, 'i', 0}),
         Field(81, Chars("$ 20200101 x ") + Codes({3}) + Sp() + Utf16(Chars("S D ")) + Chars("i"))},
        {"COMR_body_ends_in_price", 3, "COMR", Raw({0, '$'}),
         Field(81, Chars("$ ") + Codes({0, 0, 0, 0, 0, 0, 0, 0}) + Chars("  ") + Codes({0}) + Chars("   "))},

        // Ownership: price, date, then the seller to the end of the body.
        {"OWNE_seller_keeps_zero", 3, "OWNE", Raw({0, '1', '0', 0}) + date + Raw({'S', 0x0A, 0}),
         Field(92, Chars("10 20200101 S\n") + Codes({0}))},
        {"OWNE_utf16_seller", 3, "OWNE", Raw({1, 0}) + date + Raw({0xFF, 0xFE, 'S', 0, 0x0A, 0}),
         Field(92, Chars(" 20200101 ") + Utf16(Chars("S") + LineBreak()))},

        // Terms of use: the text after the language, a zero byte a character,
        // a line feed a break.
        {"USER_single_byte", 3, "USER", Raw({0, 'e', 'n', 'g', 'A', 0, 'B', 0x0A, 'C'}),
         Field(152, Codes({'A', 0, 'B'}) + LineBreak() + Chars("C"))},
        {"USER_utf16", 4, "USER", Raw({1, 'e', 'n', 'g', 0xFE, 0xFF, 0, 'A', 0, 0x0A, 0, 0, 0, 'B'}),
         Field(152, Utf16(Chars("A") + LineBreak()))},

        // Encapsulated object: MIME type, file name, description.
        {"GEOB_single_byte", 3, "GEOB", Raw({0, 't', '/', 'p', 0, 'f', '.', 't', 0, 'd', 0, 0xDE, 0xAD}),
         Field(86, Chars("t/p f.t d"))},
        {"GEOB_utf16_space_inside_utf16", 3, "GEOB",
         Raw({1, 't', 0, 0xFF, 0xFE, 'f', 0, 0, 0, 0xFE, 0xFF, 0, 'd', 0, 0, 0x99}),
         Field(86, Chars("t ") + Utf16(Chars("f d")))},

        // Registrations: owner, a space, the symbol byte.
        {"GRID_owner_and_symbol", 3, "GRID", Raw({'o', 'w', 'n', 0, 0x81, 0xAA, 0xBB}),
         Field(87, Chars("own ") + Codes({0x81}))},
        {"ENCR_owner_runs_to_body_end", 4, "ENCR", Raw({'o', 'w'}), Field(82, Codes({'o', 'w', 0x20, 0}))},

        // Involved people: no field, a space after every string, the strings
        // taken pair by pair.
        {"IPLS_odd_list_ends_with_two_spaces", 3, "IPLS", Raw({0, 'a', 0, 'b', 0, 'c', 0}), Chars("a b c  ")},
        {"IPLS_utf16_odd_list_runs_to_body_end", 3, "IPLS",
         Raw({1, 0xFE, 0xFF, 0, 'a', 0, 0, 0xFE, 0xFF, 0, 'b', 0, 0, 0xFF, 0xFE, 'c', 0, 0, 0}),
         Utf16(Chars("a b c  "))},

        // Linked information: identifier, URL, data with its zero bytes.
        {"LINK_identifier_url_data", 3, "LINK", Raw({'T', 'A', 'L', 'B', 'x', 0, 'i', 0, 'd'}),
         Field(89, Chars("TALB x ") + Codes({'i', 0, 'd'}))},
        {"LINK_body_ends_in_identifier", 3, "LINK", Raw({'T', 'A'}), Field(89, Codes({'T', 'A', 0, 0, 0x20, 0x20}))},

        // Popularimeter, private frame, unique file identifier.
        {"POPM_email_rating_counter", 3, "POPM", Raw({'a', '@', 'b', 0, 0xC4, 0, 0, 1, 2}),
         Field(95, Chars("a@b ") + Codes({0xC4, 0x20, 0, 0, 1, 2}))},
        {"PRIV_owner_runs_to_body_end", 4, "PRIV", Raw({'o', 'w'}), Field(93, Chars("ow"))},
        {"UFID_owner_and_identifier", 3, "UFID", Raw({'h', 0, '1', '2', 0}),
         Field(151, Codes({'h', 0x20, '1', '2', 0}))},
    };
    return cases;
}

INSTANTIATE_TEST_SUITE_P(FrameDescriptive, FrameRows, ::testing::ValuesIn(DescriptiveCases()), CaseName);

}  // namespace kztest
