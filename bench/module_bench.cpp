// In-process benchmarks of the module: each workload is read whole through
// the entry points over an in-memory stream, by a host whose routines only
// count.  Beside each runs its floor: what the interface makes unavoidable,
// the same stream reads of the tag header, of every frame header and body
// and of the trailer into a buffer, and the host calls the module must make,
// each through a function pointer: one per character, the begin and end of
// each field and the break after each frame (counted from a module run).
// The kit line reads the same bytes from memory through libkz_host, to a
// visitor that only counts.  The summary at the end gives the ratios
// module / floor and kit / module.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "kz_host.h"
#include "kz_id3.h"
#include "workloads.h"

namespace {

using kzbench::Bytes;

// ---- The counting host ----------------------------------------------------------

struct Counts {
    uint64_t chars = 0;  // SOOutChar and SOOutSpecial
    uint64_t beginTags = 0;
    uint64_t endTags = 0;
    uint64_t breaks = 0;  // SOOutBreak, the end included
    uint64_t otherCalls = 0;
    bool ended = false;
};

Counts* CountsOf(uint64_t user1) { return reinterpret_cast<Counts*>(user1); }

void CountChar(uint16_t, uint64_t user1, uint64_t) { ++CountsOf(user1)->chars; }
void CountSpecial(uint16_t, uint64_t user1, uint64_t) { ++CountsOf(user1)->chars; }
uint32_t CountBreak(uint16_t kind, uint16_t, uint64_t user1, uint64_t) {
    Counts* counts = CountsOf(user1);
    ++counts->breaks;
    if (kind == SO_BREAK_END) counts->ended = true;
    return 0;
}
void CountStartSection(uint32_t, uint32_t, uint32_t, uint64_t user1, uint64_t) {
    ++CountsOf(user1)->otherCalls;
}
void CountFailure(uint32_t, uint64_t user1, uint64_t) { ++CountsOf(user1)->otherCalls; }
void CountBeginTag(uint32_t, uint32_t, const KzTagDescriptor*, uint64_t user1, uint64_t) {
    ++CountsOf(user1)->beginTags;
}
void CountEndTag(uint32_t, uint32_t, uint64_t user1, uint64_t) { ++CountsOf(user1)->endTags; }
void CountCharSet(uint32_t, uint64_t user1, uint64_t) { ++CountsOf(user1)->otherCalls; }
void CountSectionFlags(uint32_t, uint64_t user1, uint64_t) { ++CountsOf(user1)->otherCalls; }

template <typename Routine>
SORoutine AsRoutine(Routine routine) {
    return reinterpret_cast<SORoutine>(routine);
}

// The floor's routines, read from volatiles so that the calls stay
// indirect calls.
SOOutCharRtn volatile floorOutChar = &CountChar;
SOBeginTagRtn volatile floorBeginTag = &CountBeginTag;
SOEndTagRtn volatile floorEndTag = &CountEndTag;
SOOutBreakRtn volatile floorOutBreak = &CountBreak;

// ---- The in-memory stream -----------------------------------------------------

struct MemoryStream {
    KzStream base{};
    const uint8_t* data = nullptr;
    uint32_t size = 0;
    uint32_t position = 0;

    explicit MemoryStream(const Bytes& bytes)
        : data(bytes.data()), size(static_cast<uint32_t>(bytes.size())) {
        base.read = &Read;
        base.seek = &Seek;
        base.tell = &Tell;
    }

    static MemoryStream* Of(KzStream* stream) { return reinterpret_cast<MemoryStream*>(stream); }

