#include "recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

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

std::string TagKind(uint32_t kind) {
    return kind == SO_TAG_FRAME ? "F" : kind == SO_TAG_STRING ? "S" : Hex(kind);
}
std::string TagNumber(uint32_t number) { return number == 0xFFFFFFFFu ? "ffffffff" : std::to_string(number); }
std::string CharSet(uint32_t charset) {
    return charset == SO_CHARSET_LATIN1 ? "latin1" : charset == SO_CHARSET_UTF16 ? "utf16" : Hex(charset);
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

Calls BeginFrame(uint32_t number, uint32_t field) {
    return {"begin F " + std::to_string(number) + " " + std::to_string(field)};
}

Calls EndFrame(uint32_t number) { return {"end F " + std::to_string(number)}; }

Calls TextField(uint32_t number, uint32_t field, std::string_view text) {
    return BeginFrame(number, field) + Chars(text) + EndFrame(number);
}

Calls FrameBreak() { return {"break 11"}; }
Calls EndBreak() { return {"break 2"}; }
Calls SectionStart() { return {"start 9 0 0", "charset latin1", "flags 8000"}; }
Calls Utf16(const Calls& inner) { return Calls{"charset utf16"} + inner + Calls{"charset latin1"}; }

Calls V1Fields(uint32_t first, std::string_view title) {
    return TextField(first, 118, title) + TextField(first + 1, 132, "") + TextField(first + 2, 105, "") +
           TextField(first + 3, 150, "") + TextField(first + 4, 80, "") + TextField(first + 5, 108, "");
}

// ---- RecordingHost ---------------------------------------------------------------

RegistrationEntries LinkedEntries() { return {&VwLocalUp, &VwSetSoRtn, &VwSetUser}; }

RegistrationEntries TableEntries(const VwEntry* table) {
    return {reinterpret_cast<VwLocalUpFn>(table[VW_ENTRY_LOCALUP]),
            reinterpret_cast<VwSetSoRtnFn>(table[VW_ENTRY_SETSORTN]),
            reinterpret_cast<VwSetUserFn>(table[VW_ENTRY_SETUSER])};
}

namespace {
std::set<const RecordingHost*>& LiveHosts() {
    static std::set<const RecordingHost*> hosts;
    return hosts;
}
}  // namespace

struct RecordingRoutines {
    static RecordingHost* Find(uint64_t user1, uint64_t user2) {
        auto* host = reinterpret_cast<RecordingHost*>(static_cast<uintptr_t>(user1));
        if (user2 != RecordingHost::kUserMagic || LiveHosts().count(host) == 0) {
            ADD_FAILURE() << "host routine called with user pair " << std::hex << user1 << ", "
                          << user2;
            return nullptr;
        }
        return host;
    }

    static void Rec(uint64_t user1, uint64_t user2, const std::string& call) {
        if (auto* h = Find(user1, user2)) h->Record(std::move(call));
    }
    static void OutChar(uint16_t code, uint64_t u1, uint64_t u2) { Rec(u1, u2, "char " + Hex(code)); }
    static void OutSpecial(uint16_t special, uint64_t u1, uint64_t u2) {
        Rec(u1, u2, "special " + std::to_string(special));
    }
    static uint32_t OutBreak(uint16_t kind, uint16_t zero, uint64_t u1, uint64_t u2) {
        auto* h = Find(u1, u2);
        if (h == nullptr) return 0;
        std::string call = "break " + std::to_string(kind);
        if (zero != 0) call.append(" ").append(std::to_string(zero));
        h->Record(std::move(call));
        if (kind == SO_BREAK_FRAME) ++h->frameBreaks_;
        return h->breakAnswer ? h->breakAnswer(kind, h->frameBreaks_) : 0;
    }
    static void StartSection(uint32_t a, uint32_t b, uint32_t c, uint64_t u1, uint64_t u2) {
        Rec(u1, u2, "start " + std::to_string(a) + " " + std::to_string(b) + " " + std::to_string(c));
    }
    static void ReportFailure(uint32_t failure, uint64_t u1, uint64_t u2) {
        Rec(u1, u2, "failure " + std::to_string(failure));
    }
    static void BeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor, uint64_t u1,
                         uint64_t u2) {
        const std::string field = descriptor ? std::to_string(descriptor->fieldNumber) : "null";
        Rec(u1, u2, "begin " + TagKind(kind) + " " + TagNumber(number) + " " + field);
    }
    static void EndTag(uint32_t kind, uint32_t number, uint64_t u1, uint64_t u2) {
        Rec(u1, u2, "end " + TagKind(kind) + " " + TagNumber(number));
    }
    static void SetCharSet(uint32_t charset, uint64_t u1, uint64_t u2) { Rec(u1, u2, "charset " + CharSet(charset)); }
    static void SetSectionFlags(uint32_t flags, uint64_t u1, uint64_t u2) { Rec(u1, u2, "flags " + Hex(flags)); }
};

RecordingHost::RecordingHost(VwContext* context, const RegistrationEntries& entries) {
    LiveHosts().insert(this);
    entries.localUp(0x10CA1u, &localUpValue, context);
    const struct {
        uint16_t id;
        SORoutine routine;
    } routines[] = {
        {SO_ROUTINE_OUTCHAR, reinterpret_cast<SORoutine>(&RecordingRoutines::OutChar)},
        {SO_ROUTINE_OUTSPECIAL, reinterpret_cast<SORoutine>(&RecordingRoutines::OutSpecial)},
        {SO_ROUTINE_OUTBREAK, reinterpret_cast<SORoutine>(&RecordingRoutines::OutBreak)},
        {SO_ROUTINE_STARTSECTION, reinterpret_cast<SORoutine>(&RecordingRoutines::StartSection)},
        {SO_ROUTINE_REPORTFAILURE, reinterpret_cast<SORoutine>(&RecordingRoutines::ReportFailure)},
        {SO_ROUTINE_BEGINTAG, reinterpret_cast<SORoutine>(&RecordingRoutines::BeginTag)},
        {SO_ROUTINE_ENDTAG, reinterpret_cast<SORoutine>(&RecordingRoutines::EndTag)},
        {SO_ROUTINE_SETCHARSET, reinterpret_cast<SORoutine>(&RecordingRoutines::SetCharSet)},
        {SO_ROUTINE_SETSECTIONFLAGS, reinterpret_cast<SORoutine>(&RecordingRoutines::SetSectionFlags)},
    };
    for (const auto& r : routines) entries.setSoRtn(r.id, r.routine, context);
    entries.setUser(reinterpret_cast<uintptr_t>(this), kUserMagic, context);
}

RecordingHost::~RecordingHost() { LiveHosts().erase(this); }

Calls RecordingHost::Take() {
    Calls out;
    out.swap(calls_);
    return out;
}

void RecordingHost::StopAtFrameBreak(int k, uint32_t status) {
    breakAnswer = [k, status](uint16_t kind, int frameBreaks) -> uint32_t {
        return kind == SO_BREAK_FRAME && (k == 0 || frameBreaks == k) ? status : 0;
    };
}

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

int32_t Session::Read() { return VwStreamRead(file.stream(), context); }

Calls Session::StartAndRead() {
    Start();
    EXPECT_EQ(Read(), 0);
    return host.Take();
}

int Session::ReadToEnd(int maxCalls) {
    for (int n = 1; n <= maxCalls; ++n) {
        EXPECT_EQ(Read(), 0);
        if (!host.calls().empty() && host.calls().back() == "break 2") return n;
    }
    ADD_FAILURE() << "no end break after " << maxCalls << " read calls";
    return maxCalls;
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
