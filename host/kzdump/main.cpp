// kzdump: the reference host of the ID3 filter module.  Loads libkz_id3.so
// as a host engine does and shows what it delivers for each file.
#include "module_loader.h"
#include "options.h"
#include "path_list.h"
#include "render.h"
#include "session.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <thread>
#include <vector>

namespace kzdump {

namespace {

// Writes the outputs of the jobs in job order, whichever worker finishes
// first.  Buffers of jobs that wait for their turn are recycled.
class OrderedOutput {
public:
    explicit OrderedOutput(size_t count) : slots_(count), ready_(count, false) {}

    // Takes the output of job `index` out of `out` and `err`, which come back
    // empty (with recycled capacity).
    void Submit(size_t index, std::string& out, std::string& err) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (index != next_) {
            slots_[index].out.swap(out);
            slots_[index].err.swap(err);
            ready_[index] = true;
            TakeSpare(out);
            TakeSpare(err);
            return;
        }
        Write(out, err);
        ++next_;
        while (next_ < slots_.size() && ready_[next_]) {
            Slot& slot = slots_[next_];
            Write(slot.out, slot.err);
            spare_.push_back(std::move(slot.out));
            spare_.push_back(std::move(slot.err));
            ++next_;
        }
    }

private:
    struct Slot {
        std::string out;
        std::string err;
    };

    static void Write(std::string& out, std::string& err) {
        if (!err.empty()) {
            std::fflush(stdout);
            std::fwrite(err.data(), 1, err.size(), stderr);
        }
        std::fwrite(out.data(), 1, out.size(), stdout);
        out.clear();
        err.clear();
    }

    void TakeSpare(std::string& buffer) {
        if (spare_.empty()) return;
        buffer.swap(spare_.back());
        spare_.pop_back();
        buffer.clear();
    }

    std::mutex mutex_;
    std::vector<Slot> slots_;
    std::vector<bool> ready_;
    std::vector<std::string> spare_;
    size_t next_ = 0;
};

struct Run {
    const Module& module;
    const Options& options;
    const std::vector<Job>& jobs;
    OrderedOutput output;
    std::atomic<size_t> nextJob{0};
    std::atomic<bool> someNotRead{false};
};

void ReportError(std::string_view path, std::string_view reason, const Options& options,
                 std::string& out, std::string& err) {
    err += "kzdump: ";
    AppendPrintable(path, err);
    err += ": ";
    err += reason;
    err += "\n";
    if (options.mode == OutputMode::Json) RenderJsonError(path, reason, out);
}

// One worker: its own module context, stream and buffers for all its files.
void Work(Run& run) {
    Session session(run.module, run.options);
    std::string contextError;
    const bool ready = session.Ready(contextError);
    std::string out;
    std::string err;
    for (size_t index = run.nextJob++; index < run.jobs.size(); index = run.nextJob++) {
        const Job& job = run.jobs[index];
        bool read = false;
        if (!job.error.empty()) {
            ReportError(job.path, job.error, run.options, out, err);
        } else if (!ready) {
            ReportError(job.path, contextError, run.options, out, err);
        } else {
            read = session.Process(job.path, out, err) == FileOutcome::Read;
        }
        if (!read) run.someNotRead = true;
        run.output.Submit(index, out, err);
    }
}

int Main(int argc, char** argv) {
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "kzdump: %s (see kzdump --help)\n", error.c_str());
        return 2;
    }
    if (options.help) {
        std::fputs(HelpText(), stdout);
        return 0;
    }
    if (options.version) std::printf("kzdump (kz_id3) %s\n", KZ_ID3_VERSION_STRING);
    const std::string modulePath =
        options.filterPath.empty() ? DefaultModulePath() : options.filterPath;
    Module module;
    if (!LoadModule(modulePath, module, error)) {
        std::string line = "kzdump: ";
        AppendPrintable(error, line);
        std::fprintf(stderr, "%s\n", line.c_str());
        return 2;
    }
    if (options.version) {
        std::printf("module %s: %s\n", modulePath.c_str(), ModuleVersionMarker(module).c_str());
        UnloadModule(module);
        return 0;
    }
    static char outputBuffer[1 << 16];
    std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);

    const std::vector<Job> jobs = ListJobs(options.paths, options.recursive);
    Run run{module, options, jobs, OrderedOutput(jobs.size())};
    const size_t workers = std::min<size_t>(options.jobs, jobs.size());
    if (workers <= 1) {
        Work(run);
    } else {
        std::vector<std::thread> threads;
        threads.reserve(workers);
        for (size_t i = 0; i < workers; ++i) threads.emplace_back(Work, std::ref(run));
        for (std::thread& thread : threads) thread.join();
    }
    std::fflush(stdout);
    UnloadModule(module);
    return run.someNotRead ? 1 : 0;
}

}  // namespace

}  // namespace kzdump

int main(int argc, char** argv) { return kzdump::Main(argc, argv); }
