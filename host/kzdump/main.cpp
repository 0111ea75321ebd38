// kzdump: the reference host of the ID3 filter module.  Reads each file
// through the host kit (libkz_host.so), which loads the module as a host
// engine does, and shows what the module delivers.  This file is the run:
// options, workers, the order of the output, the summary.
#include "kz_host.h"
#include "field_choice.h"
#include "file_job.h"
#include "interrupt.h"
#include "job_source.h"
#include "options.h"
#include "ordered_output.h"
#include "progress.h"
#include "render.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kzdump {

namespace {

void RaiseStatus(std::atomic<int>& status, int value) {
    int current = status.load();
    while (current < value && !status.compare_exchange_weak(current, value)) {
    }
}

struct Run {
    const Options& options;
    JobSource& source;
    std::mutex sourceMutex;
    ProgressLine& progress;
    OrderedOutput output;

    // The next job and its number; false when none is left, the output has
    // failed or a stop signal came.
    bool Take(Job& job, size_t& index) {
        if (output.Failed() || StopSignal() != 0) return false;
        std::lock_guard<std::mutex> lock(sourceMutex);
        index = source.Given();
        return source.Next(job);
    }

    std::atomic<int> exitStatus{kAllRead};
    std::atomic<size_t> tagged{0};
    std::atomic<size_t> notRead{0};
    std::atomic<size_t> fields{0};
};

// One worker: its own reader (module context, stream, buffers) for all its
// files; a worker without one reports `readerError` for each file.
void Work(Run& run, kz_host_reader* reader, const std::string& readerError) {
    std::string out;
    std::string err;
    Job job;
    for (size_t index = 0; run.Take(job, index);) {
        const FileOutcome outcome = DoJob(run.options, run.output, reader, readerError, job, index, out, err);
        run.fields += outcome.shown;
        RaiseStatus(run.exitStatus, outcome.status);
        if (outcome.status == kAllRead) ++run.tagged;
        if (outcome.status == kNotRead) ++run.notRead;
        run.progress.FileDone(outcome.bytes, outcome.status == kNotRead);
        run.output.Finish(index, out, err);
    }
}

int NewReader(const Options& options, kz_host_reader*& reader, std::string& message) {
    kz_host_reader_options readerOptions;
    kz_host_reader_options_init(&readerOptions);
    if (!options.filterPath.empty()) readerOptions.module_path = options.filterPath.c_str();
    char buffer[2048];
    const int status = kz_host_reader_new(&readerOptions, &reader, buffer, sizeof buffer);
    message = buffer;
    return status;
}

void Worker(Run& run) {
    kz_host_reader* reader = nullptr;
    std::string message;
    NewReader(run.options, reader, message);
    Work(run, reader, message);
    kz_host_reader_free(reader);
}

// The inputs, each path list open; false, with the reason on stderr, when
// one cannot be opened or is neither a regular file nor a pipe.
bool OpenLists(const Options& options, std::vector<Input>& inputs) {
    for (const Argument& argument : options.paths) {
        Input& input = inputs.emplace_back(Input{argument.path, -1});
        if (!argument.list) continue;
        input.list = argument.path == "-" ? ::dup(STDIN_FILENO) : ::open(argument.path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status;
        const char* reason = nullptr;
        if (input.list < 0 || ::fstat(input.list, &status) != 0) {
            reason = std::strerror(errno);
        } else if (S_ISDIR(status.st_mode)) {
            reason = std::strerror(EISDIR);
        } else if (!S_ISREG(status.st_mode) && !S_ISFIFO(status.st_mode)) {
            reason = "not a regular file or a pipe";
        }
        if (reason != nullptr) {
            std::string line = "kzdump: cannot read the path list ";
            AppendPrintable(argument.path, line);
            std::fprintf(stderr, "%s: %s\n", line.c_str(), reason);
            return false;
        }
    }
    return true;
}

void CloseLists(const std::vector<Input>& inputs) {
    for (const Input& input : inputs)
        if (input.list >= 0) ::close(input.list);
}

// On a terminal the line is drawn unless --quiet is given; elsewhere, or
// when standard output goes to the terminal too, it is drawn only when asked
// for.  --progress draws it with --quiet as well, as wget -q --show-progress.
bool ShowsProgress(const Options& options) {
    switch (options.progress) {
        case ProgressMode::Shown: return true;
        case ProgressMode::Hidden: return false;
        case ProgressMode::Auto: break;
    }
    return !options.quiet && ::isatty(STDERR_FILENO) && !::isatty(STDOUT_FILENO);
}

// The total of the run, known before it starts when no directory is walked
// and every path list is a regular file.
void CountJobs(const Options& options, const std::vector<Input>& inputs, ProgressLine& progress) {
    if (options.recursive) return;
    size_t total = 0;
    for (const Input& input : inputs) {
        size_t count = 1;
        if (input.list >= 0 && !CountPaths(input.list, options.listSeparator, count)) return;
        total += count;
    }
    progress.SetTotal(total);
}

void ReportWriteError(int error) { std::fprintf(stderr, "kzdump: write error: %s\n", std::strerror(error)); }

// `status`, or kWriteError when what stdio holds cannot be written.
int Flushed(int status) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        ReportWriteError(errno);
        return kWriteError;
    }
    return status;
}

