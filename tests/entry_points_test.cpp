// Entry table, information answers, context allocation and the routine map.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
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

// Each character of text against a pattern: 'A' upper-case letter, 'a'
// lower-case letter, '9' digit, '_' digit or space, anything else itself.
bool Matches(const std::string& text, const std::string& pattern) {
    if (text.size() != pattern.size()) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool ok = pattern[i] == 'A'   ? (c >= 'A' && c <= 'Z')
                        : pattern[i] == 'a' ? (c >= 'a' && c <= 'z')
                        : pattern[i] == '9' ? (c >= '0' && c <= '9')
                        : pattern[i] == '_' ? (c == ' ' || (c >= '0' && c <= '9'))
                                            : c == pattern[i];
        if (!ok) return false;
    }
    return true;
}

TEST(GetInfo, BuildDateAndTimeHaveTheirFixedForms) {
    char date[16];
    std::memset(date, 0x55, sizeof date);
    EXPECT_EQ(VwGetInfo(date, VW_INFO_BUILD_DATE), 1);
    EXPECT_EQ(date[11], '\0');
    EXPECT_EQ(date[12], 0x55);
    EXPECT_TRUE(Matches(date, "Aaa _9 9999"))
        << date;

    char time[16];
    std::memset(time, 0x55, sizeof time);
    EXPECT_EQ(VwGetInfo(time, VW_INFO_BUILD_TIME), 1);
    EXPECT_EQ(time[8], '\0');
    EXPECT_EQ(time[9], 0x55);
    EXPECT_TRUE(Matches(time, "99:99:99"))
        << time;
}

TEST(ExportedData, VersionMarkerHidesBehindANulByte) {
    EXPECT_EQ(version[0], '\0');
    EXPECT_STREQ(version + 1, "QZV_VER=8.5.4.9.1901010828");
}

TEST(InertEntryPoints, DoNothingBeyondTheirOneEffect) {
    EXPECT_EQ(VwDoSpecial(), 0);
    uint64_t out = 0;
    VwLocalDown(0x0123456789ABCDEFull, &out);
    EXPECT_EQ(out, 0x0123456789ABCDEFull);
}

// ---- Context allocation ---------------------------------------------------------

class ContextAllocation : public ::testing::Test {
protected:
    void TearDown() override { KzSysResetFaults(); }
};

TEST_F(ContextAllocation, FreshContextIsZeroAndFreedWhole) {
    const int64_t before = KzSysLiveBlocks();
    VwContext* context = VwAllocProc();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(KzSysLiveBlocks(), before + 1);
    kz::ProcessContext* ctx = kz::ToContext(context);
    EXPECT_NE(ctx->allocHandle, nullptr);
    kz::ProcessContext copy;
    std::memcpy(&copy, ctx, sizeof copy);
    copy.allocHandle = nullptr;
    const auto* bytes = reinterpret_cast<const uint8_t*>(&copy);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof copy, [](uint8_t b) { return b == 0; }));
    VwFreeProc(context);
    EXPECT_EQ(KzSysLiveBlocks(), before);
}

TEST_F(ContextAllocation, RefusedAllocationGivesNull) {
    const int64_t before = KzSysLiveBlocks();
    KzSysFailAllocationsAfter(0);
    EXPECT_EQ(VwAllocProc(), nullptr);
    EXPECT_EQ(KzSysLiveBlocks(), before);
}

TEST_F(ContextAllocation, RefusedLockFreesTheHandleAndGivesNull) {
    const int64_t before = KzSysLiveBlocks();
    KzSysFailLocks(1);
    EXPECT_EQ(VwAllocProc(), nullptr);
    EXPECT_EQ(KzSysLiveBlocks(), before);
}

