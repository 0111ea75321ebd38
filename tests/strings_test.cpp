// String output: UTF-16 text with a byte-order mark and strings led by a
// text encoding byte.  Bodies are allocated at exactly their size, so that a
// read past the end shows up under the address sanitizer.
#include <gtest/gtest.h>

#include <memory>

#include "filter/context.h"
#include "id3v2/strings.h"
#include "kz_id3.h"
#include "recording_host.h"

namespace {

using namespace kztest;

struct Utf16Case {
    const char* name;
    Bytes body;
    uint32_t start;
    int32_t limit;
    Calls expected;
    uint16_t order;  // 7: left as it was
    uint32_t result;
};

TEST(StringOutput, Utf16Text) {
    Session s({});
    const Utf16Case cases[] = {
        {"little-endian with terminator", Raw({0xFF, 0xFE, 0x41, 0, 0x42, 0, 0, 0}), 0, 8,
         Chars("AB"), 1, 8},
        {"big-endian, line feed, no terminator", Raw({0xFE, 0xFF, 0, 0x41, 0, 0x0A, 0, 0x42}), 0, 8,
         Chars("A") + Calls{"special 5"} + Chars("B"), 2, 8},
        {"missing mark: first unit taken as mark", Raw({0, 0x41, 0, 0x42, 0, 0}), 0, 6, Chars("B"), 2, 6},
        {"odd byte before the limit is not read", Raw({0xFF, 0xFE, 0x41, 0, 0x42}), 0, 5, Chars("A"), 1, 4},
        {"terminator ends the string early", Raw({0xFF, 0xFE, 0x41, 0, 0, 0, 0x42, 0}), 0, 8,
         Chars("A"), 1, 6},
        {"limit below the body size", Raw({0xFF, 0xFE, 0x41, 0, 0x42, 0}), 0, 4, Chars("A"), 1, 4},
        {"string after other fields", Raw({0x58, 0x58, 0xFF, 0xFE, 0x43, 0, 0, 0}), 2, 8,
         Chars("C"), 1, 8},
        {"surrogate pair as two units", Raw({0xFF, 0xFE, 0x3D, 0xD8, 0x00, 0xDE}), 0, 6,
         Calls{"char d83d", "char de00"}, 1, 6},
        {"FE FE is big-endian", Raw({0xFE, 0xFE, 0x41, 0x00}), 0, 4, Calls{"char 4100"}, 2, 4},
        {"mark alone", Raw({0xFF, 0xFE}), 0, 2, {}, 1, 2},
        {"mark cut by the limit", Raw({0x58, 0x58, 0x58, 0x58, 0xFF}), 4, 5, {}, 7, 6},
        {"start past the limit", Raw({0xFF, 0xFE, 0x41, 0}), 4, 3, {}, 7, 6},
        {"empty body", Raw({0xFF}), 0, 0, {}, 7, 2},
        {"negative limit", Raw({0xFF, 0xFE, 0x41, 0}), 0, -1, {}, 7, 2},
    };
    for (const auto& c : cases) {
        const auto body = std::make_unique<uint8_t[]>(c.body.size());
        std::copy(c.body.begin(), c.body.end(), body.get());
        s.ctx()->utf16Order = 7;
        EXPECT_EQ(kz::EmitUtf16Text(body.get(), c.start, c.limit, s.ctx()), c.result) << c.name;
        EXPECT_EQ(s.host.Take(), c.expected) << c.name;
        EXPECT_EQ(s.ctx()->utf16Order, c.order) << c.name;
    }
}

struct EncodedCase {
    const char* name;
    Bytes body;
    int32_t limit;
    Calls content;  // between the bracket calls
    uint32_t result;
};

TEST(StringOutput, EncodedString) {
    Session s({});
    const EncodedCase cases[] = {
        {"single-byte with terminator", Raw({0, 0x41, 0x42, 0, 0x43}), 5, Chars("AB"), 4},
        {"single-byte ended by the limit", Raw({0, 0x41, 0x42}), 3, Chars("AB"), 4},
        {"single-byte stops at the limit", Raw({0, 0x41, 0x42, 0x43}), 3, Chars("AB"), 4},
        {"empty single-byte string", Raw({0, 0}), 2, {}, 2},
        {"limit 1", Raw({0}), 1, {}, 2},
        {"limit 0", Raw({0, 0x41}), 0, {}, 2},
        {"single-byte line feed stays a character", Raw({0, 0x41, 0x0A, 0x42, 0}), 5,
         Chars("A\nB"), 5},
        {"UTF-16 little-endian", Raw({1, 0xFF, 0xFE, 0x41, 0, 0, 0, 0x58}), 8,
         Utf16(Chars("A")), 7},
        {"encoding 2 takes the UTF-16 path", Raw({2, 0xFE, 0xFF, 0, 0x0A, 0, 0x43, 0, 0}), 9,
         Utf16(Calls{"special 5"} + Chars("C")), 9},
        {"encoding 3 with no mark", Raw({3, 0x41, 0x42, 0x43, 0}), 5, Utf16(Calls{"char 4300"}), 5},
        {"UTF-16 mark cut by the limit", Raw({1, 0xFF}), 2, Utf16({}), 3},
    };
    for (const auto& c : cases) {
        const auto body = std::make_unique<uint8_t[]>(c.body.size());
        std::copy(c.body.begin(), c.body.end(), body.get());
        s.ctx()->frameCount = 7;
        EXPECT_EQ(kz::EmitEncodedString(body.get(), c.limit, s.ctx()), c.result) << c.name;
        EXPECT_EQ(s.host.Take(), Calls{"begin S 507 507"} + c.content + Calls{"end S ffffffff"})
            << c.name;
        EXPECT_EQ(s.ctx()->frameCount, 7u) << c.name;
    }
}

}  // namespace
