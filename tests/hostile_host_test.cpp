// Hosts and streams that do everything the interface allows, and files of
// every small shape: the module must neither crash nor hang nor leak a host
// block, and the same input must always give the same output.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <sstream>

#include "filter/context.h"
#include "kz_sys.h"
#include "recording_host.h"

namespace kztest {
namespace {

// A stream over another stream that can shorten reads, refuse seeks and
// fail tells, each decided per call by its running index.
struct HostileStream {
    KzStream base;
    KzStream* inner;
    int reads = 0;
    int seeks = 0;
    int tells = 0;
    std::function<bool(int)> shortRead;   // this read delivers half of what it could
    std::function<bool(int)> refuseSeek;  // this seek fails and moves nothing
    std::function<bool(int)> failTell;    // this tell fails and writes nothing

    explicit HostileStream(KzStream* wrapped)
        : base{nullptr, &Read, nullptr, &Seek, &Tell}, inner(wrapped) {}
    KzStream* stream() { return &base; }

    static HostileStream* Self(KzStream* s) { return reinterpret_cast<HostileStream*>(s); }
    static int32_t Read(KzStream* s, void* buffer, uint32_t count, uint32_t* countRead) {
        HostileStream* self = Self(s);
        const int index = self->reads++;
        const bool cut = self->shortRead && self->shortRead(index);
        return self->inner->read(self->inner, buffer, cut ? count / 2 : count, countRead);
    }
    static int32_t Seek(KzStream* s, uint16_t origin, int32_t offset) {
        HostileStream* self = Self(s);
        const int index = self->seeks++;
        if (self->refuseSeek && self->refuseSeek(index)) return 1;
        return self->inner->seek(self->inner, origin, offset);
    }
    static int32_t Tell(KzStream* s, uint32_t* position) {
        HostileStream* self = Self(s);
        const int index = self->tells++;
        if (self->failTell && self->failTell(index)) return 1;
        return self->inner->tell(self->inner, position);
    }
};

// A file with a frame of each body path: inline text, a host block, an
// unknown frame, padding; then audio and an ID3v1 trailer.
Bytes MixedFile() {
    return Tag(3,
               Frame(3, "TIT2", Raw({0}) + Latin1("Title")) +
                   Frame(3, "COMM", Raw({0}) + Latin1("engdesc") + Raw({0}) + Latin1("text")) +
                   Frame(3, "XYZW", Latin1("unknown")) +
                   Frame(3, "APIC", Raw({0}) + Latin1("image/png") + Raw({0, 3, 0}) + Zeros(17000)) +
                   Frame(3, "TXXX", Raw({1}) + Utf16Le(u"k") + Raw({0, 0}) + Utf16Be(u"v")),
               {.padding = 20}) +
           SilentMpegFrames(2) + Id3v1({.title = "T", .artist = "A", .track = 2, .genre = 7});
}

struct Outcome {
    Calls calls;
    int readCalls = 0;
    bool ended = false;
};

// Opens, starts the section whatever the open said, and reads until the end
// break or until `maxCalls` read calls; checks no host block is left.
Outcome ReadThrough(Session& session, KzStream* stream, int maxCalls = 200) {
    const int64_t liveBefore = KzSysLiveBlocks();
    KzFileInfo info{};
    VwStreamOpen(stream, VW_FILETYPE_DEFAULT, 0, &info, session.context);
    VwStreamSection(stream, session.context);
    Outcome outcome;
    while (outcome.readCalls < maxCalls && !outcome.ended) {
        ++outcome.readCalls;
        EXPECT_EQ(VwStreamRead(stream, session.context), 0);
        outcome.ended = !session.host.calls().empty() && session.host.calls().back() == "break 2";
    }
    outcome.calls = session.host.Take();
    EXPECT_EQ(KzSysLiveBlocks(), liveBefore) << "a host block was not released";
    return outcome;
}

Outcome ReadHostile(const Bytes& file, const std::function<void(HostileStream&)>& configure) {
    Session session(file);
    HostileStream hostile(session.file.stream());
    configure(hostile);
    return ReadThrough(session, hostile.stream());
}

// Reads the file twice under the same hostile behaviour: both runs end and
// agree.
void ExpectEndsAndRepeats(const Bytes& file, const std::function<void(HostileStream&)>& configure,
                          const std::string& what) {
    const Outcome first = ReadHostile(file, configure);
    const Outcome second = ReadHostile(file, configure);
    EXPECT_TRUE(first.ended) << what;
    EXPECT_EQ(first.calls, second.calls) << what;
}

TEST(HostileStream, ShortReadAtEveryPoint) {
    const Bytes file = MixedFile();
    const int reads = [&] {
        Session session(file);
        HostileStream counting(session.file.stream());
        ReadThrough(session, counting.stream());
        return counting.reads;
    }();
    ASSERT_GT(reads, 8);
    for (int cut = 0; cut < reads; ++cut) {
        ExpectEndsAndRepeats(file, [cut](HostileStream& s) { s.shortRead = [cut](int i) { return i == cut; }; },
                             "short read #" + std::to_string(cut));
    }
    ExpectEndsAndRepeats(file, [](HostileStream& s) { s.shortRead = [](int) { return true; }; },
                         "every read short");
}

TEST(HostileStream, RefusedSeeksAndFailedTells) {
    const Bytes file = MixedFile();
    for (int n = 0; n < 40; ++n) {
        ExpectEndsAndRepeats(file, [n](HostileStream& s) { s.refuseSeek = [n](int i) { return i == n; }; },
                             "seek #" + std::to_string(n) + " refused");
        ExpectEndsAndRepeats(file, [n](HostileStream& s) { s.failTell = [n](int i) { return i == n; }; },
                             "tell #" + std::to_string(n) + " failed");
    }
    ExpectEndsAndRepeats(file, [](HostileStream& s) { s.refuseSeek = [](int) { return true; }; },
                         "every seek refused");
    ExpectEndsAndRepeats(file, [](HostileStream& s) { s.failTell = [](int) { return true; }; },
                         "every tell failed");
}

// A stream whose tell always answers 0 makes every tag seem to end where
// the first did; the walk must still come to an end.
TEST(HostileStream, TellAlwaysZeroOverRepeatedTags) {
    const Bytes tag = Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("x")));
    Bytes file;
    for (int i = 0; i < 4; ++i) file += Tag(5, Zeros(tag.size() - 10)) + tag;
    Session session(file);
    HostileStream hostile(session.file.stream());
    struct ZeroTell {
        static int32_t Tell(KzStream*, uint32_t* position) {
            *position = 0;
            return 0;
        }
    };
    hostile.base.tell = &ZeroTell::Tell;
    EXPECT_TRUE(ReadThrough(session, hostile.stream()).ended);
}

