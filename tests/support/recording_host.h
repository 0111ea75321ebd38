// A host for tests: an in-memory stream and a recorder of every host routine
// call the module makes, written as short strings so that a failing
// comparison shows a readable diff.
//
// Call strings:
//   "char 41"            SOOutChar, code in hex
//   "special 5"          SOOutSpecial
//   "break 11"           SOOutBreak (a non-zero second argument is appended)
//   "start 9 0 0"        SOStartSection
//   "failure 9"          SOReportFailure
//   "begin F 3 118"      SOBeginTag: kind (F frame, S string, else hex),
//                        number, field number from the descriptor
//   "end F 3"            SOEndTag; the number 0xFFFFFFFF reads "ffffffff"
//   "charset latin1"     SOSetCharSet (latin1, utf16, else hex)
//   "flags 8000"         SOSetSectionFlags, in hex
#ifndef KZ_TESTS_RECORDING_HOST_H
#define KZ_TESTS_RECORDING_HOST_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "filter/context.h"
#include "kz_id3.h"
#include "memory_stream.h"
#include "tag_builder.h"

namespace kztest {

using Calls = std::vector<std::string>;

Calls operator+(Calls a, const Calls& b);
Calls& operator+=(Calls& to, const Calls& more);

// Expected-call builders.
Calls Chars(std::string_view text);                  // one "char" per byte
Calls Codes(std::initializer_list<uint32_t> codes);  // one "char" per code
Calls BeginFrame(uint32_t number, uint32_t field);
Calls EndFrame(uint32_t number);
// begin F, the characters of text, end F.
Calls TextField(uint32_t number, uint32_t field, std::string_view text);
inline Calls FrameBreak() { return {"break 11"}; }
inline Calls EndBreak() { return {"break 2"}; }
// The three calls of VwStreamSection.
inline Calls SectionStart() { return {"start 9 0 0", "charset latin1", "flags 8000"}; }
// inner bracketed by the two charset calls.
Calls Utf16(const Calls& inner);
inline Calls Repeat(const Calls& calls, size_t times) {
    Calls out;
    for (size_t i = 0; i < times; ++i) out += calls;
    return out;
}
// The fields of the trailer Id3v1({.title = title}) numbered from `first`.
Calls V1Fields(uint32_t first, std::string_view title = "V");

// A text frame body: encoding byte 0, then the characters.
inline Bytes TextBody(std::string_view text) { return Raw({0}) + Latin1(text); }

// Registers, through VwLocalUp, VwSetSoRtn and VwSetUser, the nine routines
// the module calls on a context, with the user pair (this, kUserMagic), and
// records every call.  A routine called with any other pair adds a test
// failure.
class RecordingHost {
public:
    static constexpr uint64_t kUserMagic = 0x5EC0DE00C0FFEE42ull;

    explicit RecordingHost(VwContext* context);
    ~RecordingHost();
    RecordingHost(const RecordingHost&) = delete;
    RecordingHost& operator=(const RecordingHost&) = delete;

    // The calls recorded since the last Take.
    Calls Take();

    Calls calls;
    // The answer to the breakAt-th frame break (counting from 1), or to every
    // frame break when breakAt is 0; other breaks are answered 0 (go on).
    uint32_t breakStatus = 0;
    int breakAt = 0;
    int frameBreaks = 0;

private:
    static RecordingHost* Find(uint64_t user1, uint64_t user2);
    static void Record(uint64_t user1, uint64_t user2, std::string call);
};

// A context with a recording host on a file, for driving whole reads.
class Session {
public:
    explicit Session(Bytes file);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int32_t Open(uint16_t fileType = VW_FILETYPE_DEFAULT);
    // VwStreamOpen (expecting 0) and VwStreamSection; the section's calls
    // are taken out of the record.
    void Start();
    int32_t Read() { return VwStreamRead(file.stream(), context); }
    // Start, then one read (expecting 0); the calls that read made.
    Calls StartAndRead();
    // Reads until the end break, at most 64 read calls; returns the number
    // of read calls made.
    int ReadToEnd();
    kz::ProcessContext* ctx() const { return kz::ToContext(context); }

    VwContext* context;
    MemoryStream file;
    RecordingHost host;
};

// A file read whole by the first read call after the section start: the
// calls up to and including the end break, and the frame count it leaves.
struct FileCase {
    const char* name;
    Bytes file;
    Calls expected;
    uint32_t frameCount;
};
// Reads each file so, and checks that every read after the end repeats only
// the end break.
void ExpectWholeReads(const std::vector<FileCase>& cases);

}  // namespace kztest

#endif  // KZ_TESTS_RECORDING_HOST_H
