#include "reader.h"

#include "detect.h"
#include "kz_sys.h"

#include <cstring>
#include <new>

namespace kzhost {

namespace {

// Bounds that a working module never reaches on a file of `size` bytes:
// every frame takes at least 6 bytes of the file, and no frame yields more
// than a few characters per byte.  Past them the file is given up.
uint64_t FrameBreakLimit(uint32_t size) { return uint64_t{size} + 1024; }
uint64_t CharacterLimit(uint32_t size) { return uint64_t{size} * 64 + (uint64_t{1} << 20); }

template <typename Routine>
SORoutine AsRoutine(Routine routine) {
    return reinterpret_cast<SORoutine>(routine);
}

}  // namespace

Reader::~Reader() {
    if (context_ != nullptr) module_.freeProc(context_);
    UnloadModule(module_);
}

int Reader::Init(const char* modulePath, std::string& message) {
    const int status = LoadModule(modulePath, module_, message);
    if (status != KZ_HOST_OK) return status;
    context_ = module_.allocProc();
    if (context_ == nullptr) {
        message = module_.path + ": the module could not allocate a context (VwAllocProc returned null)";
        return KZ_HOST_ERROR_NO_CONTEXT;
    }
    uint64_t localValue = 0;
    module_.localUp(0, &localValue, context_);
    Register(false);
    return KZ_HOST_OK;
}

void Reader::Register(bool trace) {
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
    const auto user1 = reinterpret_cast<uint64_t>(this);
    module_.setUser(user1, user1 ^ kUserCheck, context_);
    traceRegistered_ = trace;
}

Reader* Reader::From(uint64_t user1, uint64_t user2) {
    return (user1 ^ kUserCheck) == user2 ? reinterpret_cast<Reader*>(user1) : nullptr;
}

template <typename Step>
void Reader::Guarded(Step&& step) {
    try {
        step();
    } catch (const std::bad_alloc&) {
        if (failure_ == KZ_HOST_OK) failure_ = KZ_HOST_ERROR_NO_MEMORY;
        builder_.Halt();
    } catch (...) {
        if (failure_ == KZ_HOST_OK) failure_ = KZ_HOST_ERROR_STOPPED;
        builder_.Halt();
    }
}

uint32_t Reader::OnBreak(uint16_t kind) {
    if (kind == SO_BREAK_END) {
        endSeen_ = true;
        return 0;
    }
    if (kind != SO_BREAK_FRAME) return 0;
    if (failure_ != KZ_HOST_OK || builder_.Halted()) return 1;
    if (runaway_ || ++frameBreaks_ > frameBreakLimit_ || builder_.Overflowed()) {
        runaway_ = true;
        return 1;
    }
    if (stopEvery_ != 0 && ++framesSinceStop_ >= stopEvery_) {
        framesSinceStop_ = 0;
        paged_ = true;
        return 1;
    }
    return 0;
}

// ---- Routines that make fields ---------------------------------------------------

void Reader::OutChar(uint16_t code, uint64_t user1, uint64_t user2) {
    Reader* reader = From(user1, user2);
    if (reader != nullptr && !reader->builder_.StoreAscii(code)) OtherChar(code, reader);
}

void Reader::OtherChar(uint16_t code, Reader* reader) {
    reader->Guarded([&] { reader->builder_.StoreOther(code); });
}

void Reader::OutSpecial(uint16_t special, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) {
        reader->Guarded([&] { reader->builder_.Special(special); });
    }
}

uint32_t Reader::OutBreak(uint16_t kind, uint16_t, uint64_t user1, uint64_t user2) {
    Reader* reader = From(user1, user2);
    if (reader == nullptr) return 0;
    if (kind == SO_BREAK_FRAME) reader->Guarded([&] { reader->builder_.FrameBreak(); });
    return reader->OnBreak(kind);
}

void Reader::StartSection(uint32_t, uint32_t, uint32_t, uint64_t, uint64_t) {}

void Reader::ReportFailure(uint32_t failure, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) {
        reader->Guarded([&] { reader->builder_.Failure(failure); });
    }
}

void Reader::BeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                      uint64_t user1, uint64_t user2) {
    Reader* reader = From(user1, user2);
    if (reader == nullptr) return;
    reader->Guarded([&] {
        if (kind == SO_TAG_FRAME) {
            reader->builder_.BeginField(number, descriptor ? descriptor->fieldNumber : 0);
        } else if (kind == SO_TAG_STRING) {
            reader->builder_.BeginString(number);
        }
    });
}

void Reader::EndTag(uint32_t kind, uint32_t, uint64_t user1, uint64_t user2) {
    Reader* reader = From(user1, user2);
    if (reader == nullptr) return;
    reader->Guarded([&] {
        if (kind == SO_TAG_FRAME) {
            reader->builder_.EndField();
        } else if (kind == SO_TAG_STRING) {
            reader->builder_.EndString();
        }
    });
}

