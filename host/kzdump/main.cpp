// kzdump: the reference host of the ID3 filter module.  Reads each file
// through the host kit (libkz_host.so), which loads the module as a host
// engine does, and shows what the module delivers.
#include "kz_host.h"
#include "genre.h"
#include "options.h"
#include "path_list.h"
#include "progress.h"
#include "render.h"

#include <algorithm>
#include <climits>
#include <atomic>
#include <chrono>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>
#include <vector>

#include <unistd.h>

namespace kzdump {

namespace {

// Exit statuses; when several apply, the highest wins.
constexpr int kAllRead = 0;
constexpr int kNothingToRead = 1;
constexpr int kBadUsage = 2;
constexpr int kNotRead = 3;
constexpr int kWriteError = 4;

// Genre numbers of this field are shown with their names.
constexpr uint32_t kGenreField = 108;  // TCON and the ID3v1 genre

void RaiseStatus(std::atomic<int>& status, int value) {
    int current = status.load();
    while (current < value && !status.compare_exchange_weak(current, value)) {
    }
}

// Output of a job that is not yet its turn is held up to this many bytes per
// worker thread, counted as the memory its buffers take; a worker that
// reaches it waits for its turn.  A few hundred files' worth: enough that a
// worker the system pauses for a moment does not stop the others.
constexpr size_t kHeldPerWorker = size_t{1} << 20;
// Buffers kept for reuse, per worker; those beyond are freed, so that a
// moment of much held output does not stay in memory.
constexpr size_t kSparesPerWorker = 4;

// Writes the outputs of the jobs in job order, whichever worker finishes
// first; the job whose turn it is writes as it goes.  Buffers of jobs that
// wait for their turn are recycled.  The progress line is drawn between
// files here, where every write is made, so it never mixes with them.
class OrderedOutput {
public:
    OrderedOutput(size_t workers, ProgressLine& progress)
        : heldLimit_(workers * kHeldPerWorker), sparesLimit_(workers * kSparesPerWorker),
          progress_(progress) {}

    // Job `index` has written `out` so far.  When its turn has come, `out`
    // goes out now and comes back empty; otherwise it stays until it holds
    // the worker's share, and then the worker waits for its turn.
    void Progress(size_t index, std::string& out) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (index != next_ && out.size() < kHeldPerWorker) return;
        turn_.wait(lock, [&] { return index == next_; });
        Write(out);
    }

    // Job `index` is done: its output and error lines, which come back
    // empty (with recycled capacity).
    void Finish(size_t index, std::string& out, std::string& err) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (index != next_) {
            Slot& slot = ready_[index];
            slot.out.swap(out);
            slot.err.swap(err);
            held_ += slot.Held();
            TakeSpare(out);
            TakeSpare(err);
            // Finished jobs waiting for their turn are bounded too.
            progress_.Tick();
            turn_.wait(lock, [&] { return held_ <= heldLimit_ || next_ > index; });
            return;
        }
        WriteJob(out, err);
        ++next_;
        for (auto slot = ready_.begin(); slot != ready_.end() && slot->first == next_;
             slot = ready_.erase(slot)) {
            held_ -= slot->second.Held();
            WriteJob(slot->second.out, slot->second.err);
            Recycle(slot->second.out);
            Recycle(slot->second.err);
            ++next_;
        }
        progress_.Tick();
        turn_.notify_all();
    }

    // Writes what is held; the errno of the first failed write, or 0.
    int Flush() {
        WriteAll(pending_);
        pending_.clear();
        return writeErrno_;
    }

    // Text that goes before every job's output.
    void Put(std::string text) { Write(text); }

    // Once a write has failed, no more jobs are started.
    bool Failed() {
        std::lock_guard<std::mutex> lock(mutex_);
        return writeErrno_ != 0;
    }

private:
    struct Slot {
        std::string out;
        std::string err;
        size_t Held() const { return out.capacity() + err.capacity(); }
    };