TEST(HostileHost, RoutinesLeftAtTheDefault) {
    // VwLocalUp only: every routine is SODummy, whose 0 lets reading go on.
    const Bytes file = MixedFile();
    VwContext* context = VwAllocProc();
    uint64_t value = 0;
    VwLocalUp(7, &value, context);
    MemoryStream stream(file);
    KzFileInfo info{};
    ASSERT_EQ(VwStreamOpen(stream.stream(), VW_FILETYPE_DEFAULT, 0, &info, context), VW_OPEN_OK);
    VwStreamSection(stream.stream(), context);
    EXPECT_EQ(VwStreamRead(stream.stream(), context), 0);
    EXPECT_EQ(kz::ToContext(context)->sectionState, kz::kContentFinished);
    VwFreeProc(context);

    // No VwLocalUp at all: the table is empty and nothing is called.
    context = VwAllocProc();
    ASSERT_EQ(VwStreamOpen(stream.stream(), VW_FILETYPE_DEFAULT, 0, &info, context), VW_OPEN_OK);
    VwStreamSection(stream.stream(), context);
    EXPECT_EQ(VwStreamRead(stream.stream(), context), 0);
    EXPECT_EQ(kz::ToContext(context)->sectionState, kz::kContentFinished);
    VwFreeProc(context);
}

