#include "file_job.h"

#include "genre.h"
#include "interrupt.h"
#include "render.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <unistd.h>

namespace kzdump {

namespace {

// Genre numbers of this field are shown with their names.
constexpr uint32_t kGenreField = 108;  // TCON and the ID3v1 genre

// One file being read: the visitor or the tracer renders into `out`, which
// goes out in pieces when the file's output is large.
class FileJob {
public:
    FileJob(const Options& options, OrderedOutput& output, size_t index, const std::string& path,
            std::string& out)
        : options_(options), output_(output), index_(index), path_(path), out_(out), sink_(out, &Drain, this),
          table_(options.mode == OutputMode::Csv || options.mode == OutputMode::Tsv),
          cells_(table_ ? options.fields.size() : 0), counts_(cells_.size()) {
        kz_host_file_info_init(&info_);
    }

    // Reads the file (by its name from its directory when the job has one),
    // or `data` when it is not null; the kit's status.
    int Read(kz_host_reader* reader, const Job& job, const std::string* data) {
        kz_host_read_options read;
        kz_host_read_options_init(&read);
        if (job.directory != nullptr) read.directory = job.directory->fd;
        const char* const name = path_.c_str() + job.nameAt;
        read.file_type = options_.fileType;
        read.stop_every = options_.stopEvery;
        read.block_limit = options_.blockLimit;
        if (options_.codes) read.flags |= KZ_HOST_READ_CODES;
        if (options_.mode == OutputMode::Trace) {
            return data != nullptr ? kz_host_trace_memory(reader, data->data(), data->size(), &read, &OnCall, this, &info_)
                                   : kz_host_trace_file(reader, name, &read, &OnCall, this, &info_);
        }
        const int status = data != nullptr
                               ? kz_host_read_memory(reader, data->data(), data->size(), &read, &OnField, this, &info_)
                               : kz_host_read_file(reader, name, &read, &OnField, this, &info_);
        if (started_ || status == KZ_HOST_OK || status == KZ_HOST_NOTHING_TO_READ ||
            status == KZ_HOST_ERROR_UNFINISHED) {
            Start();
            if (options_.mode == OutputMode::Json) RenderJsonEnd(info_, sink_);
            if (table_) RenderTableRow(path_, info_, cells_, options_.mode == OutputMode::Tsv, out_);
        }
        return status;
    }

    // Whether anything of the file was shown.
    bool Started() const { return started_; }
    const kz_host_file_info& Info() const { return info_; }
    size_t Shown() const { return shown_; }

private:
    // Whether a choice takes the field; every field when none is chosen.
    bool Chosen(const kz_host_field& field) const {
        for (const FieldChoice& choice : options_.fields)
            if (choice.Takes(field)) return true;
        return options_.fields.empty();
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
            if (!self->options_.raw) {
                named.text = genre.c_str();
                named.text_len = genre.size();
            }
        }
        if (self->table_) {
            const bool tsv = self->options_.mode == OutputMode::Tsv;
            for (size_t i = 0; i < self->cells_.size(); ++i) {
                if (!self->options_.fields[i].Takes(*field)) continue;
                if (self->counts_[i]++ != 0) self->cells_[i] += kValueSeparator;
                AppendTableText(TextOf(named.text, named.text_len), tsv, self->cells_[i]);
            }
            return 0;
        }
        if (self->options_.mode == OutputMode::Json) {
            RenderJsonField(*field, self->first_, self->options_.codes, isGenre ? &genre : nullptr, self->sink_);
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
        self->output_.Progress(self->index_, self->out_);
    }

    // The file's first line, or the start of its JSON line.
    void Start() {
        if (started_) return;
        started_ = true;
        if (table_) return;
        if (options_.mode == OutputMode::Json) {
            RenderJsonStart(path_, info_, sink_);
        } else {
            RenderTextHeader(path_, info_, sink_);
        }
    }