    static int32_t Read(KzStream* stream, void* buffer, uint32_t count, uint32_t* countRead) {
        MemoryStream* self = Of(stream);
        const uint32_t got = std::min(count, self->size - self->position);
        std::memcpy(buffer, self->data + self->position, got);
        self->position += got;
        *countRead = got;
        return 0;
    }
    static int32_t Seek(KzStream* stream, uint16_t origin, int32_t offset) {
        MemoryStream* self = Of(stream);
        const int64_t base = origin == SO_SEEK_SET   ? 0
                             : origin == SO_SEEK_CUR ? int64_t{self->position}
                                                     : int64_t{self->size};
        const int64_t target = base + offset;
        if (target < 0 || target > int64_t{self->size}) return 1;
        self->position = static_cast<uint32_t>(target);
        return 0;
    }
    static int32_t Tell(KzStream* stream, uint32_t* position) {
        *position = Of(stream)->position;
        return 0;
    }
};
static_assert(offsetof(MemoryStream, base) == 0);

uint32_t ReadStream(KzStream* stream, void* buffer, uint32_t count) {
    uint32_t got = 0;
    stream->read(stream, buffer, count, &got);
    return got;
}

// ---- One module run ----------------------------------------------------------------

class ModuleHost {
public:
    ModuleHost() : context_(VwAllocProc()) {
        uint64_t local = 0;
        VwLocalUp(0, &local, context_);
        const struct {
            uint16_t id;
            SORoutine routine;
        } routines[] = {
            {SO_ROUTINE_OUTCHAR, AsRoutine(&CountChar)},
            {SO_ROUTINE_OUTSPECIAL, AsRoutine(&CountSpecial)},
            {SO_ROUTINE_OUTBREAK, AsRoutine(&CountBreak)},
            {SO_ROUTINE_STARTSECTION, AsRoutine(&CountStartSection)},
            {SO_ROUTINE_REPORTFAILURE, AsRoutine(&CountFailure)},
            {SO_ROUTINE_BEGINTAG, AsRoutine(&CountBeginTag)},
            {SO_ROUTINE_ENDTAG, AsRoutine(&CountEndTag)},
            {SO_ROUTINE_SETCHARSET, AsRoutine(&CountCharSet)},
            {SO_ROUTINE_SETSECTIONFLAGS, AsRoutine(&CountSectionFlags)},
        };
        for (const auto& r : routines) VwSetSoRtn(r.id, r.routine, context_);
        VwSetUser(reinterpret_cast<uint64_t>(&counts_), 0, context_);
    }
    ~ModuleHost() { VwFreeProc(context_); }
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;

    // Reads the whole file; false when the module did not reach the end.
    bool Run(MemoryStream& file) {
        counts_ = Counts{};
        file.position = 0;
        KzFileInfo info{};
        if (VwStreamOpen(&file.base, VW_FILETYPE_DEFAULT, 0, &info, context_) != VW_OPEN_OK) {
            return false;
        }
        VwStreamSection(&file.base, context_);
        for (int calls = 0; !counts_.ended && calls < 16; ++calls) VwStreamRead(&file.base, context_);
        VwStreamClose(&file.base, context_);
        return counts_.ended;
    }