TEST(HostileHost, StopsAtEveryBreakAndReplaysSavedStates) {
    const Bytes file = MixedFile();
    Session plain(file);
    const Calls expected = ReadThrough(plain, plain.file.stream()).calls;

    // Saving after every stop and restoring before every read changes
    // nothing but the extra read calls.
    Session paged(file);
    paged.host.StopAtEveryFrameBreak();
    KzFileInfo info{};
    VwStreamOpen(paged.file.stream(), VW_FILETYPE_DEFAULT, 0, &info, paged.context);
    VwStreamSection(paged.file.stream(), paged.context);
    VwSavedState saved{};
    for (int calls = 0; calls < 100; ++calls) {
        VwStreamTell(paged.file.stream(), paged.context);
        VwGetData(&saved, paged.context);
        paged.file.set_position(0);  // the host used the stream for something else
        VwSetData(&saved, paged.context);
        EXPECT_EQ(VwStreamSeek(paged.file.stream(), paged.context), 0);
        VwStreamRead(paged.file.stream(), paged.context);
        if (paged.host.calls().back() == "break 2") break;
    }
    EXPECT_EQ(paged.host.Take(), expected);
}

TEST(HostileHost, ArbitrarySavedStateBlocks) {
    const Bytes file = MixedFile();
    std::mt19937 random(1234);
    for (int round = 0; round < 300; ++round) {
        Session session(file);
        KzFileInfo info{};
        VwStreamOpen(session.file.stream(), VW_FILETYPE_DEFAULT, 0, &info, session.context);
        VwStreamSection(session.file.stream(), session.context);
        uint8_t block[VW_SAVED_STATE_SIZE];
        for (uint8_t& byte : block) byte = static_cast<uint8_t>(random());
        // Known states half of the time, so the driver really runs.
        if (round % 2 == 0) {
            const uint16_t states[] = {1, 2, 3, 4, 0xFFFF};
            std::memcpy(block + 4, &states[round / 2 % 5], 2);
        }
        VwSetData(block, session.context);
        const int64_t liveBefore = KzSysLiveBlocks();
        for (int n = 0; n < 50; ++n) VwStreamRead(session.file.stream(), session.context);
        EXPECT_EQ(KzSysLiveBlocks(), liveBefore);
    }
}

TEST(HostileHost, ReadBeforeSectionMakesNoCall) {
    Session session(MixedFile());
    EXPECT_EQ(VwStreamRead(session.file.stream(), session.context), 0);
    session.Open();
    EXPECT_EQ(VwStreamRead(session.file.stream(), session.context), 0);
    EXPECT_TRUE(session.host.Take().empty());
}

TEST(HostileHost, ReopeningAfterEveryStateGivesAFreshRead) {
    const Bytes first = MixedFile();
    const Bytes second = Tag(4, Frame(4, "TPE1", Raw({0}) + Latin1("Band"))) + Id3v1({.title = "S"});
    Session fresh(second);
    const Calls expected = ReadThrough(fresh, fresh.file.stream()).calls;
    for (int stopAfter = 0; stopAfter <= 6; ++stopAfter) {
        Session session(first);
        session.host.StopAtFrameBreak(stopAfter);
        KzFileInfo info{};
        VwStreamOpen(session.file.stream(), VW_FILETYPE_DEFAULT, 0, &info, session.context);
        if (stopAfter > 0) {
            VwStreamSection(session.file.stream(), session.context);
            VwStreamRead(session.file.stream(), session.context);
        }
        session.host.Take();
        session.host.breakAnswer = nullptr;
        MemoryStream other(second);
        EXPECT_EQ(ReadThrough(session, other.stream()).calls, expected) << "after stop " << stopAfter;
    }
}

