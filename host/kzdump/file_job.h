// The work on one file: reading it through the kit, rendering what arrives
// in the chosen form, and naming the error when it cannot be read.
#ifndef KZDUMP_FILE_JOB_H
#define KZDUMP_FILE_JOB_H

#include "kz_host.h"
#include "job_source.h"
#include "options.h"
#include "ordered_output.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kzdump {

// Exit statuses; when several apply, the highest wins.
enum ExitStatus : int {
    kAllRead = 0,
    kNothingToRead = 1,
    kBadUsage = 2,
    kNotRead = 3,
    kWriteError = 4,
};

struct FileOutcome {
    int status = kNotRead;  // ExitStatus of this file
    uint64_t bytes = 0;     // the file's size
    size_t shown = 0;       // fields shown
};

// Job `index`: its file read with `reader` (null: `readerError` is the
// reason it cannot be), its records rendered into `out` (which goes to
// `output` in pieces when it grows large) and its error lines into `err`.
FileOutcome DoJob(const Options& options, OrderedOutput& output, kz_host_reader* reader,
                  const std::string& readerError, const Job& job, size_t index, std::string& out,
                  std::string& err);

// A line on stderr naming the path and the reason; with --json and
// `jsonLine`, an error record in the output too.
void ReportError(std::string_view path, std::string_view reason, const Options& options, bool jsonLine,
                 std::string& out, std::string& err);

}  // namespace kzdump

#endif  // KZDUMP_FILE_JOB_H