void Reader::SetCharSet(uint32_t charset, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->builder_.SetUtf16(charset == SO_CHARSET_UTF16);
}

void Reader::SetSectionFlags(uint32_t, uint64_t, uint64_t) {}

// ---- Routines that hand over every call ----------------------------------------------

namespace {

// A traced call carries the module's routine identifier as its kind.
constexpr bool Same(int a, int b) { return a == b; }
static_assert(Same(KZ_HOST_CALL_CHAR, SO_ROUTINE_OUTCHAR) && Same(KZ_HOST_CALL_SPECIAL, SO_ROUTINE_OUTSPECIAL) &&
              Same(KZ_HOST_CALL_BREAK, SO_ROUTINE_OUTBREAK) &&
              Same(KZ_HOST_CALL_START_SECTION, SO_ROUTINE_STARTSECTION) &&
              Same(KZ_HOST_CALL_FAILURE, SO_ROUTINE_REPORTFAILURE) &&
              Same(KZ_HOST_CALL_BEGIN_TAG, SO_ROUTINE_BEGINTAG) && Same(KZ_HOST_CALL_END_TAG, SO_ROUTINE_ENDTAG) &&
              Same(KZ_HOST_CALL_CHARSET, SO_ROUTINE_SETCHARSET) &&
              Same(KZ_HOST_CALL_SECTION_FLAGS, SO_ROUTINE_SETSECTIONFLAGS));
static_assert(KZ_HOST_OPEN_TAGS == VW_OPEN_OK && KZ_HOST_OPEN_NO_TAGS == VW_OPEN_NOTHING_TO_READ);

const char* RoutineName(uint16_t routine) {
    switch (routine) {
        case KZ_HOST_CALL_OPENED: return "VwStreamOpen";
        case KZ_HOST_CALL_CHAR: return "SOOutChar";
        case KZ_HOST_CALL_SPECIAL: return "SOOutSpecial";
        case KZ_HOST_CALL_BREAK: return "SOOutBreak";
        case KZ_HOST_CALL_START_SECTION: return "SOStartSection";
        case KZ_HOST_CALL_FAILURE: return "SOReportFailure";
        case KZ_HOST_CALL_BEGIN_TAG: return "SOBeginTag";
        case KZ_HOST_CALL_END_TAG: return "SOEndTag";
        case KZ_HOST_CALL_CHARSET: return "SOSetCharSet";
        default: return "SOSetSectionFlags";
    }
}

kz_host_call Call(uint16_t routine, uint32_t a, uint32_t b = 0, uint32_t c = 0) {
    kz_host_call call{};
    call.struct_size = sizeof call;
    call.routine = routine;
    call.name = RoutineName(routine);
    call.args[0] = a;
    call.args[1] = b;
    call.args[2] = c;
    call.type_name = "";
    return call;
}

}  // namespace

void Reader::Trace(const kz_host_call& call) {
    if (runaway_ || failure_ != KZ_HOST_OK) return;
    if (++calls_ > callLimit_) {
        runaway_ = true;
        return;
    }
    Guarded([&] { sink_.tracer(&call, sink_.user); });
}

void Reader::TraceOutChar(uint16_t code, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->Trace(Call(SO_ROUTINE_OUTCHAR, code));
}

void Reader::TraceOutSpecial(uint16_t special, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->Trace(Call(SO_ROUTINE_OUTSPECIAL, special));
}

uint32_t Reader::TraceOutBreak(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2) {
    Reader* reader = From(user1, user2);
    if (reader == nullptr) return 0;
    kz_host_call call = Call(SO_ROUTINE_OUTBREAK, kind, zero);
    call.result = reader->OnBreak(kind);
    reader->Trace(call);
    return call.result;
}

void Reader::TraceStartSection(uint32_t a, uint32_t b, uint32_t c, uint64_t user1,
                               uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->Trace(Call(SO_ROUTINE_STARTSECTION, a, b, c));
}

void Reader::TraceReportFailure(uint32_t failure, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->Trace(Call(SO_ROUTINE_REPORTFAILURE, failure));
}

void Reader::TraceBeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                           uint64_t user1, uint64_t user2) {
    Reader* reader = From(user1, user2);
    if (reader == nullptr) return;
    kz_host_call call = Call(SO_ROUTINE_BEGINTAG, kind, number);
    if (descriptor != nullptr) {
        call.args[2] = descriptor->fieldNumber;
        call.has_descriptor = 1;
    }
    reader->Trace(call);
}

void Reader::TraceEndTag(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->Trace(Call(SO_ROUTINE_ENDTAG, kind, number));
}