TEST_F(ContextAllocation, ContextWithoutHandleIsNotFreed) {
    const int64_t before = KzSysLiveBlocks();
    VwContext* context = VwAllocProc();
    ASSERT_NE(context, nullptr);
    kz::ProcessContext* ctx = kz::ToContext(context);
    const KzHandle handle = ctx->allocHandle;
    ctx->allocHandle = nullptr;
    VwFreeProc(context);
    EXPECT_EQ(KzSysLiveBlocks(), before + 1);
    ctx->allocHandle = handle;
    VwFreeProc(context);
    EXPECT_EQ(KzSysLiveBlocks(), before);
}

// ---- Routine map ------------------------------------------------------------------

// The routine identifier held by each of the 148 slots, 0 for the two
// slots no identifier reaches, in the table's declared order.
std::vector<int> SlotIdentifiers() {
    const std::pair<int, int> runs[] = {
        {1, 1},     {138, 139}, {129, 129}, {146, 146}, {131, 132}, {2, 26},    {135, 136},
        {27, 30},   {113, 113}, {109, 112}, {31, 35},   {104, 104}, {36, 69},   {122, 122},
        {70, 75},   {114, 114}, {76, 103},  {105, 108}, {115, 118}, {0, 0},     {0, 0},
        {121, 121}, {123, 128}, {130, 130}, {133, 134}, {137, 137}, {140, 140}, {143, 143},
        {141, 142}, {144, 145}, {147, 148},
    };
    std::vector<int> ids;
    for (const auto& [first, last] : runs)
        for (int id = first; id <= last; ++id) ids.push_back(id);
    return ids;
}

void Marker() {}
const SORoutine kMarker = &Marker;
const SORoutine kDummy = reinterpret_cast<SORoutine>(&SODummy);

class RoutineMap : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(SlotIdentifiers().size(), 148u);
        context_ = VwAllocProc();
        ASSERT_NE(context_, nullptr);
    }
    void TearDown() override { VwFreeProc(context_); }
    kz::ProcessContext* ctx() { return kz::ToContext(context_); }
    std::vector<SORoutine> Slots() {
        return std::vector<SORoutine>(ctx()->routines, ctx()->routines + 148);
    }
    std::vector<SORoutine> AfterLocalUp() {
        std::vector<SORoutine> slots;
        for (int id : SlotIdentifiers()) slots.push_back(id == 0 ? nullptr : kDummy);
        return slots;
    }
    VwContext* context_ = nullptr;
};

TEST_F(RoutineMap, LocalUpFillsEveryReachedSlotWithTheDefault) {
    uint64_t out = 0;
    VwLocalUp(0xFEEDFACEull, &out, context_);
    EXPECT_EQ(out, 0xFEEDFACEull);
    EXPECT_EQ(Slots(), AfterLocalUp());
}

TEST_F(RoutineMap, EachIdentifierReachesItsOwnSlotOnly) {
    const std::vector<int> ids = SlotIdentifiers();
    for (int id = 0; id <= 150; ++id) {
        uint64_t out = 0;
        VwLocalUp(0, &out, context_);
        VwSetSoRtn(static_cast<uint16_t>(id), kMarker, context_);
        std::vector<SORoutine> expected = AfterLocalUp();
        if (id != 0) {
            const auto slot = std::find(ids.begin(), ids.end(), id);
            if (slot != ids.end()) expected[slot - ids.begin()] = kMarker;
        }
        EXPECT_EQ(Slots(), expected) << "identifier " << id;
    }
}

TEST_F(RoutineMap, NullRoutineRestoresTheDefault) {
    uint64_t out = 0;
    VwLocalUp(0, &out, context_);
    VwSetSoRtn(SO_ROUTINE_OUTCHAR, kMarker, context_);
    VwSetSoRtn(SO_ROUTINE_OUTCHAR, nullptr, context_);
    VwSetSoRtn(119, nullptr, context_);
    EXPECT_EQ(Slots(), AfterLocalUp());
}

TEST_F(RoutineMap, UserPairIsStoredAsGiven) {
    VwSetUser(0x1111222233334444ull, 0x5555666677778888ull, context_);
    EXPECT_EQ(ctx()->user1, 0x1111222233334444ull);
    EXPECT_EQ(ctx()->user2, 0x5555666677778888ull);
}

}  // namespace
