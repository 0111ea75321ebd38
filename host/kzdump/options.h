// Command line of kzdump.
#ifndef KZDUMP_OPTIONS_H
#define KZDUMP_OPTIONS_H

#include "field_choice.h"

#include <cstdint>
#include <string>
#include <vector>

#include <getopt.h>

namespace kzdump {

enum class OutputMode { Text, Json, Trace, Csv, Tsv };

// The progress line: by default on a terminal only (see the man page), or as
// --progress and --no-progress say.
enum class ProgressMode { Auto, Shown, Hidden };

// A path to read, or (`list`) a file that lists paths; "-" is standard input.
struct Argument {
    std::string path;
    bool list = false;
};

struct Options {
    OutputMode mode = OutputMode::Text;
    bool recursive = false;
    bool help = false;
    bool version = false;
    bool codes = false;      // JSON: the raw character codes too
    bool raw = false;        // genres as delivered, without their names
    bool stats = false;      // a summary line on stderr at the end
    std::vector<FieldChoice> fields;  // empty: every field (CSV: a default set)
    bool quiet = false;      // no message for files with nothing to read
    ProgressMode progress = ProgressMode::Auto;
    char listSeparator = '\n';
    bool listFields = false;
    std::vector<std::string> extensions;  // without the dot; empty: every file
    std::vector<std::string> excludes;    // fnmatch patterns the walks leave out
    uint64_t stdinLimit = uint64_t{256} << 20;  // bytes of "-" held in memory
    unsigned jobs = 1;
    uint32_t stopEvery = 0;  // 0: never answer a frame break with "stop"
    uint32_t blockLimit = 0; // most bytes of one frame body; 0: the file's size
    uint16_t fileType = 0;   // 0: detected from each file
    std::string filterPath;  // empty: the module the kit finds
    std::vector<Argument> paths;
};

// Fills `options` from the arguments (with getopt_long); on bad usage
// returns false with a one-line reason in `error`.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);

// The options getopt_long is given: the table of long options, which ends
// with an entry of zeros, and the string of short options.
const option* LongOptions();
const char* ShortOptions();

// The usage on one screen; the man page has the rest.
const char* HelpText();

}  // namespace kzdump

#endif  // KZDUMP_OPTIONS_H