    const Options& options_;
    OrderedOutput& output_;
    size_t index_;
    const std::string& path_;
    std::string& out_;
    Out sink_;
    kz_host_file_info info_;
    bool started_ = false;
    bool first_ = true;
    size_t shown_ = 0;
    const bool table_;
    std::vector<std::string> cells_;  // CSV and TSV: the escaped values of each column
    std::vector<size_t> counts_;
};

// Standard input, whole, into `data`; false with the reason when it cannot
// be read or holds more than `limit` bytes.
bool ReadStandardInput(uint64_t limit, std::string& data, std::string& reason) {
    constexpr size_t kChunk = 64 * 1024;
    for (;;) {
        const size_t size = data.size();
        data.resize(size + kChunk);
        const ssize_t length = ::read(STDIN_FILENO, data.data() + size, kChunk);
        data.resize(size + (length > 0 ? static_cast<size_t>(length) : 0));
        if (length < 0 && errno == EINTR && StopSignal() == 0) continue;
        if (length < 0) {
            reason = std::strerror(errno);
            return false;
        }
        if (data.size() > limit) {
            reason = "standard input holds more than " + std::to_string(limit) + " bytes (see --stdin-limit)";
            return false;
        }
        if (length == 0) return true;
    }
}

std::string Reason(int status, const kz_host_file_info& info) {
    if (status == KZ_HOST_ERROR_IO && info.errno_value != 0) return std::strerror(info.errno_value);
    if (status == KZ_HOST_ERROR_NOT_REGULAR && info.errno_value == EISDIR) {
        return "is a directory (use -r to read the files under it)";
    }
    return kz_host_strerror(status);
}

}  // namespace

void ReportError(std::string_view path, std::string_view reason, const Options& options, bool jsonLine,
                 std::string& out, std::string& err) {
    err += "kzdump: ";
    AppendPrintable(path, err);
    err += ": ";
    err += reason;
    err += "\n";
    if (jsonLine && options.mode == OutputMode::Json) RenderJsonError(path, reason, out);
}

FileOutcome DoJob(const Options& options, OrderedOutput& output, kz_host_reader* reader,
                  const std::string& readerError, const Job& job, size_t index, std::string& out,
                  std::string& err) {
    FileOutcome outcome;
    if (!job.error.empty()) {
        ReportError(job.path, job.error, options, true, out, err);
        return outcome;
    }
    if (reader == nullptr) {
        ReportError(job.path, readerError, options, true, out, err);
        return outcome;
    }
    std::string data;
    if (job.standardInput) {
        std::string reason;
        if (!ReadStandardInput(options.stdinLimit, data, reason)) {
            ReportError(job.path, reason, options, true, out, err);
            return outcome;
        }
    }
    FileJob file(options, output, index, job.path, out);
    const int read = file.Read(reader, job, job.standardInput ? &data : nullptr);
    outcome.shown = file.Shown();
    outcome.bytes = file.Info().size;
    if (read == KZ_HOST_OK) {
        outcome.status = kAllRead;
    } else if (read == KZ_HOST_NOTHING_TO_READ || read == KZ_HOST_ERROR_UNFINISHED) {
        outcome.status = kNothingToRead;
    }
    if (read != KZ_HOST_OK && !(read == KZ_HOST_NOTHING_TO_READ && options.quiet)) {
        ReportError(job.path, Reason(read, file.Info()), options, !file.Started(), out, err);
    } else if (read == KZ_HOST_OK && file.Info().truncated && !options.quiet) {
        // The module skipped a body larger than the block limit and left its
        // field empty; the rest of the file was read.
        ReportError(job.path,
                    options.blockLimit != 0
                        ? "note: a frame body larger than --block-limit was skipped; its field is empty"
                        : "note: a frame declares a body larger than the file; it was skipped and its field is empty",
                    options, false, out, err);
    }
    return outcome;
}

}  // namespace kzdump