    // A record that fits in PIPE_BUF goes out with the records before it in
    // one write(2) of at most PIPE_BUF bytes, so that runs appending to one
    // file never interleave inside a record; a larger record is written
    // alone, as it comes.
    void Write(std::string& out) {
        if (pending_.size() + out.size() > PIPE_BUF) Flush();
        if (out.size() > PIPE_BUF) {
            WriteAll(out);
        } else {
            pending_ += out;
        }
        out.clear();
    }

    void WriteAll(std::string_view bytes) {
        if (!bytes.empty()) progress_.ClearForOutput();
        while (!bytes.empty() && writeErrno_ == 0) {
            const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) {
                writeErrno_ = errno;
                return;
            }
            bytes.remove_prefix(static_cast<size_t>(written));
        }
    }

    void WriteJob(std::string& out, std::string& err) {
        if (!err.empty()) {
            Flush();
            progress_.Clear();
            std::fwrite(err.data(), 1, err.size(), stderr);
            err.clear();
        }
        Write(out);
    }

    void Recycle(std::string& buffer) {
        if (spare_.size() < sparesLimit_) spare_.push_back(std::move(buffer));
    }

    void TakeSpare(std::string& buffer) {
        if (spare_.empty()) return;
        buffer.swap(spare_.back());
        spare_.pop_back();
        buffer.clear();
    }

    std::mutex mutex_;
    std::condition_variable turn_;
    // Finished jobs that wait for their turn, by job number.
    std::map<size_t, Slot> ready_;
    std::vector<std::string> spare_;
    std::string pending_;
    int writeErrno_ = 0;
    size_t next_ = 0;
    size_t held_ = 0;
    const size_t heldLimit_;
    const size_t sparesLimit_;
    ProgressLine& progress_;
};

struct Run {
    const Options& options;
    JobSource& source;
    std::mutex sourceMutex;
    ProgressLine& progress;
    OrderedOutput output;

    // The next job and its number; false when none is left or the output
    // has failed.
    bool Take(Job& job, size_t& index) {
        if (output.Failed()) return false;
        std::lock_guard<std::mutex> lock(sourceMutex);
        index = source.Given();
        return source.Next(job);
    }

    std::atomic<int> exitStatus{kAllRead};
    std::atomic<size_t> tagged{0};
    std::atomic<size_t> notRead{0};
    std::atomic<size_t> fields{0};
};

// One file being read: the visitor or the tracer renders into `out`, which
// goes out in pieces when the file's output is large.
class FileJob {
public:
    FileJob(Run& run, size_t index, const std::string& path, std::string& out)
        : run_(run), index_(index), path_(path), out_(out), sink_(out, &Drain, this),
          table_(run.options.mode == OutputMode::Csv || run.options.mode == OutputMode::Tsv),
          cells_(table_ ? run.options.fields.size() : 0), counts_(cells_.size()) {
        kz_host_file_info_init(&info_);
    }

    // Reads the file; the kit's status.
    int Read(kz_host_reader* reader) {
        const Options& options = run_.options;
        kz_host_read_options read;
        kz_host_read_options_init(&read);
        read.file_type = options.fileType;
        read.stop_every = options.stopEvery;
        if (options.codes) read.flags |= KZ_HOST_READ_CODES;
        if (options.mode == OutputMode::Trace) {
            return kz_host_trace_file(reader, path_.c_str(), &read, &OnCall, this, &info_);
        }
        const int status = kz_host_read_file(reader, path_.c_str(), &read, &OnField, this, &info_);
        if (started_ || status == KZ_HOST_OK || status == KZ_HOST_NOTHING_TO_READ ||
            status == KZ_HOST_ERROR_UNFINISHED) {
            Start();
            if (options.mode == OutputMode::Json) RenderJsonEnd(info_, sink_);
            if (table_) RenderTableRow(path_, info_, cells_, options.mode == OutputMode::Tsv, out_);
        }
        return status;
    }

