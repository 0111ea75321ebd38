// One reader: the loaded module, one module context with the kit's routines
// registered, the two stream objects and the field builder, reading one file
// after another.
#ifndef KZ_HOST_READER_H
#define KZ_HOST_READER_H

#include "field_builder.h"
#include "kz_host.h"
#include "module.h"
#include "stream.h"

#include <cstdint>
#include <string>

namespace kzhost {

// Where a read's output goes: fields to a visitor, or raw calls to a tracer.
struct Sink {
    kz_host_visitor visitor = nullptr;
    kz_host_tracer tracer = nullptr;
    void* user = nullptr;
};

class Reader {
public:
    Reader() = default;
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // Loads the module and allocates the context; a KZ_HOST_* status, with
    // the reason in `message` on failure.
    int Init(const char* modulePath, std::string& message);

    const Module& LoadedModule() const { return module_; }
    FileSource& File() { return file_; }
    MemorySource& Memory() { return memory_; }
    bool Busy() const { return busy_; }

    // Reads the source that is open; `options` is complete.
    int Read(Source& source, const kz_host_read_options& options, const Sink& sink,
             kz_host_file_info& info);

private:
    // The routines find their reader through user1; user2 carries user1
    // folded with a constant, so that a routine can tell the pair came back
    // intact before it trusts it.  Calls with an altered pair are dropped.
    static constexpr uint64_t kUserCheck = 0x6B7A5F686F7374ULL;  // "kz_host"
    static Reader* From(uint64_t user1, uint64_t user2);

    void Register(bool trace);
    // Frame-break and end-break bookkeeping of both routine sets; returns the
    // break status to answer.
    uint32_t OnBreak(uint16_t kind);
    void ReadToEnd(Source& source);
    // Between read calls: VwStreamTell and VwGetData, then VwSetData and
    // VwStreamSeek.  False when the seek back fails.
    bool SaveAndRestore(Source& source);
    // Runs `step` on the builder; memory that runs out or an exception from
    // the visitor stops the read instead of leaving through the module.
    template <typename Step>
    void Guarded(Step&& step);
    // The characters the builder's cursor does not take; out of line, so
    // that OutChar stays a few instructions.
    [[gnu::noinline]] static void OtherChar(uint16_t code, Reader* reader);
    // Hands one call to the tracer, within the call limit.
    void Trace(const kz_host_call& call);

    static void OutChar(uint16_t code, uint64_t user1, uint64_t user2);
    static void OutSpecial(uint16_t special, uint64_t user1, uint64_t user2);
    static uint32_t OutBreak(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2);
    static void StartSection(uint32_t a, uint32_t b, uint32_t c, uint64_t user1, uint64_t user2);
    static void ReportFailure(uint32_t failure, uint64_t user1, uint64_t user2);
    static void BeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                         uint64_t user1, uint64_t user2);
    static void EndTag(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2);
    static void SetCharSet(uint32_t charset, uint64_t user1, uint64_t user2);
    static void SetSectionFlags(uint32_t flags, uint64_t user1, uint64_t user2);

    static void TraceOutChar(uint16_t code, uint64_t user1, uint64_t user2);
    static void TraceOutSpecial(uint16_t special, uint64_t user1, uint64_t user2);
    static uint32_t TraceOutBreak(uint16_t kind, uint16_t zero, uint64_t user1, uint64_t user2);
    static void TraceStartSection(uint32_t a, uint32_t b, uint32_t c, uint64_t user1,
                                  uint64_t user2);
    static void TraceReportFailure(uint32_t failure, uint64_t user1, uint64_t user2);
    static void TraceBeginTag(uint32_t kind, uint32_t number, const KzTagDescriptor* descriptor,
                              uint64_t user1, uint64_t user2);
    static void TraceEndTag(uint32_t kind, uint32_t number, uint64_t user1, uint64_t user2);
    static void TraceSetCharSet(uint32_t charset, uint64_t user1, uint64_t user2);
    static void TraceSetSectionFlags(uint32_t flags, uint64_t user1, uint64_t user2);

    Module module_;
    VwContext* context_ = nullptr;
    bool traceRegistered_ = false;
    bool busy_ = false;
    FileSource file_;
    MemorySource memory_;
    FieldBuilder builder_;
    Sink sink_;

    // Per read.
    uint32_t stopEvery_ = 0;
    bool endSeen_ = false;
    bool paged_ = false;     // the last read call was stopped for paging
    bool runaway_ = false;   // a guard gave the file up
    int failure_ = KZ_HOST_OK;  // NO_MEMORY or STOPPED from an exception
    uint32_t framesSinceStop_ = 0;
    uint64_t frameBreaks_ = 0;
    uint64_t frameBreakLimit_ = 0;
    uint64_t calls_ = 0;      // traced calls
    uint64_t callLimit_ = 0;
};

}  // namespace kzhost

#endif  // KZ_HOST_READER_H
