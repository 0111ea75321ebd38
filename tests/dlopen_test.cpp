// The built module as a host loads it: one symbol looked up, everything else
// reached through the entry table.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>

#include "kz_id3.h"
#include "recording_host.h"

namespace {

using namespace kztest;

TEST(LoadedModule, ReadsAWholeFileThroughTheEntryTable) {
    void* module = dlopen(KZ_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    const auto getRtns = reinterpret_cast<VwGetRtnsFn>(dlsym(module, "VwGetRtns"));
    ASSERT_NE(getRtns, nullptr) << dlerror();
    EXPECT_NE(getRtns, &VwGetRtns);  // the loaded copy, not the one linked into the tests

    std::array<VwEntry, VW_ENTRY_TABLE_SIZE> table{};
    getRtns(table.data(), 30);
    const auto allocProc = reinterpret_cast<VwAllocProcFn>(table[VW_ENTRY_ALLOCPROC]);
    const auto freeProc = reinterpret_cast<VwFreeProcFn>(table[VW_ENTRY_FREEPROC]);
    const auto streamOpen = reinterpret_cast<VwStreamOpenFn>(table[VW_ENTRY_STREAMOPEN]);
    const auto streamSection = reinterpret_cast<VwStreamFn>(table[VW_ENTRY_STREAMSECTION]);
    const auto streamRead = reinterpret_cast<VwStreamFn>(table[VW_ENTRY_STREAMREAD]);
    const auto streamClose = reinterpret_cast<void (*)(KzStream*, VwContext*)>(table[VW_ENTRY_STREAMCLOSE]);
    ASSERT_TRUE(allocProc && freeProc && streamOpen && streamSection && streamRead && streamClose);

    VwContext* context = allocProc();
    ASSERT_NE(context, nullptr);
    {
        RecordingHost host(context, TableEntries(table.data()));
        MemoryStream file(Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("Song")) +
                                     Frame(3, "TPE1", Raw({0}) + Latin1("Band")),
                              {.padding = 8}) +
                          SilentMpegFrames(2) +
                          Id3v1({.title = "T", .year = "2001", .track = 4, .genre = 0}));
        KzFileInfo info{};
        EXPECT_EQ(streamOpen(file.stream(), 1707, 0, &info, context), VW_OPEN_OK);
        EXPECT_EQ(info.word, 9u);
        EXPECT_STREQ(info.typeName, "MPEG-1 audio - Layer 3, ID3v2.x");
        EXPECT_EQ(streamSection(file.stream(), context), 0);
        EXPECT_EQ(streamRead(file.stream(), context), 0);
        EXPECT_EQ(streamRead(file.stream(), context), 0);
        streamClose(file.stream(), context);
        EXPECT_EQ(host.Take(),
                  SectionStart() + TextField(1, 118, "Song") + FrameBreak() +
                      TextField(2, 132, "Band") + FrameBreak() + TextField(3, 118, "T") +
                      TextField(4, 132, "") + TextField(5, 105, "") + TextField(6, 150, "2001") +
                      TextField(7, 80, "") + TextField(8, 139, "4") + TextField(9, 108, "0") +
                      EndBreak() + EndBreak());
    }
    freeProc(context);
    EXPECT_EQ(dlclose(module), 0);
}

}  // namespace
