// Entry table, information answers, context allocation and the routine map.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cctype>
#include <set>
#include <vector>

#include "filter/context.h"
#include "kz_id3.h"
#include "kz_sys.h"
#include "recording_host.h"

namespace {

using namespace kztest;

void Sentinel() {}
const VwEntry kSentinel = &Sentinel;
using EntryTable = std::array<VwEntry, 40>;  // four more slots than the module may write

template <typename F>
VwEntry Entry(F* function) {
    return reinterpret_cast<VwEntry>(function);
}

class GetRtnsLevel : public ::testing::TestWithParam<uint16_t> {};

TEST_P(GetRtnsLevel, WritesExactlyTheEntriesOfItsLevel) {
    const uint16_t level = GetParam();
    EntryTable table, expected;
    table.fill(kSentinel);
    expected.fill(kSentinel);
    expected[34] = expected[35] = nullptr;
    if (level > 0) {
        const VwEntry first[] = {
            Entry(&VwStreamOpen), Entry(&VwStreamSection), Entry(&VwStreamRead), Entry(&VwStreamTell),
            Entry(&VwStreamSeek), Entry(&VwGetInfo),       Entry(&VwGetData),    Entry(&VwSetData),
            Entry(&VwLocalUp),    Entry(&VwLocalDown),     Entry(&VwAllocProc),  Entry(&VwFreeProc),
            Entry(&VwSetUser),    Entry(&VwSetSoRtn),      Entry(&VwStreamClose), nullptr,
            nullptr,              Entry(&VwStreamReadRecord)};
        std::copy(std::begin(first), std::end(first), expected.begin());
        if (level > 18) expected[18] = Entry(&VwDoSpecial);
        if (level > 22) std::fill(expected.begin() + 19, expected.begin() + 23, nullptr);
        if (level > 29) std::fill(expected.begin() + 23, expected.begin() + 34, nullptr);
    }
    VwGetRtns(table.data(), level);
    for (size_t i = 0; i < table.size(); ++i) EXPECT_EQ(table[i], expected[i]) << "entry " << i;
}

INSTANTIATE_TEST_SUITE_P(Levels, GetRtnsLevel, ::testing::Values(0, 1, 18, 19, 22, 23, 29, 30, 0xFFFF));

Bytes U16(uint16_t v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)}; }  // native order

TEST(GetInfo, AnswersItsTableAndWritesNothingElse) {
    Bytes typeIds;
    for (uint16_t id = 1706; id <= 1715; ++id) typeIds += U16(id);
    const struct {
        uint16_t id;
        int32_t result;
        Bytes written;
    } cases[] = {
        {0, 0, {}},       {1, 1, U16(36)},  {2, 1, U16(16428)}, {3, 1, U16(0)},
        {4, 1, U16(400)}, {5, 1, U16(440)}, {6, 1, U16(10)},    {7, 1, typeIds},
        {10, 1, U16(0)},  {11, 1, U16(0)},  {12, 1, U16(0x5678) + U16(0x1234)},
        {13, 1, U16(0) + U16(0)},           {14, 0, {}},        {15, 0, {}},      {0xFFFF, 0, {}},
    };
    for (const auto& c : cases) {
        Bytes destination(64, 0xAA);
        EXPECT_EQ(VwGetInfo(destination.data(), c.id), c.result) << "info " << c.id;
        Bytes expected = c.written;
        expected.resize(64, 0xAA);
        EXPECT_EQ(destination, expected) << "info " << c.id;
    }
    // The build date and time in their fixed forms ('A' an upper-case letter, 'a' a lower-case one, '9' a
    // digit, '_' a digit or a space), nothing after the NUL.
    for (const auto& [id, form] : {std::pair{VW_INFO_BUILD_DATE, "Aaa _9 9999"}, {VW_INFO_BUILD_TIME, "99:99:99"}}) {
        char text[16];
        std::memset(text, 0x55, sizeof text);
        EXPECT_EQ(VwGetInfo(text, id), 1);
        ASSERT_EQ(std::strlen(text), std::strlen(form)) << text;
        for (size_t i = 0; form[i] != 0; ++i) {
            const auto c = static_cast<unsigned char>(text[i]);
            const char p = form[i];
            EXPECT_TRUE(p == 'A'   ? std::isupper(c) != 0
                        : p == 'a' ? std::islower(c) != 0
                        : p == '9' ? std::isdigit(c) != 0
                        : p == '_' ? c == ' ' || std::isdigit(c) != 0
                                   : c == p) << text;
        }
        EXPECT_EQ(text[std::strlen(text) + 1], 0x55) << text;
    }
}

TEST(InertEntryPoints, DoNothingBeyondTheirOneEffect) {
    EXPECT_EQ(VwDoSpecial(), 0);
    uint64_t out = 0;
    VwLocalDown(0x0123456789ABCDEFull, &out);
    EXPECT_EQ(out, 0x0123456789ABCDEFull);
}

// A refused allocation, or a refused lock (the handle is freed): null, which
// VwFreeProc takes and ignores.
TEST(ContextAllocation, RefusedAllocationOrLockGivesNull) {
    const int64_t before = KzSysLiveBlocks();
    KzSysFailAllocationsAfter(0);
    EXPECT_EQ(VwAllocProc(), nullptr);
    VwFreeProc(nullptr);
    KzSysResetFaults();
    KzSysFailLocks(1);
    EXPECT_EQ(VwAllocProc(), nullptr);
    KzSysResetFaults();
    EXPECT_EQ(KzSysLiveBlocks(), before);
}

// Where each identifier lands in the routine slots is the module's own
// choice; what counts is that each identifier but 0, 119, 120 and those
// above 148 has a slot of its own, filled with the default by VwLocalUp and
// by a null routine.
TEST(RoutineMap, EachIdentifierReachesASlotOfItsOwn) {
    VwContext* context = VwAllocProc();
    ASSERT_NE(context, nullptr);
    SORoutine* const slots = kz::ToContext(context)->routines;
    SORoutine* const end = slots + 148;
    const SORoutine dummy = reinterpret_cast<SORoutine>(&SODummy), marker = reinterpret_cast<SORoutine>(&Sentinel);
    uint64_t out = 0;
    VwLocalUp(0xFEEDFACEull, &out, context);
    EXPECT_EQ(out, 0xFEEDFACEull);
    const std::vector<SORoutine> afterLocalUp(slots, end);
    std::set<long> reached;
    for (int id = 0; id <= 150; ++id) {
        VwSetSoRtn(static_cast<uint16_t>(id), marker, context);
        const auto slot = std::find(slots, end, marker);
        EXPECT_EQ(slot == end, id == 0 || id == 119 || id == 120 || id > 148) << "identifier " << id;
        if (slot == end) continue;
        EXPECT_EQ(std::find(slot + 1, end, marker), end) << "identifier " << id;
        EXPECT_TRUE(reached.insert(slot - slots).second) << "identifier " << id;
        EXPECT_EQ(afterLocalUp[slot - slots], dummy) << "identifier " << id;
        VwSetSoRtn(static_cast<uint16_t>(id), nullptr, context);
        EXPECT_EQ(*slot, dummy) << "identifier " << id;
    }
    // The two slots no identifier reaches stay empty.
    for (long i = 0; i < 148; ++i) EXPECT_EQ(afterLocalUp[i], reached.count(i) ? dummy : nullptr) << i;
    EXPECT_EQ(reached.size(), 146u);
    VwFreeProc(context);
}

}  // namespace
