// Opening a stream: file type names, tag detection and the section start.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "filter/context.h"
#include "kz_id3.h"
#include "recording_host.h"

namespace {

using namespace kztest;

const Bytes kTrailerOnly = SilentMpegFrames(2) + Id3v1({.title = "T"});

// Every type: word 9 and, for a known type, its name (the reserved bytes
// untouched); the exported overlay rows hold the same names tabbed and
// padded with NUL.
TEST(StreamOpen, WritesWordNineAndTheNameOfAKnownType) {
    const char* const names[VW_FILETYPE_COUNT] = {
        "MPEG-1 audio - Layer 3, ID3v1.x", "MPEG-1 audio - Layer 3, ID3v2.x", "ID3 Ver 1.x", "ID3 Ver 2.x",
        "MPEG-1 audio - Layer 3", "MPEG-1 audio - Layer 1", "MPEG-1 audio - Layer 2", "MPEG-2 audio - Layer 1",
        "MPEG-2 audio - Layer 2", "MPEG-2 audio - Layer 3"};
    for (const uint16_t type : {0, 1705, 1706, 1707, 1708, 1709, 1710, 1711, 1712, 1713, 1714, 1715, 1716, 0xFFFF}) {
        Session s(kTrailerOnly);
        KzFileInfo info;
        std::memset(&info, 'x', sizeof info);
        info.word = 0xDEADBEEF;
        EXPECT_EQ(VwStreamOpen(s.file.stream(), type, 0x77, &info, s.context), VW_OPEN_OK);
        EXPECT_EQ(info.word, 9u);
        const bool known = type >= 1706 && type <= 1715;
        const std::string name = known ? names[type - 1706] : "";
        EXPECT_EQ(std::string(info.typeName, known ? name.size() + 1 : sizeof info.typeName),
                  known ? name + '\0' : std::string(sizeof info.typeName, 'x')) << type;
        EXPECT_EQ(Bytes(info.reserved, info.reserved + sizeof info.reserved), Bytes(sizeof info.reserved, 'x')) << type;
        EXPECT_EQ(s.ctx()->fileType, type);
        if (!known) continue;
        EXPECT_EQ(VwId3OverlayId[type - 1706].typeId, type);
        char row[34] = {'\t'};
        std::strcpy(row + 1, name.c_str());
        EXPECT_EQ(std::memcmp(VwId3OverlayId[type - 1706].name, row, sizeof row), 0) << type;
    }
}

TEST(StreamOpen, DecidesWhetherThereIsAnythingToRead) {
    const Bytes v3 = Tag(3, Frame(3, "TIT2", TextBody("A")));
    const Bytes v5 = Tag(5, Frame(3, "TIT2", TextBody("A")));
    const Bytes trailer = Id3v1({.title = "T"});
    const Bytes audio = SilentMpegFrames(1);
    const Bytes v3Tail(v3.begin() + 3, v3.end());
    const struct {
        const char* name;
        Bytes file;
        int32_t status;
        uint16_t hasId3v2, hasId3v1;
    } cases[] = {
        {"ID3v2.3 without trailer", v3 + audio, 0, 1, 0},
        {"ID3v2.3 with trailer", v3 + audio + trailer, 0, 1, 1},
        {"trailer only", audio + trailer, 0, 0, 1},
        {"trailer is the whole file", trailer, 0, 0, 1},
        {"major 5 with trailer", v5 + audio + trailer, 0, 0, 1},
        {"major 5 without trailer", v5 + audio, 51, 0, 0},
        {"empty stream", {}, 51, 0, 0},
        {"lower-case id3", Latin1("id3") + v3Tail + audio, 51, 0, 0},
        {"first letter wrong", Latin1("XD3") + v3Tail + audio, 51, 0, 0},
        {"tag shorter than 128 bytes", v3, 0, 1, 0},
        {"TAG one byte before its place", audio + trailer + Raw({0}), 51, 0, 0},
        {"nine-byte header", Bytes(v3.begin(), v3.begin() + 9), 51, 0, 0},
    };
    for (const auto& c : cases) {
        Session s(c.file);
        EXPECT_EQ(s.Open(), c.status) << c.name;
        EXPECT_EQ(s.ctx()->hasId3v2, c.hasId3v2) << c.name;
        EXPECT_EQ(s.ctx()->hasId3v1, c.hasId3v1) << c.name;
        EXPECT_EQ(s.ctx()->sectionState, 0) << c.name;
        EXPECT_TRUE(s.host.calls.empty()) << c.name;
    }
}

TEST(StreamOpen, ClearsTheParseStateButKeepsRoutinesAndUserPair) {
    Session s(kTrailerOnly);
    kz::ProcessContext* ctx = s.ctx();
    std::memset(ctx, 0x5A, VW_PARSE_STATE_SIZE);
    EXPECT_EQ(s.Open(), VW_OPEN_OK);
    // The parse state is zero but for the type and the trailer found.
    kz::ProcessContext copy;
    std::memcpy(&copy, ctx, sizeof copy);
    copy.fileType = copy.hasId3v1 = 0;
    const auto* parse = reinterpret_cast<const uint8_t*>(&copy);
    EXPECT_TRUE(std::all_of(parse, parse + VW_PARSE_STATE_SIZE, [](uint8_t b) { return b == 0; }));
    EXPECT_EQ(ctx->hasId3v1, 1);
    // The section start chooses the trailer without touching the stream.
    const int seeks = s.file.seeks, reads = s.file.reads;
    EXPECT_EQ(VwStreamSection(nullptr, s.context), 0);
    EXPECT_EQ(s.host.Take(), SectionStart());
    EXPECT_EQ(ctx->sectionState, 4);
    EXPECT_EQ(s.file.seeks, seeks);
    EXPECT_EQ(s.file.reads, reads);
    EXPECT_EQ(s.Read(), 0);
    EXPECT_EQ(s.host.Take(), V1Fields(0, "T") + EndBreak());
}

}  // namespace

