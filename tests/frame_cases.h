// The frame handler tests: a case is one frame (tag version, identifier,
// body) and the exact host calls expected for it as the first frame of a
// tag.  Every case is read whole through the module, and a small title frame
// follows it: its output shows that the next header was read right where the
// case's body ended.
#ifndef KZ_TESTS_FRAME_CASES_H
#define KZ_TESTS_FRAME_CASES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "filter/context.h"
#include "recording_host.h"

namespace kztest {

struct FrameCase {
    std::string name;
    int major;
    std::string id;
    Bytes body;
    Calls expected;  // as frame number 1
};

inline void PrintTo(const FrameCase& c, std::ostream* os) { *os << c.name; }
inline std::string CaseName(const ::testing::TestParamInfo<FrameCase>& info) { return info.param.name; }

// The case tables, one per group of handlers.
const std::vector<FrameCase>& TextAndLinkCases();
const std::vector<FrameCase>& DescriptiveCases();
const std::vector<FrameCase>& TimingCases();

// The three-letter form of an identifier ID3v2.2 also has, else "".
inline std::string ThreeLetterForm(const std::string& id) {
    static const std::map<std::string, std::string> forms = {
        {"AENC", "CRA"}, {"COMM", "COM"}, {"EQUA", "EQU"}, {"ETCO", "ETC"}, {"GEOB", "GEO"}, {"IPLS", "IPL"},
        {"MLLT", "MLL"}, {"PCNT", "CNT"}, {"POPM", "POP"}, {"RBUF", "BUF"}, {"RVRB", "REV"}, {"SYLT", "SLT"},
        {"TIT2", "TT2"}, {"TXXX", "TXX"}, {"UFID", "UFI"}, {"USLT", "ULT"}, {"WOAR", "WAR"}, {"WXXX", "WXX"}};
    const auto form = forms.find(id);
    return form == forms.end() ? "" : form->second;
}

inline Calls Sp() { return Codes({0x20}); }
inline Calls LineBreak() { return {"special 5"}; }

// The field of frame number 1.
inline Calls Field(uint32_t field, const Calls& content) { return BeginFrame(1, field) + content + EndFrame(1); }
// A user-defined frame as frame number 1: field and description numbered 501.
inline Calls UserField(const Calls& description, const Calls& value) {
    return Calls{"begin F 501 501", "begin S 501 501"} + description + Calls{"end S ffffffff"} + value +
           Calls{"end F 501"};
}

// Every call of a whole read of one tag.  frameBuffer is filled with 0xEE
// once the stream is open, so a byte taken from outside a body would show.
inline Calls ReadTag(int major, const Bytes& frames) {
    Session s(Tag(major, frames));
    s.Start();
    std::memset(s.ctx()->frameBuffer, 0xEE, kz::kFrameBufferSize);
    s.ReadToEnd();
    return s.host.Take();
}

inline Bytes TitleFrame(int major) { return Frame(major, major == 2 ? "TT2" : "TIT2", Raw({0, 'Z'})); }
// What the title frame after the case's frame gives, and the end of the read.
inline Calls AfterCase() { return FrameBreak() + TextField(2, 118, "Z") + FrameBreak() + EndBreak(); }

// Compares call lists, showing only the first difference (some lists are
// 70,000 calls long).
inline void ExpectCalls(const Calls& actual, const Calls& expected) {
    const auto [a, e] = std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    EXPECT_TRUE(a == actual.end() && e == expected.end())
        << "calls differ at " << a - actual.begin() << ": " << (a != actual.end() ? *a : "<end>") << " instead of "
        << (e != expected.end() ? *e : "<end>");
}
// The case read with the title frame after it.
inline void ExpectCase(const FrameCase& c) {
    ExpectCalls(ReadTag(c.major, Frame(c.major, c.id, c.body) + TitleFrame(c.major)), c.expected + AfterCase());
}

class FrameRows : public ::testing::TestWithParam<FrameCase> {};

}  // namespace kztest

#endif  // KZ_TESTS_FRAME_CASES_H
