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
#include <functional>
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
Calls Chars(std::string_view text);       // one "char" per byte
Calls Codes(std::initializer_list<uint32_t> codes);  // one "char" per code
Calls BeginFrame(uint32_t number, uint32_t field);
Calls EndFrame(uint32_t number);
// begin F, the characters of text, end F.
Calls TextField(uint32_t number, uint32_t field, std::string_view text);
Calls FrameBreak();
Calls EndBreak();
Calls SectionStart();  // the three calls of VwStreamSection
Calls Utf16(const Calls& inner);  // inner bracketed by the two charset calls
// The fields of the trailer Id3v1({.title = title}) numbered from `first`.
Calls V1Fields(uint32_t first, std::string_view title = "V");

// A text frame body: encoding byte 0, then the characters.
inline Bytes TextBody(std::string_view text) { return Raw({0}) + Latin1(text); }

// The entry points a RecordingHost registers its routines through.
struct RegistrationEntries {
    VwLocalUpFn localUp;
    VwSetSoRtnFn setSoRtn;
    VwSetUserFn setUser;
};
RegistrationEntries LinkedEntries();
RegistrationEntries TableEntries(const VwEntry* table);

// Registers the nine routines the module calls on a context, with the user
// pair (this, kUserMagic), and records every call.  A routine called with any
// other pair adds a test failure.
class RecordingHost {
public:
    static constexpr uint64_t kUserMagic = 0x5EC0DE00C0FFEE42ull;

    explicit RecordingHost(VwContext* context, const RegistrationEntries& entries = LinkedEntries());
    ~RecordingHost();
    RecordingHost(const RecordingHost&) = delete;
    RecordingHost& operator=(const RecordingHost&) = delete;

    // The calls recorded since the last Take.
    Calls Take();
    const Calls& calls() const { return calls_; }

    // The answer to SOOutBreak; by default 0 (go on).  Receives the kind and
    // the count of frame breaks seen so far, this one included.
    std::function<uint32_t(uint16_t kind, int frameBreaks)> breakAnswer;
    // Answers `status` to the k-th frame break (counting from 1), or to every
    // frame break when k is 0.
    void StopAtFrameBreak(int k, uint32_t status = 1);

    uint64_t localUpValue = 0;

private:
    friend struct RecordingRoutines;
    void Record(std::string call) { calls_.push_back(std::move(call)); }

    Calls calls_;
    int frameBreaks_ = 0;
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
    int32_t Read();
    // Start, then one read (expecting 0); the calls that read made.
    Calls StartAndRead();
    // Reads until the end break, at most maxCalls read calls; returns the
    // number of read calls made.
    int ReadToEnd(int maxCalls = 64);
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