int Main(int argc, char** argv) {
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "kzdump: %s\n", error.c_str());
        return kBadUsage;
    }
    if (options.help) {
        std::fputs(HelpText(), stdout);
        return Flushed(kAllRead);
    }
    if (options.listFields) {
        std::fputs(FieldNames().c_str(), stdout);
        return Flushed(kAllRead);
    }
    if (options.version) std::printf("kzdump (kz_id3) %s\n", KZ_HOST_VERSION_STRING);
    // The first worker's reader shows whether the module can be used at all.
    kz_host_reader* reader = nullptr;
    std::string readerError;
    const int status = NewReader(options, reader, readerError);
    if (status != KZ_HOST_OK && status != KZ_HOST_ERROR_NO_CONTEXT) {
        std::string line = "kzdump: ";
        AppendPrintable(readerError, line);
        std::fprintf(stderr, "%s\n", line.c_str());
        return kBadUsage;
    }
    if (options.version) {
        std::printf("module %s: %s\n", kz_host_reader_module_path(reader), kz_host_reader_module_version(reader));
        kz_host_reader_free(reader);
        return Flushed(kAllRead);
    }

    std::vector<Input> inputs;
    if (!OpenLists(options, inputs)) {
        CloseLists(inputs);
        kz_host_reader_free(reader);
        return kBadUsage;
    }
    CatchStopSignals();
    // No more workers than files, where the number is known.
    const bool listed = options.recursive || std::any_of(options.paths.begin(), options.paths.end(),
                                                         [](const Argument& a) { return a.list; });
    const size_t workers = listed ? options.jobs : std::min<size_t>(options.jobs, inputs.size());
    const auto start = std::chrono::steady_clock::now();
    ProgressLine progress(ShowsProgress(options), ::isatty(STDOUT_FILENO), start);
    if (progress.Shown()) CountJobs(options, inputs, progress);
    JobSource source(inputs, options.recursive, options.listSeparator,
                     WalkFilter{options.extensions, options.excludes});
    Run run{options, source, {}, progress, OrderedOutput(workers, progress)};
    if (options.mode == OutputMode::Csv || options.mode == OutputMode::Tsv) {
        std::vector<std::string> columns;
        for (const FieldChoice& choice : options.fields) columns.push_back(choice.name);
        std::string header;
        RenderTableHeader(columns, options.mode == OutputMode::Tsv, header);
        run.output.Put(std::move(header));
    }
    std::vector<std::thread> threads;
    threads.reserve(workers - 1);
    for (size_t i = 1; i < workers; ++i) threads.emplace_back(Worker, std::ref(run));
    Work(run, reader, readerError);
    for (std::thread& thread : threads) thread.join();
    kz_host_reader_free(reader);
    CloseLists(inputs);
    progress.Clear();
    const int written = run.output.Flush();
    if (written != 0) {
        ReportWriteError(written);
        return kWriteError;
    }
    if (StopSignal() != 0) {
        std::fflush(stderr);
        RaiseStopSignal();
    }
    if (options.stats) {
        for (const std::string& root : source.EmptyWalks()) {
            std::string line = "kzdump: ";
            AppendPrintable(root, line);
            std::fprintf(stderr, "%s: no file found in the walk\n", line.c_str());
        }
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::fprintf(stderr, "kzdump: %zu files, %zu tagged, %zu not read, %zu fields, %.2f s\n", source.Given(),
                     run.tagged.load(), run.notRead.load(), run.fields.load(), elapsed.count());
    }
    return run.exitStatus;
}

}  // namespace

}  // namespace kzdump

int main(int argc, char** argv) { return kzdump::Main(argc, argv); }
