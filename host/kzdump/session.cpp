#include "session.h"

#include "kz_sys.h"
#include "render.h"

#include <cstring>

namespace kzdump {

namespace {

// Bounds that a working module never reaches on a file of `size` bytes:
// every frame takes at least 6 bytes of the file, and no frame yields more
// than a few characters per byte.  Past them the file is given up.
uint64_t FrameBreakLimit(uint32_t size) { return uint64_t{size} + 1024; }
size_t CharacterLimit(uint32_t size) { return size_t{size} * 64 + (size_t{1} << 20); }
size_t TraceLimit(uint32_t size) { return CharacterLimit(size) * 24; }

// The session of the calling thread, for a routine that receives an altered
// user pair.
thread_local Session* currentSession = nullptr;

template <typename Routine>
SORoutine AsRoutine(Routine routine) {
    return reinterpret_cast<SORoutine>(routine);
}

}  // namespace

Session::Session(const Module& module, const Options& options)
    : module_(module), options_(options) {
    context_ = module_.allocProc();
    if (context_ != nullptr) Register();
}

Session::~Session() {
    if (context_ != nullptr) module_.freeProc(context_);
}

bool Session::Ready(std::string& error) const {
    if (context_ != nullptr) return true;
    error = "the module could not allocate a context (VwAllocProc returned null)";
    return false;
}

void Session::Register() {
    uint64_t localValue = 0;
    module_.localUp(0, &localValue, context_);
    const bool trace = options_.mode == OutputMode::Trace;
    const struct {
        uint16_t id;
        SORoutine record;
        SORoutine trace;
    } routines[] = {
        {SO_ROUTINE_OUTCHAR, AsRoutine(&OutChar), AsRoutine(&TraceOutChar)},
        {SO_ROUTINE_OUTSPECIAL, AsRoutine(&OutSpecial), AsRoutine(&TraceOutSpecial)},
        {SO_ROUTINE_OUTBREAK, AsRoutine(&OutBreak), AsRoutine(&TraceOutBreak)},
        {SO_ROUTINE_STARTSECTION, AsRoutine(&StartSection), AsRoutine(&TraceStartSection)},
        {SO_ROUTINE_REPORTFAILURE, AsRoutine(&ReportFailure), AsRoutine(&TraceReportFailure)},
        {SO_ROUTINE_BEGINTAG, AsRoutine(&BeginTag), AsRoutine(&TraceBeginTag)},
        {SO_ROUTINE_ENDTAG, AsRoutine(&EndTag), AsRoutine(&TraceEndTag)},
        {SO_ROUTINE_SETCHARSET, AsRoutine(&SetCharSet), AsRoutine(&TraceSetCharSet)},
        {SO_ROUTINE_SETSECTIONFLAGS, AsRoutine(&SetSectionFlags),
         AsRoutine(&TraceSetSectionFlags)},
    };
    for (const auto& routine : routines) {
        module_.setSoRtn(routine.id, trace ? routine.trace : routine.record, context_);
    }
    module_.setUser(reinterpret_cast<uint64_t>(this), kUserCheck, context_);
}

Session* Session::From(uint64_t user1, uint64_t user2) {
    auto* session = reinterpret_cast<Session*>(user1);
    if (user2 == kUserCheck && session == currentSession) return session;
    currentSession->userPairBad_ = true;
    return currentSession;
}

uint32_t Session::OnBreak(uint16_t kind) {
    if (kind == SO_BREAK_END) {
        endSeen_ = true;
        return 0;
    }
    if (kind != SO_BREAK_FRAME) return 0;
    if (runaway_ || ++frameBreaks_ > frameBreakLimit_ || record_.Overflowed()) {
        runaway_ = true;
        return 1;
    }
    if (options_.stopEvery != 0 && ++framesSinceStop_ >= options_.stopEvery) {
        framesSinceStop_ = 0;
        stopped_ = true;
        return 1;
    }
    return 0;
}

// ---- Routines that record the file ------------------------------------------

void Session::OutChar(uint16_t code, uint64_t user1, uint64_t user2) {
    From(user1, user2)->record_.Char(code);
}

void Session::OutSpecial(uint16_t special, uint64_t user1, uint64_t user2) {
    From(user1, user2)->record_.Special(special);
}

uint32_t Session::OutBreak(uint16_t kind, uint16_t, uint64_t user1, uint64_t user2) {
    Session* session = From(user1, user2);
    if (kind == SO_BREAK_FRAME) session->record_.FrameBreak();
    return session->OnBreak(kind);
}

void Session::StartSection(uint32_t, uint32_t, uint32_t, uint64_t user1, uint64_t user2) {
    From(user1, user2);
}

void Session::ReportFailure(uint32_t failure, uint64_t user1, uint64_t user2) {
    From(user1, user2)->record_.Failure(failure);
}

void Session::BeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                       uint64_t user1, uint64_t user2) {
    Session* session = From(user1, user2);
    if (kind == SO_TAG_FRAME) {
        session->record_.BeginField(number, descriptor ? descriptor->fieldNumber : 0);
    } else if (kind == SO_TAG_STRING) {
        session->record_.BeginString(number);
    }
}