    // Whether anything of the file was shown.
    bool Started() const { return started_; }
    const kz_host_file_info& Info() const { return info_; }
    size_t Shown() const { return shown_; }

private:
    // Whether choice `i` takes the field; every field when none is chosen.
    bool Takes(size_t i, const kz_host_field& field) const {
        const FieldChoice& choice = run_.options.fields[i];
        if (field.kind != KZ_HOST_ITEM_FIELD) return false;
        return choice.number != 0 ? choice.number == field.number : choice.ident == field.ident;
    }
    bool Chosen(const kz_host_field& field) const {
        for (size_t i = 0; i < run_.options.fields.size(); ++i)
            if (Takes(i, field)) return true;
        return run_.options.fields.empty();
    }

    static int OnField(const kz_host_field* field, void* user) {
        auto* self = static_cast<FileJob*>(user);
        self->Start();
        if (!self->Chosen(*field)) return 0;
        ++self->shown_;
        const bool isGenre = field->kind == KZ_HOST_ITEM_FIELD && field->number == kGenreField;
        std::string genre;
        kz_host_field named = *field;
        if (isGenre) {
            genre = ShowGenre(std::string_view(field->text, field->text_len));
            if (!self->run_.options.raw) {
                named.text = genre.c_str();
                named.text_len = genre.size();
            }
        }
        if (self->table_) {
            for (size_t i = 0; i < self->cells_.size(); ++i) {
                if (!self->Takes(i, *field)) continue;
                if (self->counts_[i]++ != 0) self->cells_[i] += kValueSeparator;
                self->cells_[i].append(named.text, named.text_len);
            }
            return 0;
        }
        if (self->run_.options.mode == OutputMode::Json) {
            RenderJsonField(*field, self->first_, self->run_.options.codes, isGenre ? &genre : nullptr,
                            self->sink_);
        } else {
            RenderTextField(named, self->sink_);
        }
        self->first_ = false;
        self->sink_.Pause();
        return 0;
    }

    static void OnCall(const kz_host_call* call, void* user) {
        auto* self = static_cast<FileJob*>(user);
        self->started_ = true;
        RenderTraceCall(self->path_, *call, self->sink_);
    }

    static void Drain(void* user) {
        auto* self = static_cast<FileJob*>(user);
        self->run_.output.Progress(self->index_, self->out_);
    }

    // The file's first line, or the start of its JSON line.
    void Start() {
        if (started_) return;
        started_ = true;
        if (table_) return;
        if (run_.options.mode == OutputMode::Json) {
            RenderJsonStart(path_, info_, sink_);
        } else {
            RenderTextHeader(path_, info_, sink_);
        }
    }

    Run& run_;
    size_t index_;
    const std::string& path_;
    std::string& out_;
    Out sink_;
    kz_host_file_info info_;
    bool started_ = false;
    bool first_ = true;
    size_t shown_ = 0;
    const bool table_;
    std::vector<std::string> cells_;  // CSV and TSV: the values of each column
    std::vector<size_t> counts_;
};

void ReportError(std::string_view path, std::string_view reason, const Options& options,
                 bool jsonLine, std::string& out, std::string& err) {
    err += "kzdump: ";
    AppendPrintable(path, err);
    err += ": ";
    err += reason;
    err += "\n";
    if (jsonLine && options.mode == OutputMode::Json) RenderJsonError(path, reason, out);
}

std::string Reason(int status, const kz_host_file_info& info) {
    if (status == KZ_HOST_ERROR_IO && info.errno_value != 0) return std::strerror(info.errno_value);
    if (status == KZ_HOST_ERROR_NOT_REGULAR && info.errno_value == EISDIR) {
        return "is a directory (use -r to read the files under it)";
    }
    return kz_host_strerror(status);
}

