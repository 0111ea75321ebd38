// Entry table, information answers, context allocation and the routine map.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cctype>
#include <set>
#include <string>
#include <vector>

#include "filter/context.h"
#include "kz_id3.h"
#include "kz_sys.h"
#include "recording_host.h"

namespace {

using namespace kztest;

void Sentinel() {}
const VwEntry kSentinel = &Sentinel;
constexpr size_t kTableSlots = 40;  // four more than the module may write
using EntryTable = std::array<VwEntry, kTableSlots>;

template <typename F>
VwEntry Entry(F* function) {
    return reinterpret_cast<VwEntry>(function);
}

EntryTable ExpectedTable(uint16_t level) {
    EntryTable t;
    t.fill(kSentinel);
    t[34] = t[35] = nullptr;
    if (level == 0) return t;
    const VwEntry first[] = {
        Entry(&VwStreamOpen), Entry(&VwStreamSection), Entry(&VwStreamRead),
        Entry(&VwStreamTell), Entry(&VwStreamSeek),    Entry(&VwGetInfo),
        Entry(&VwGetData),    Entry(&VwSetData),       Entry(&VwLocalUp),
        Entry(&VwLocalDown),  Entry(&VwAllocProc),     Entry(&VwFreeProc),
        Entry(&VwSetUser),    Entry(&VwSetSoRtn),      Entry(&VwStreamClose),
    };
    for (size_t i = 0; i < std::size(first); ++i) t[i] = first[i];
    t[15] = t[16] = nullptr;
    t[17] = Entry(&VwStreamReadRecord);
    if (level > 18) t[18] = Entry(&VwDoSpecial);
    if (level > 22) std::fill(t.begin() + 19, t.begin() + 23, nullptr);
    if (level > 29) std::fill(t.begin() + 23, t.begin() + 34, nullptr);
    return t;
}

class GetRtnsLevel : public ::testing::TestWithParam<uint16_t> {};

TEST_P(GetRtnsLevel, WritesExactlyTheEntriesOfItsLevel) {
    EntryTable table;
    table.fill(kSentinel);
    VwGetRtns(table.data(), GetParam());
    const EntryTable expected = ExpectedTable(GetParam());
    for (size_t i = 0; i < kTableSlots; ++i) EXPECT_EQ(table[i], expected[i]) << "entry " << i;
}

INSTANTIATE_TEST_SUITE_P(Levels, GetRtnsLevel,
                         ::testing::Values(0, 1, 18, 19, 22, 23, 29, 30, 0xFFFF));

struct InfoCase {
    uint16_t id;
    int32_t result;
    Bytes written;  // native byte order
};

Bytes U16(uint16_t v) { return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)}; }
Bytes U32(uint32_t v) { return U16(static_cast<uint16_t>(v)) + U16(static_cast<uint16_t>(v >> 16)); }

TEST(GetInfo, AnswersItsTableAndWritesNothingElse) {
    Bytes typeIds;
    for (uint16_t id = 1706; id <= 1715; ++id) typeIds += U16(id);
    const InfoCase cases[] = {
        {0, 0, {}},          {1, 1, U16(36)},  {2, 1, U16(16428)}, {3, 1, U16(0)},
        {4, 1, U16(400)},    {5, 1, U16(440)}, {6, 1, U16(10)},    {7, 1, typeIds},
        {10, 1, U16(0)},     {11, 1, U16(0)},  {12, 1, U32(0x12345678)},
        {13, 1, U32(0)},     {14, 0, {}},      {15, 0, {}},        {0xFFFF, 0, {}},
    };
    for (const auto& c : cases) {
        Bytes destination(64, 0xAA);
        EXPECT_EQ(VwGetInfo(destination.data(), c.id), c.result) << "info " << c.id;
        Bytes expected = c.written;
        expected.resize(64, 0xAA);
        EXPECT_EQ(destination, expected) << "info " << c.id;
    }
}

// Each character against its pattern character: 'A' an upper-case letter,
// 'a' a lower-case letter, '9' a digit, '_' a digit or a space, else itself.
bool Matches(std::string_view text, std::string_view pattern) {
    const auto fits = [](char t, char p) {
        const auto c = static_cast<unsigned char>(t);
        return p == 'A' ? std::isupper(c) != 0 : p == 'a' ? std::islower(c) != 0
             : p == '9' ? std::isdigit(c) != 0 : p == '_' ? c == ' ' || std::isdigit(c) : t == p;
    };
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(), fits);
}

TEST(GetInfo, BuildDateAndTimeHaveTheirFixedForms) {
    const std::pair<uint16_t, const char*> cases[] = {
        {VW_INFO_BUILD_DATE, "Aaa _9 9999"},
        {VW_INFO_BUILD_TIME, "99:99:99"},
    };
    for (const auto& [id, form] : cases) {
        char text[16];
        std::memset(text, 0x55, sizeof text);
        EXPECT_EQ(VwGetInfo(text, id), 1);
        EXPECT_TRUE(Matches(text, form)) << text;
        EXPECT_EQ(text[std::strlen(text) + 1], 0x55) << "nothing written after the NUL";
    }
}

TEST(InertEntryPoints, DoNothingBeyondTheirOneEffect) {
    EXPECT_EQ(VwDoSpecial(), 0);
    uint64_t out = 0;
    VwLocalDown(0x0123456789ABCDEFull, &out);
    EXPECT_EQ(out, 0x0123456789ABCDEFull);
}

// ---- Context allocation ---------------------------------------------------------

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

// ---- Routine map ------------------------------------------------------------------

// Where each identifier lands in the routine slots is the module's own
// choice; what counts is that each identifier but 0, 119, 120 and those
// above 148 has a slot of its own, filled with the default by VwLocalUp and
// by a null routine.
TEST(RoutineMap, EachIdentifierReachesASlotOfItsOwn) {
    VwContext* context = VwAllocProc();
    ASSERT_NE(context, nullptr);
    SORoutine* const slots = kz::ToContext(context)->routines;
    const SORoutine dummy = reinterpret_cast<SORoutine>(&SODummy);
    const SORoutine marker = reinterpret_cast<SORoutine>(&Sentinel);
    uint64_t out = 0;
    VwLocalUp(0xFEEDFACEull, &out, context);
    EXPECT_EQ(out, 0xFEEDFACEull);
    const std::vector<SORoutine> afterLocalUp(slots, slots + 148);
    std::set<long> reached;
    for (int id = 0; id <= 150; ++id) {
        VwSetSoRtn(static_cast<uint16_t>(id), marker, context);
        const auto slot = std::find(slots, slots + 148, marker);
        const bool ignored = id == 0 || id == 119 || id == 120 || id > 148;
        EXPECT_EQ(slot == slots + 148, ignored) << "identifier " << id;
        if (slot == slots + 148) continue;
        EXPECT_EQ(std::find(slot + 1, slots + 148, marker), slots + 148) << "identifier " << id;
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