void Session::EndTag(uint32_t kind, uint32_t, uint64_t user1, uint64_t user2) {
    Session* session = From(user1, user2);
    if (kind == SO_TAG_FRAME) {
        session->record_.EndField();
    } else if (kind == SO_TAG_STRING) {
        session->record_.EndString();
    }
}

void Session::SetCharSet(uint32_t charset, uint64_t user1, uint64_t user2) {
    From(user1, user2)->record_.SetUtf16(charset == SO_CHARSET_UTF16);
}

void Session::SetSectionFlags(uint32_t, uint64_t user1, uint64_t user2) { From(user1, user2); }

// ---- Routines that trace every call -----------------------------------------

namespace {

struct Hex {
    uint32_t value;
    int digits;
};

void Append(std::string& out, const char* text) { out += text; }
void Append(std::string& out, uint32_t number) { AppendNumber(number, out); }
void Append(std::string& out, Hex hex) {
    out += "0x";
    AppendHex(hex.value, hex.digits, out);
}

}  // namespace

template <typename... Parts>
void Session::Trace(uint64_t user1, uint64_t user2, const Parts&... parts) {
    if (runaway_) return;
    (Append(*trace_, parts), ...);
    if (user2 != kUserCheck || reinterpret_cast<Session*>(user1) != this) {
        *trace_ += "  # altered user pair";
    }
    trace_->push_back('\n');
    if (trace_->size() > traceLimit_) runaway_ = true;
}

void Session::TraceOutChar(uint16_t code, uint64_t user1, uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOOutChar(", Hex{code, 4}, ")");
}

void Session::TraceOutSpecial(uint16_t special, uint64_t user1, uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOOutSpecial(", uint32_t{special}, ")");
}

uint32_t Session::TraceOutBreak(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2) {
    Session* session = From(user1, user2);
    const uint32_t status = session->OnBreak(kind);
    session->Trace(user1, user2, "SOOutBreak(", uint32_t{kind}, ", ", uint32_t{zero}, ") = ",
                   status);
    return status;
}

void Session::TraceStartSection(uint32_t a, uint32_t b, uint32_t c, uint64_t user1,
                                uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOStartSection(", a, ", ", b, ", ", c, ")");
}

void Session::TraceReportFailure(uint32_t failure, uint64_t user1, uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOReportFailure(", failure, ")");
}

void Session::TraceBeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                            uint64_t user1, uint64_t user2) {
    Session* session = From(user1, user2);
    if (descriptor == nullptr) {
        session->Trace(user1, user2, "SOBeginTag(", Hex{kind, 8}, ", ", number, ", null)");
    } else {
        session->Trace(user1, user2, "SOBeginTag(", Hex{kind, 8}, ", ", number, ", {",
                       descriptor->fieldNumber, "})");
    }
}

