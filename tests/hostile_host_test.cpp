// Hosts and streams that do everything the interface allows: the module must
// neither crash nor hang nor leak a host block, and the same input must
// always give the same output.  (The fuzz targets try files of every shape.)
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>

#include "filter/context.h"
#include "kz_sys.h"
#include "recording_host.h"

namespace kztest {
namespace {

// Decides, from the running index of a stream call, whether it misbehaves.
using Rule = std::function<bool(int)>;
Rule Only(int n) { return [n](int i) { return i == n; }; }
Rule Always() { return [](int) { return true; }; }

// A read that delivers half of what was asked, or nothing; a read that fails
// and writes nothing, not even its count; a seek that fails and moves
// nothing; a tell that fails and writes nothing.
struct Faults {
    Rule shortRead{}, emptyRead{}, failRead{}, refuseSeek{}, failTell{};
};

// A file with a frame of each body path: inline text, a host block, an
// unknown frame, padding; then audio and an ID3v1 trailer.
Bytes MixedFile() {
    return Tag(3,
               Frame(3, "TIT2", TextBody("Title")) +
                   Frame(3, "COMM", Raw({0}) + Latin1("engdesc") + Raw({0}) + Latin1("text")) +
                   Frame(3, "XYZW", Latin1("unknown")) +
                   Frame(3, "APIC", Raw({0}) + Latin1("image/png") + Raw({0, 3, 0}) + Zeros(17000)) +
                   Frame(3, "TXXX", Raw({1}) + Utf16Le(u"k") + Raw({0, 0}) + Utf16Be(u"v")),
               {.padding = 20}) +
           SilentMpegFrames(2) + Id3v1({.title = "T", .artist = "A", .track = 2, .genre = 7});
}

bool Ended(const Calls& calls) { return !calls.empty() && calls.back() == "break 2"; }

// Opens, starts the section whatever the open said, and reads until the end
// break or until 200 read calls; checks no host block is left.
Calls ReadThrough(Session& session) {
    const int64_t liveBefore = KzSysLiveBlocks();
    KzStream* stream = session.file.stream();
    KzFileInfo info{};
    VwStreamOpen(stream, VW_FILETYPE_DEFAULT, 0, &info, session.context);
    VwStreamSection(stream, session.context);
    for (int n = 0; n < 200 && !Ended(session.host.calls); ++n) EXPECT_EQ(VwStreamRead(stream, session.context), 0);
    EXPECT_EQ(KzSysLiveBlocks(), liveBefore) << "a host block was not released";
    return session.host.Take();
}

// Reads the file under the faults; returns the calls and the count of read
// calls made on the stream.
std::pair<Calls, int> ReadHostile(const Bytes& file, const Faults& faults) {
    Session session(file);
    session.file.readLimit = [faults](int i, uint32_t count) {
        const auto at = [i](const Rule& rule) { return rule && rule(i); };
        return at(faults.emptyRead) ? 0 : at(faults.shortRead) ? count / 2 : count;
    };
    session.file.failRead = faults.failRead;
    session.file.refuseSeek = faults.refuseSeek;
    session.file.failTell = faults.failTell;
    const Calls calls = ReadThrough(session);
    return {calls, session.file.reads};
}

// Reads the file twice under the same faults: both runs end and agree.
void ExpectEndsAndRepeats(const Bytes& file, const Faults& faults, const std::string& what) {
    const Calls first = ReadHostile(file, faults).first;
    EXPECT_TRUE(Ended(first)) << what;
    EXPECT_EQ(first, ReadHostile(file, faults).first) << what;
}

// A short read at every read call (and a failed read, which must count as
// one that delivered nothing), a refused seek and a failed tell at each of
// the first 40 calls, and each fault at every call.
TEST(HostileStream, EachFaultAtEveryPoint) {
    const Bytes file = MixedFile();
    const int reads = ReadHostile(file, {}).second;
    ASSERT_GT(reads, 8);
    for (int n = 0; n < std::max(reads, 40); ++n) {
        const std::string at = " #" + std::to_string(n);
        if (n < reads) {
            ExpectEndsAndRepeats(file, {.shortRead = Only(n)}, "short read" + at);
            EXPECT_EQ(ReadHostile(file, {.failRead = Only(n)}), ReadHostile(file, {.emptyRead = Only(n)})) << at;
        }
        ExpectEndsAndRepeats(file, {.refuseSeek = Only(n)}, "refused seek" + at);
        ExpectEndsAndRepeats(file, {.failTell = Only(n)}, "failed tell" + at);
    }
    ExpectEndsAndRepeats(file, {.shortRead = Always()}, "every read short");
    ExpectEndsAndRepeats(file, {.refuseSeek = Always()}, "every seek refused");
    ExpectEndsAndRepeats(file, {.failTell = Always()}, "every tell failed");
}

// Streams that misreport where they stand: a tell that always answers 0,
// and a stream that never moves (every read delivers the first bytes of the
// file, every seek succeeds in place).  Every tag then seems to start where
// the first did: with the first, the tag's end seems to lie 10 bytes early,
// on the header of a tag of an unsupported version that seems to end where
// it lies; with the second, the first tag's header is found again and again.
// Reading must still come to an end.  After 1,000 reads the streams deliver
// nothing, so a search that goes round in circles shows as a count instead
// of a hang.
TEST(HostileStream, MisreportedPositionsStillEnd) {
    const Bytes file = Tag(3, Frame(3, "TIT2", Raw({0, 'x'})) + Tag(5, {}, {.declaredSize = 22}));
    for (const bool neverMoves : {false, true}) {
        Session session(file);
        session.file.tellsZero = true;
        session.file.neverMoves = neverMoves;
        session.file.readLimit = [](int i, uint32_t count) { return i < 1000 ? count : 0; };
        EXPECT_TRUE(Ended(ReadThrough(session))) << neverMoves;
        EXPECT_LT(session.file.reads, 1000) << neverMoves;
    }
}

// VwLocalUp only: every routine is SODummy, whose 0 lets reading go on.  No
// VwLocalUp at all: the table is empty and nothing is called; that host
// passes no file information record either.  Either way the whole file is
// read: five frames and the padding, then the seven trailer fields.
TEST(HostileHost, RoutinesLeftAtTheDefault) {
    for (const bool localUp : {true, false}) {
        VwContext* context = VwAllocProc();
        ASSERT_NE(context, nullptr);
        uint64_t value = 0;
        if (localUp) VwLocalUp(7, &value, context);
        MemoryStream stream(MixedFile());
        KzFileInfo info{};
        EXPECT_EQ(VwStreamOpen(stream.stream(), VW_FILETYPE_DEFAULT, 0, localUp ? &info : nullptr, context), 0);
        EXPECT_EQ(VwStreamSection(stream.stream(), context), 0);
        EXPECT_EQ(VwStreamRead(stream.stream(), context), 0);
        EXPECT_EQ(kz::ToContext(context)->sectionState, kz::kContentFinished) << localUp;
        EXPECT_EQ(kz::ToContext(context)->frameCount, 12u) << localUp;
        VwFreeProc(context);
    }
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

}  // namespace
}  // namespace kztest
