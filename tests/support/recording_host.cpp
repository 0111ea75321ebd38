#include "recording_host.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <utility>

namespace kztest {

Calls operator+(Calls a, const Calls& b) { return a += b; }

Calls& operator+=(Calls& to, const Calls& more) {
    to.insert(to.end(), more.begin(), more.end());
    return to;
}

namespace {

std::string Hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", value);
    return text;
}
std::string Dec(uint32_t value) { return std::to_string(value); }
std::string Kind(uint32_t kind) { return kind == SO_TAG_FRAME ? "F" : kind == SO_TAG_STRING ? "S" : Hex(kind); }
std::string Number(uint32_t number) { return number == 0xFFFFFFFFu ? "ffffffff" : Dec(number); }

std::set<const RecordingHost*>& LiveHosts() {
    static std::set<const RecordingHost*> hosts;
    return hosts;
}

template <typename Function>
SORoutine Routine(Function* function) {
    return reinterpret_cast<SORoutine>(function);
}

}  // namespace

Calls Chars(std::string_view text) {
    Calls out;
    for (unsigned char c : text) out.push_back("char " + Hex(c));
    return out;
}

Calls Codes(std::initializer_list<uint32_t> codes) {
    Calls out;
    for (const uint32_t code : codes) out.push_back("char " + Hex(code));
    return out;
}

Calls BeginFrame(uint32_t number, uint32_t field) { return {"begin F " + Dec(number) + " " + Dec(field)}; }
Calls EndFrame(uint32_t number) { return {"end F " + Dec(number)}; }
Calls TextField(uint32_t number, uint32_t field, std::string_view text) {
    return BeginFrame(number, field) + Chars(text) + EndFrame(number);
}
Calls Utf16(const Calls& inner) { return Calls{"charset utf16"} + inner + Calls{"charset latin1"}; }

Calls V1Fields(uint32_t first, std::string_view title) {
    return TextField(first, 118, title) + TextField(first + 1, 132, "") + TextField(first + 2, 105, "") +
           TextField(first + 3, 150, "") + TextField(first + 4, 80, "") + TextField(first + 5, 108, "");
}

// ---- RecordingHost ---------------------------------------------------------------

RecordingHost* RecordingHost::Find(uint64_t user1, uint64_t user2) {
    auto* host = reinterpret_cast<RecordingHost*>(static_cast<uintptr_t>(user1));
    if (user2 == kUserMagic && LiveHosts().count(host) != 0) return host;
    ADD_FAILURE() << "host routine called with user pair " << std::hex << user1 << ", " << user2;
    return nullptr;
}

void RecordingHost::Record(uint64_t user1, uint64_t user2, std::string call) {
    if (RecordingHost* host = Find(user1, user2)) host->calls.push_back(std::move(call));
}

RecordingHost::RecordingHost(VwContext* context) {
    LiveHosts().insert(this);
    uint64_t value = 0;
    VwLocalUp(0x10CA1u, &value, context);
    using U = uint64_t;
    const std::pair<uint16_t, SORoutine> routines[] = {
        {SO_ROUTINE_OUTCHAR, Routine(+[](uint16_t code, U a, U b) { Record(a, b, "char " + Hex(code)); })},
        {SO_ROUTINE_OUTSPECIAL, Routine(+[](uint16_t special, U a, U b) { Record(a, b, "special " + Dec(special)); })},
        {SO_ROUTINE_OUTBREAK, Routine(+[](uint16_t kind, uint16_t zero, U a, U b) -> uint32_t {
             RecordingHost* host = Find(a, b);
             if (host == nullptr) return 0;
             std::string call = "break " + Dec(kind);
             if (zero != 0) call.append(" ").append(Dec(zero));
             host->calls.push_back(std::move(call));
             if (kind != SO_BREAK_FRAME) return 0;
             ++host->frameBreaks;
             return host->breakAt == 0 || host->breakAt == host->frameBreaks ? host->breakStatus : 0;
         })},
        {SO_ROUTINE_STARTSECTION, Routine(+[](uint32_t x, uint32_t y, uint32_t z, U a, U b) {
             Record(a, b, "start " + Dec(x) + " " + Dec(y) + " " + Dec(z));
         })},
        {SO_ROUTINE_REPORTFAILURE, Routine(+[](uint32_t what, U a, U b) { Record(a, b, "failure " + Dec(what)); })},
        {SO_ROUTINE_BEGINTAG, Routine(+[](uint32_t kind, uint32_t number, const KzTagDescriptor* d, U a, U b) {
             Record(a, b, "begin " + Kind(kind) + " " + Number(number) + " " + (d ? Dec(d->fieldNumber) : "null"));
         })},
        {SO_ROUTINE_ENDTAG, Routine(+[](uint32_t kind, uint32_t number, U a, U b) {
             Record(a, b, "end " + Kind(kind) + " " + Number(number));
         })},
        {SO_ROUTINE_SETCHARSET, Routine(+[](uint32_t charset, U a, U b) {
             Record(a, b, "charset " + (charset == SO_CHARSET_LATIN1   ? std::string("latin1")
                                        : charset == SO_CHARSET_UTF16 ? std::string("utf16")
                                                                      : Hex(charset)));
         })},
        {SO_ROUTINE_SETSECTIONFLAGS, Routine(+[](uint32_t flags, U a, U b) { Record(a, b, "flags " + Hex(flags)); })},
    };
    for (const auto& [id, routine] : routines) VwSetSoRtn(id, routine, context);
    VwSetUser(reinterpret_cast<uintptr_t>(this), kUserMagic, context);
}

RecordingHost::~RecordingHost() { LiveHosts().erase(this); }

Calls RecordingHost::Take() { return std::exchange(calls, {}); }

// ---- Session ------------------------------------------------------------------------

Session::Session(Bytes bytes) : context(VwAllocProc()), file(std::move(bytes)), host(context) {}

Session::~Session() { VwFreeProc(context); }

int32_t Session::Open(uint16_t fileType) {
    KzFileInfo info{};
    return VwStreamOpen(file.stream(), fileType, 0, &info, context);
}

void Session::Start() {
    EXPECT_EQ(Open(), VW_OPEN_OK);
    EXPECT_EQ(VwStreamSection(file.stream(), context), 0);
    EXPECT_EQ(host.Take(), SectionStart());
}

Calls Session::StartAndRead() {
    Start();
    EXPECT_EQ(Read(), 0);
    return host.Take();
}

int Session::ReadToEnd() {
    for (int n = 1; n <= 64; ++n) {
        EXPECT_EQ(Read(), 0);
        if (!host.calls.empty() && host.calls.back() == "break 2") return n;
    }
    ADD_FAILURE() << "no end break after 64 read calls";
    return 64;
}

void ExpectWholeReads(const std::vector<FileCase>& cases) {
    for (const FileCase& c : cases) {
        Session s(c.file);
        EXPECT_EQ(s.StartAndRead(), c.expected) << c.name;
        EXPECT_EQ(s.ctx()->sectionState, kz::kContentFinished) << c.name;
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(s.Read(), 0);
            EXPECT_EQ(s.host.Take(), EndBreak()) << c.name;
        }
        EXPECT_EQ(s.ctx()->frameCount, c.frameCount) << c.name;
    }
}

}  // namespace kztest