void Session::TraceEndTag(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOEndTag(", Hex{kind, 8}, ", ", number, ")");
}

void Session::TraceSetCharSet(uint32_t charset, uint64_t user1, uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOSetCharSet(", Hex{charset, 8}, ")");
}

void Session::TraceSetSectionFlags(uint32_t flags, uint64_t user1, uint64_t user2) {
    From(user1, user2)->Trace(user1, user2, "SOSetSectionFlags(", Hex{flags, 4}, ")");
}

// ---- One file ----------------------------------------------------------------

bool Session::SaveAndRestore() {
    uint8_t block[VW_SAVED_STATE_SIZE];
    module_.streamTell(stream_.Stream(), context_);
    module_.getData(block, context_);
    // A host may move the stream between read calls; the restore brings it back.
    stream_.Rewind();
    module_.setData(block, context_);
    return module_.streamSeek(stream_.Stream(), context_) == 0;
}

bool Session::ReadToEnd(std::string& problem) {
    const uint64_t callLimit = frameBreakLimit_ + 16;
    for (uint64_t calls = 0; !endSeen_; ++calls) {
        if (runaway_ || calls == callLimit) {
            problem = "the module did not finish the file (given up after ";
            AppendNumber(static_cast<int64_t>(calls), problem);
            problem += " read calls)";
            return false;
        }
        stopped_ = false;
        module_.streamRead(stream_.Stream(), context_);
        if (!endSeen_ && stopped_ && !SaveAndRestore()) {
            problem = "VwStreamSeek could not restore the saved position";
            return false;
        }
    }
    return true;
}

FileOutcome Session::Process(const std::string& path, std::string& out, std::string& err) {
    std::string reason;
    if (!stream_.Open(path.c_str(), reason)) {
        err += "kzdump: ";
        AppendPrintable(path, err);
        err += ": " + reason + "\n";
        if (options_.mode == OutputMode::Json) RenderJsonError(path, reason, out);
        return FileOutcome::NotRead;
    }
    currentSession = this;
    KzSysSetBlockLimit(stream_.Size());
    record_.Reset(CharacterLimit(stream_.Size()));
    endSeen_ = false;
    stopped_ = false;
    runaway_ = false;
    userPairBad_ = false;
    framesSinceStop_ = 0;
    frameBreaks_ = 0;
    frameBreakLimit_ = FrameBreakLimit(stream_.Size());
    traceLimit_ = out.size() + TraceLimit(stream_.Size());
    const bool tracing = options_.mode == OutputMode::Trace;
    trace_ = &out;
    if (tracing) {
        out += "# ";
        AppendPrintable(path, out);
        out.push_back('\n');
    }

    KzFileInfo info{};
    const int32_t status =
        module_.streamOpen(stream_.Stream(), options_.fileType, 0, &info, context_);
    const std::string_view typeName(info.typeName, strnlen(info.typeName, sizeof info.typeName));
    if (tracing) {
        out += "# VwStreamOpen = ";
        AppendNumber(status, out);
        out += ", type \"";
        AppendPrintable(typeName, out);
        out += "\"\n";
    }
    std::string problem;
    bool finished = false;
    if (status == VW_OPEN_OK) {
        module_.streamSection(stream_.Stream(), context_);
        finished = ReadToEnd(problem);
    }
    module_.streamClose(stream_.Stream(), context_);
    stream_.Close();
    record_.Finish(endSeen_);
    if (userPairBad_ && problem.empty()) problem = "the module passed back an altered user pair";

    const FileHeader header{path, status, options_.fileType, typeName, endSeen_};
    if (options_.mode == OutputMode::Text) RenderText(header, record_, out);
    if (options_.mode == OutputMode::Json) RenderJson(header, record_, out);
    if (!problem.empty()) {
        err += "kzdump: ";
        AppendPrintable(path, err);
        err += ": " + problem + "\n";
    }
    return finished && problem.empty() ? FileOutcome::Read : FileOutcome::NotRead;
}

}  // namespace kzdump