    const Counts& counts() const { return counts_; }

private:
    VwContext* context_;
    Counts counts_;
};

// ---- The floor -------------------------------------------------------------------

uint32_t Synchsafe(const uint8_t* b) {
    return uint32_t{b[0]} << 21 | uint32_t{b[1]} << 14 | uint32_t{b[2]} << 7 | b[3];
}
uint32_t BigEndian(const uint8_t* b, int width) {
    uint32_t value = 0;
    for (int i = 0; i < width; ++i) value = value << 8 | b[i];
    return value;
}

// The reads a reader of this file cannot avoid: the tag header, each frame
// header and body, and the last 128 bytes.  Returns the bytes read.
uint64_t FloorReads(MemoryStream& file, uint8_t* buffer) {
    KzStream* stream = &file.base;
    file.position = 0;
    uint64_t total = 0;
    uint8_t header[10];
    total += ReadStream(stream, header, 10);
    if (std::memcmp(header, "ID3", 3) == 0) {
        const int major = header[3];
        const uint32_t tagEnd = 10 + Synchsafe(header + 6);
        const uint32_t headerSize = major == 2 ? 6 : 10;
        while (file.position + headerSize <= tagEnd) {
            total += ReadStream(stream, header, headerSize);
            if (header[0] == 0) break;
            const uint32_t bodySize = major == 2   ? BigEndian(header + 3, 3)
                                      : major == 4 ? Synchsafe(header + 4)
                                                   : BigEndian(header + 4, 4);
            total += ReadStream(stream, buffer, bodySize);
        }
    }
    if (file.size >= 128) {
        stream->seek(stream, SO_SEEK_END, -128);
        total += ReadStream(stream, buffer, 128);
    }
    return total;
}

struct Workload;

// The host calls of a run of the module: its characters, the begin and end
// of its fields and its breaks.
void FloorCalls(const Workload& w, Counts& counts);

// ---- Workloads ---------------------------------------------------------------------

struct Workload {
    std::string name;
    std::vector<Bytes> files;  // read one after the other
    uint64_t tagBytes = 0;
    uint64_t frames = 0;
    Counts calls;  // counted from a module run
    uint32_t largestRead = 0;
};

uint64_t TagBytes(const Bytes& file) {
    uint64_t bytes = file.size() >= 128 && std::memcmp(&file[file.size() - 128], "TAG", 3) == 0
                         ? 128
                         : 0;
    if (file.size() >= 10 && std::memcmp(file.data(), "ID3", 3) == 0) {
        bytes += 10 + Synchsafe(&file[6]);
    }
    return bytes;
}

Workload Prepare(std::string name, std::vector<Bytes> files, uint64_t frames) {
    Workload w;
    w.name = std::move(name);
    w.files = std::move(files);
    w.frames = frames;
    ModuleHost host;
    for (const Bytes& file : w.files) {
        w.tagBytes += TagBytes(file);
        w.largestRead = std::max(w.largestRead, static_cast<uint32_t>(file.size()));
        MemoryStream stream(file);
        if (!host.Run(stream)) {
            std::fprintf(stderr, "kz_bench: the module did not finish %s\n", w.name.c_str());
            std::exit(1);
        }
        const Counts& counts = host.counts();
        w.calls.chars += counts.chars;
        w.calls.beginTags += counts.beginTags;
        w.calls.endTags += counts.endTags;
        w.calls.breaks += counts.breaks;
    }
    return w;
}

Workload Prepare(std::string name, Bytes file, uint64_t frames) {
    std::vector<Bytes> files;
    files.push_back(std::move(file));
    return Prepare(std::move(name), std::move(files), frames);
}

std::vector<MemoryStream> StreamsOf(const Workload& w) {
    return std::vector<MemoryStream>(w.files.begin(), w.files.end());
}

void FloorCalls(const Workload& w, Counts& counts) {
    const auto user1 = reinterpret_cast<uint64_t>(&counts);
    const SOBeginTagRtn beginTag = floorBeginTag;
    for (uint64_t i = 0; i < w.calls.beginTags; ++i) {
        beginTag(SO_TAG_FRAME, static_cast<uint32_t>(i), nullptr, user1, 0);
    }
    const SOOutCharRtn outChar = floorOutChar;
    for (uint64_t i = 0; i < w.calls.chars; ++i) outChar(static_cast<uint16_t>(i), user1, 0);
    const SOEndTagRtn endTag = floorEndTag;
    for (uint64_t i = 0; i < w.calls.endTags; ++i) {
        endTag(SO_TAG_FRAME, static_cast<uint32_t>(i), user1, 0);
    }
    const SOOutBreakRtn outBreak = floorOutBreak;
    for (uint64_t i = 0; i < w.calls.breaks; ++i) outBreak(SO_BREAK_FRAME, 0, user1, 0);
}

void SetCounters(benchmark::State& state, const Workload& w) {
    state.SetBytesProcessed(static_cast<int64_t>(w.tagBytes) * state.iterations());
    state.counters["chars/s"] =
        benchmark::Counter(static_cast<double>(w.calls.chars), benchmark::Counter::kIsIterationInvariantRate);
    if (w.frames != 0) {
        state.counters["s/frame"] = benchmark::Counter(
            static_cast<double>(w.frames),
            benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    }
}

void BenchModule(benchmark::State& state, const Workload* w) {
    ModuleHost host;
    std::vector<MemoryStream> streams = StreamsOf(*w);
    for (auto _ : state) {
        for (MemoryStream& stream : streams) {
            if (!host.Run(stream)) state.SkipWithError("the module did not finish");
            benchmark::DoNotOptimize(host.counts().chars);
        }
    }
    SetCounters(state, *w);
}

void BenchFloor(benchmark::State& state, const Workload* w) {
    std::vector<MemoryStream> streams = StreamsOf(*w);
    std::vector<uint8_t> buffer(w->largestRead);
    Counts counts;
    for (auto _ : state) {
        for (MemoryStream& stream : streams) {
            benchmark::DoNotOptimize(FloorReads(stream, buffer.data()));
        }
        FloorCalls(*w, counts);
        benchmark::ClobberMemory();
    }
    SetCounters(state, *w);
}

// ---- The kit ------------------------------------------------------------------------

int CountField(const kz_host_field* field, void* user) {
    *static_cast<uint64_t*>(user) += field->text_len;
    return 0;
}

void BenchKit(benchmark::State& state, const Workload* w) {
    kz_host_reader* reader = nullptr;
    char message[256];
    if (kz_host_reader_new(nullptr, &reader, message, sizeof message) != KZ_HOST_OK) {
        state.SkipWithError(message);
        return;
    }
    // The type the module line passes, so that both do the same work.
    kz_host_read_options options;
    kz_host_read_options_init(&options);
    options.file_type = VW_FILETYPE_DEFAULT;
    uint64_t textBytes = 0;
    for (auto _ : state) {
        for (const Bytes& file : w->files) {
            if (kz_host_read_memory(reader, file.data(), file.size(), &options, &CountField,
                                    &textBytes, nullptr) != KZ_HOST_OK) {
                state.SkipWithError("the kit did not read the file");
            }
        }
        benchmark::DoNotOptimize(textBytes);
    }
    kz_host_reader_free(reader);
    SetCounters(state, *w);
}

// ---- Summary -----------------------------------------------------------------------

// Passes everything to the console and keeps each benchmark's CPU time (the
// machine is shared: wall time counts the waits for a core too): the least
// of the repetitions when there are several, else the single run.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    // Colours only on a terminal.
    SummaryReporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string& name = run.run_name.function_name;
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "min") {
                minima_[name] = run.GetAdjustedCPUTime();
            } else if (run.run_type == Run::RT_Iteration) {
                singles_[name] = run.GetAdjustedCPUTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Nanoseconds per iteration, or a negative value when not run.
    double Time(const std::string& name) const {
        if (auto it = minima_.find(name); it != minima_.end()) return it->second;
        if (auto it = singles_.find(name); it != singles_.end()) return it->second;
        return -1;
    }

private:
    std::map<std::string, double> minima_;
    std::map<std::string, double> singles_;
};

void PrintSummary(const SummaryReporter& reporter, const std::vector<Workload>& workloads) {
    std::printf("\n%-16s %10s %9s %8s %10s %10s %10s %7s %7s %9s %8s\n", "workload", "tag bytes",
                "chars", "calls", "module us", "floor us", "kit us", "mod/fl", "kit/mod",
                "ns/frame", "MB/s");
    for (const Workload& w : workloads) {
        const double module = reporter.Time("module/" + w.name);
        const double floor = reporter.Time("floor/" + w.name);
        const double kit = reporter.Time("kit/" + w.name);
        if (module < 0 || floor < 0) continue;
        const double perFrame = w.frames != 0 ? module / static_cast<double>(w.frames) : 0;
        const uint64_t calls = w.calls.beginTags + w.calls.endTags + w.calls.breaks;
        std::printf("%-16s %10llu %9llu %8llu %10.1f %10.1f %10.1f %7.2f %7.2f %9.1f %8.1f\n",
                    w.name.c_str(), static_cast<unsigned long long>(w.tagBytes),
                    static_cast<unsigned long long>(w.calls.chars),
                    static_cast<unsigned long long>(calls), module / 1e3, floor / 1e3,
                    kit / 1e3, module / floor, kit < 0 ? 0.0 : kit / module, perFrame,
                    static_cast<double>(w.tagBytes) / module * 1e3);
    }
    std::printf("(CPU times: the least of the repetitions; calls: begin and end of fields and "
                "breaks, made by the floor too; ns/frame and MB/s of the module)\n");
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<char*> args(argv, argv + argc);
    const bool repetitionsGiven = std::any_of(args.begin(), args.end(), [](const char* a) {
        return std::strncmp(a, "--benchmark_repetitions", 23) == 0;
    });
    std::string repetitions = "--benchmark_repetitions=5";
    std::string aggregatesOnly = "--benchmark_display_aggregates_only=true";
    if (!repetitionsGiven) {
        args.push_back(repetitions.data());
        args.push_back(aggregatesOnly.data());
    }
    int count = static_cast<int>(args.size());

    std::vector<Workload> workloads;
    workloads.push_back(Prepare("text_heavy", kzbench::TextHeavyFile(1000), 1000));
    workloads.push_back(Prepare("picture_heavy", kzbench::PictureHeavyFile(1 << 20, 20), 21));
    workloads.push_back(Prepare("tiny_100k", kzbench::TinyFramesFile(100000), 100000));
    workloads.push_back(Prepare("id3v1_only", kzbench::Id3v1OnlyFile(), 0));
    {
        // The first files of the benchmark library that bench/compare.sh writes.
        std::mt19937 random(2024);
        std::vector<Bytes> files(200);
        for (Bytes& file : files) file = kzbench::LibraryFile(random);
        workloads.push_back(Prepare("library_200", std::move(files), 0));
        workloads.back().frames = workloads.back().calls.breaks - 200;
    }
    for (const int frames : {10, 100, 1000, 10000, 100000}) {
        workloads.push_back(
            Prepare("sweep_" + std::to_string(frames), kzbench::TextHeavyFile(frames), frames));
    }
    // The least CPU time of the repetitions: on a shared machine the other
    // work only ever adds time.
    const auto least = [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); };
    for (const Workload& w : workloads) {
        benchmark::RegisterBenchmark(("module/" + w.name).c_str(), BenchModule, &w)->ComputeStatistics("min", least);
        benchmark::RegisterBenchmark(("floor/" + w.name).c_str(), BenchFloor, &w)->ComputeStatistics("min", least);
        benchmark::RegisterBenchmark(("kit/" + w.name).c_str(), BenchKit, &w)->ComputeStatistics("min", least);
    }

    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintSummary(reporter, workloads);
    benchmark::Shutdown();
    return 0;
}
