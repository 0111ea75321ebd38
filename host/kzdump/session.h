// One worker's host: a module context with kzdump's routines registered, a
// stream and reusable buffers, reading one file after another.
#ifndef KZDUMP_SESSION_H
#define KZDUMP_SESSION_H

#include "file_record.h"
#include "file_stream.h"
#include "module_loader.h"
#include "options.h"

#include <cstdint>
#include <string>

namespace kzdump {

enum class FileOutcome { Read, NotRead };

class Session {
public:
    Session(const Module& module, const Options& options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // False when the module could not give a context (the reason is in
    // `error`).
    bool Ready(std::string& error) const;

    // Reads one file: its output is appended to `out`, error lines to `err`.
    FileOutcome Process(const std::string& path, std::string& out, std::string& err);

private:
    // Every host routine finds its session through user1; user2 carries a
    // fixed value, so a routine can tell that the pair came back intact.
    static constexpr uint64_t kUserCheck = 0x6B7A64756D70ULL;  // "kzdump"
    static Session* From(uint64_t user1, uint64_t user2);

    void Register();
    // Frame-break and end-break bookkeeping shared by both routine sets;
    // returns the break status to answer.
    uint32_t OnBreak(uint16_t kind);
    bool ReadToEnd(std::string& problem);
    // Between read calls: VwStreamTell and VwGetData, then VwSetData and
    // VwStreamSeek.  False when the seek back fails.
    bool SaveAndRestore();

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
    // One trace line of the given parts, with a note when the user pair came
    // back altered.
    template <typename... Parts>
    void Trace(uint64_t user1, uint64_t user2, const Parts&... parts);

    const Module& module_;
    const Options& options_;
    VwContext* context_ = nullptr;
    FileStream stream_;
    FileRecord record_;
    std::string* trace_ = nullptr;  // the output while tracing a file

    // Per file.
    bool endSeen_ = false;
    bool stopped_ = false;
    bool runaway_ = false;
    bool userPairBad_ = false;
    uint32_t framesSinceStop_ = 0;
    uint64_t frameBreaks_ = 0;
    uint64_t frameBreakLimit_ = 0;
    size_t traceLimit_ = 0;
};

}  // namespace kzdump

#endif  // KZDUMP_SESSION_H