// One worker: its own reader (module context, stream, buffers) for all its
// files; a worker without one reports `readerError` for each file.
void Work(Run& run, kz_host_reader* reader, const std::string& readerError) {
    std::string out;
    std::string err;
    Job job;
    for (size_t index = 0; run.Take(job, index);) {
        int status = kNotRead;
        uint64_t bytes = 0;
        if (!job.error.empty()) {
            ReportError(job.path, job.error, run.options, true, out, err);
        } else if (reader == nullptr) {
            ReportError(job.path, readerError, run.options, true, out, err);
        } else {
            FileJob file(run, index, job.path, out);
            const int read = file.Read(reader);
            run.fields += file.Shown();
            bytes = file.Info().size;
            if (read == KZ_HOST_OK) {
                status = kAllRead;
            } else if (read == KZ_HOST_NOTHING_TO_READ || read == KZ_HOST_ERROR_UNFINISHED) {
                status = kNothingToRead;
            }
            if (read != KZ_HOST_OK && !(read == KZ_HOST_NOTHING_TO_READ && run.options.quiet)) {
                ReportError(job.path, Reason(read, file.Info()), run.options, !file.Started(),
                            out, err);
            }
        }
        RaiseStatus(run.exitStatus, status);
        if (status == kAllRead) ++run.tagged;
        if (status == kNotRead) ++run.notRead;
        run.progress.FileDone(bytes, status == kNotRead);
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
// one cannot be opened.
bool OpenLists(const Options& options, std::vector<Input>& inputs) {
    for (const Argument& argument : options.paths) {
        Input& input = inputs.emplace_back(Input{argument.path, nullptr});
        if (!argument.list) continue;
        input.list = argument.path == "-" ? stdin : std::fopen(argument.path.c_str(), "rb");
        if (input.list == nullptr) {
            std::string line = "kzdump: cannot read the path list ";
            AppendPrintable(argument.path, line);
            std::fprintf(stderr, "%s: %s\n", line.c_str(), std::strerror(errno));
            return false;
        }
    }
    return true;
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
        if (input.list != nullptr && !CountPaths(input.list, options.listSeparator, count)) return;
        total += count;
    }
    progress.SetTotal(total);
}

void ReportWriteError(int error) {
    std::fprintf(stderr, "kzdump: write error: %s\n", std::strerror(error));
}

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
        std::fprintf(stderr, "kzdump: %s (see kzdump --help)\n", error.c_str());
        return kBadUsage;
    }
    if (options.help) {
        std::fputs(HelpText(), stdout);
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
        std::printf("module %s: %s\n", kz_host_reader_module_path(reader),
                    kz_host_reader_module_version(reader));
        kz_host_reader_free(reader);
        return Flushed(kAllRead);
    }

    std::vector<Input> inputs;
    if (!OpenLists(options, inputs)) {
        kz_host_reader_free(reader);
        return kBadUsage;
    }
    // No more workers than files, where the number is known.
    const bool listed = options.recursive || std::any_of(options.paths.begin(), options.paths.end(),
                                                         [](const Argument& a) { return a.list; });
    const size_t workers = listed ? options.jobs : std::min<size_t>(options.jobs, inputs.size());
    const auto start = std::chrono::steady_clock::now();
    ProgressLine progress(ShowsProgress(options), ::isatty(STDOUT_FILENO), start);
    if (progress.Shown()) CountJobs(options, inputs, progress);
    JobSource source(inputs, options.recursive, options.listSeparator, options.extensions);
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
    for (const Input& input : inputs)
        if (input.list != nullptr && input.list != stdin) std::fclose(input.list);
    progress.Clear();
    if (const int error = run.output.Flush(); error != 0) {
        ReportWriteError(error);
        return kWriteError;
    }
    if (options.stats) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        std::fprintf(stderr, "kzdump: %zu files, %zu tagged, %zu not read, %zu fields, %.2f s\n",
                     source.Given(), run.tagged.load(), run.notRead.load(), run.fields.load(),
                     elapsed.count());
    }
    return run.exitStatus;
}

}  // namespace

}  // namespace kzdump

int main(int argc, char** argv) { return kzdump::Main(argc, argv); }