void Reader::TraceSetCharSet(uint32_t charset, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) reader->Trace(Call(SO_ROUTINE_SETCHARSET, charset));
}

void Reader::TraceSetSectionFlags(uint32_t flags, uint64_t user1, uint64_t user2) {
    if (Reader* reader = From(user1, user2)) {
        reader->Trace(Call(SO_ROUTINE_SETSECTIONFLAGS, flags));
    }
}

// ---- One file ----------------------------------------------------------------

bool Reader::SaveAndRestore(Source& source) {
    uint8_t block[VW_SAVED_STATE_SIZE];
    module_.streamTell(source.Stream(), context_);
    module_.getData(block, context_);
    // A host may move the stream between read calls; the restore brings it back.
    source.Rewind();
    module_.setData(block, context_);
    return module_.streamSeek(source.Stream(), context_) == 0;
}

void Reader::ReadToEnd(Source& source) {
    const uint64_t readCallLimit = frameBreakLimit_ + 16;
    for (uint64_t calls = 0; !endSeen_; ++calls) {
        if (failure_ != KZ_HOST_OK || builder_.Halted()) return;
        if (runaway_ || calls == readCallLimit) {
            runaway_ = true;
            return;
        }
        paged_ = false;
        module_.streamRead(source.Stream(), context_);
        if (!endSeen_ && paged_ && !SaveAndRestore(source)) {
            runaway_ = true;
            return;
        }
    }
}

int Reader::Read(Source& source, const kz_host_read_options& options, const Sink& sink,
                 kz_host_file_info& info) {
    busy_ = true;
    sink_ = sink;
    const uint32_t size = source.Size();
    info.size = size;
    info.detected = options.file_type == KZ_HOST_TYPE_DETECT ? 1 : 0;
    if (info.detected) {
        const DetectedType detected = DetectType(source);
        info.file_type = detected.fileType;
        info.audio = detected.audio ? 1 : 0;
    } else {
        info.file_type = options.file_type;
    }

    const bool trace = sink.tracer != nullptr;
    if (trace != traceRegistered_) Register(trace);
    const uint64_t charLimit = options.char_limit != 0 ? options.char_limit : CharacterLimit(size);
    builder_.Start(charLimit, (options.flags & KZ_HOST_READ_CODES) != 0, sink.visitor, sink.user);
    stopEvery_ = options.stop_every;
    endSeen_ = false;
    paged_ = false;
    runaway_ = false;
    failure_ = KZ_HOST_OK;
    framesSinceStop_ = 0;
    frameBreaks_ = 0;
    frameBreakLimit_ = FrameBreakLimit(size);
    calls_ = 0;
    callLimit_ = charLimit;
    // The host memory services refuse any block above the limit; no real
    // frame body is larger than its file.
    const uint32_t previousBlockLimit = KzSysBlockLimit();
    KzSysSetBlockLimit(options.block_limit != 0 ? options.block_limit : size);
    const int64_t refusedBefore = KzSysRefusedBlocks();

    KzFileInfo fileInfo{};
    const int32_t openStatus =
        module_.streamOpen(source.Stream(), info.file_type, 0, &fileInfo, context_);
    info.open_status = openStatus;
    const size_t nameLength = strnlen(fileInfo.typeName, sizeof fileInfo.typeName);
    const size_t kept = nameLength < sizeof info.type_name ? nameLength : sizeof info.type_name - 1;
    std::memcpy(info.type_name, fileInfo.typeName, kept);
    info.type_name[kept] = '\0';
    if (trace) {
        kz_host_call call = Call(0, static_cast<uint32_t>(openStatus));
        call.type_name = info.type_name;
        Trace(call);
    }
    if (openStatus == VW_OPEN_OK && failure_ == KZ_HOST_OK) {
        module_.streamSection(source.Stream(), context_);
        ReadToEnd(source);
    }
    module_.streamClose(source.Stream(), context_);
    Guarded([&] { builder_.Finish(endSeen_); });

    info.end_seen = endSeen_ ? 1 : 0;
    info.truncated = builder_.Overflowed() || (trace && calls_ > callLimit_) ||
                     KzSysRefusedBlocks() != refusedBefore;
    info.field_count = builder_.Delivered();
    info.errno_value = source.ReadError();
    KzSysSetBlockLimit(previousBlockLimit);
    busy_ = false;

    if (failure_ != KZ_HOST_OK) return failure_;
    if (builder_.Halted()) return KZ_HOST_ERROR_STOPPED;
    if (info.errno_value != 0) return KZ_HOST_ERROR_IO;
    if (openStatus != VW_OPEN_OK) return KZ_HOST_NOTHING_TO_READ;
    if (runaway_ || !endSeen_) return KZ_HOST_ERROR_UNFINISHED;
    return KZ_HOST_OK;
}

}  // namespace kzhost