TEST(HostileHost, EveryAllocationFailing) {
    KzSysFailAllocationsAfter(0);
    EXPECT_EQ(VwAllocProc(), nullptr);
    KzSysResetFaults();
    // With a context, a body that needs a host block is skipped and the rest
    // of the file still read.
    Session session(MixedFile());
    KzSysFailAllocationsAfter(0);
    const Outcome outcome = ReadThrough(session, session.file.stream());
    KzSysResetFaults();
    EXPECT_TRUE(outcome.ended);
    EXPECT_NE(std::find(outcome.calls.begin(), outcome.calls.end(), "begin F 3 78"), outcome.calls.end());
}

// A body declared far larger than the file: the host refuses the block,
// the field stays empty and nothing is emitted for it.
TEST(HostileHost, DeclaredSizeBeyondTheFile) {
    Bytes file = Tag(4, Frame(4, "TIT2", Raw({0}) + Latin1("x"), 0x0FFFFFFF) + Zeros(40));
    Session session(file);
    KzSysSetBlockLimit(static_cast<uint32_t>(file.size()));
    const Outcome outcome = ReadThrough(session, session.file.stream());
    KzSysSetBlockLimit(KZ_SYS_DEFAULT_BLOCK_LIMIT);
    EXPECT_EQ(outcome.calls,
              SectionStart() + BeginFrame(1, KZ_FIELD_TIT2) + EndFrame(1) + FrameBreak() + EndBreak());
}

// Every dispatched identifier in its tag versions, with sizes around the
// inline buffer's bound and beyond, cut at several lengths, under every
// tag header flag: each file reads to the end the same way twice.
TEST(HostileFiles, StructuredSmallFiles) {
    const char* fourLetter =
        "AENC APIC ASPI COMM COMR ENCR EQUA EQU2 ETCO GEOB GRID IPLS LINK MLLT OWNE PRIV PCNT POPM "
        "POSS RBUF RVAD RVA2 RVRB SEEK SYLT TALB TCON TIT2 TXXX UFID USER USLT WCOM WXXX";
    const char* threeLetter =
        "CRA COM EQU ETC GEO IPL MLL CNT POP BUF REV SLT TAL TDI TT2 TXX UFI ULT WCM WXX";
    const uint32_t sizes[] = {0, 1, 5, 16383, 16384, 16385, 70000, 0x7FFFFFFF, 0x80000000};
    KzSysSetBlockLimit(20000);
    int files = 0;
    for (const auto& [major, list] : {std::pair{3, fourLetter}, std::pair{4, fourLetter},
                                      std::pair{2, threeLetter}}) {
        std::istringstream ids(list);
        for (std::string id; ids >> id;) {
            for (const uint32_t size : sizes) {
                const Bytes body = Raw({1, 0xFF, 0xFE, 'a', 0, 0, 0, 'b', 0x0A, 0, 0, 0, 1, 2, 3});
                for (const uint8_t flags : {0x00, 0x40, 0xF0}) {
                    const Bytes whole = Tag(major, Frame(major, id, body, size) + Frame(major, id, body),
                                            {.flags = flags}) +
                                        Id3v1({.title = "t"});
                    for (const size_t cut : {size_t{9}, size_t{14}, size_t{22}, whole.size()}) {
                        const Bytes file(whole.begin(), whole.begin() + std::min(cut, whole.size()));
                        ExpectEndsAndRepeats(file, [](HostileStream&) {},
                                             id + " size " + std::to_string(size));
                        ++files;
                    }
                }
            }
        }
    }
    KzSysSetBlockLimit(KZ_SYS_DEFAULT_BLOCK_LIMIT);
    EXPECT_GT(files, 5000);
}

}  // namespace
}  // namespace kztest
