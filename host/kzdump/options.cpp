#include "options.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

namespace kzdump {

namespace {

constexpr unsigned kMaxJobs = 256;

// The values getopt_long returns for options without a short form.
enum LongOnly : int {
    kVersion = 256, kJson, kTrace, kCodes, kExt, kStopEvery, kType, kFilter, kFields, kCsv, kTsv,
    kStats, kRaw, kProgress, kNoProgress, kListFields, kExclude, kStdinLimit, kBlockLimit,
};

// A leading '-': every argument that is no option comes back in its place
// (as value 1), so paths and lists keep their order.  ':' after it: a
// missing value is told from an unknown option.
constexpr char kShortOptions[] = "-:hrq0@:j:";

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, kVersion},
    {"json", no_argument, nullptr, kJson},
    {"trace", no_argument, nullptr, kTrace},
    {"codes", no_argument, nullptr, kCodes},
    {"csv", no_argument, nullptr, kCsv},
    {"tsv", no_argument, nullptr, kTsv},
    {"fields", required_argument, nullptr, kFields},
    {"list-fields", no_argument, nullptr, kListFields},
    {"raw", no_argument, nullptr, kRaw},
    {"stats", no_argument, nullptr, kStats},
    {"recursive", no_argument, nullptr, 'r'},
    {"ext", required_argument, nullptr, kExt},
    {"exclude", required_argument, nullptr, kExclude},
    {"files-from", required_argument, nullptr, '@'},
    {"null", no_argument, nullptr, '0'},
    {"stdin-limit", required_argument, nullptr, kStdinLimit},
    {"quiet", no_argument, nullptr, 'q'},
    {"progress", no_argument, nullptr, kProgress},
    {"no-progress", no_argument, nullptr, kNoProgress},
    {"jobs", required_argument, nullptr, 'j'},
    {"stop-every", required_argument, nullptr, kStopEvery},
    {"block-limit", required_argument, nullptr, kBlockLimit},
    {"type", required_argument, nullptr, kType},
    {"filter", required_argument, nullptr, kFilter},
    {nullptr, 0, nullptr, 0},
};

// The CSV and TSV columns when --fields is not given.
constexpr std::string_view kDefaultColumns = "TIT2,TPE1,TALB,TYER,TRCK,TCON";

// A whole argument as an unsigned decimal number within [low, high].
bool ParseNumber(std::string_view text, uint64_t low, uint64_t high, uint64_t& value) {
    if (text.empty()) return false;
    const char* end = text.data() + text.size();
    auto [stop, ec] = std::from_chars(text.data(), end, value);
    return ec == std::errc() && stop == end && value >= low && value <= high;
}

// Comma-separated extensions, spaces around each ignored, each as "mp3",
// ".mp3" or "*.mp3"; false for an empty or malformed entry.
bool ExtensionList(std::string_view text, std::vector<std::string>& extensions, std::string& error) {
    extensions.clear();
    for (size_t at = 0;;) {
        const size_t comma = text.find(',', at);
        std::string_view word = text.substr(at, comma - at);
        const size_t first = word.find_first_not_of(" \t");
        word = first == std::string_view::npos ? std::string_view() : word.substr(first, word.find_last_not_of(" \t") + 1 - first);
        if (word.starts_with("*.")) {
            word.remove_prefix(2);
        } else if (word.starts_with('.')) {
            word.remove_prefix(1);
        }
        if (word.empty() || word.find_first_of("./*?[] \t") != std::string_view::npos) {
            error = "--ext: bad extension '" + std::string(text.substr(at, comma - at)) + "' (as mp3, .mp3 or *.mp3)";
            return false;
        }
        extensions.emplace_back(word);
        if (comma == std::string_view::npos) return true;
        at = comma + 1;
    }
}

// A size in bytes, with K, M or G for KiB, MiB and GiB; below 4 GiB.
bool ParseSize(std::string_view text, uint64_t& size) {
    uint64_t unit = 1;
    if (!text.empty()) {
        switch (text.back()) {
            case 'K': unit = uint64_t{1} << 10; break;
            case 'M': unit = uint64_t{1} << 20; break;
            case 'G': unit = uint64_t{1} << 30; break;
            default: break;
        }
    }
    if (unit != 1) text.remove_suffix(1);
    uint64_t count = 0;
    if (!ParseNumber(text, 1, std::numeric_limits<uint32_t>::max(), count) ||
        count * unit > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    size = count * unit;
    return true;
}

bool BadNumber(std::string_view option, std::string_view value, std::string_view range, std::string& error) {
    error = "bad number for ";
    error.append(option).append(": '").append(value).append("' (").append(range).append(")");
    return false;
}

// One option with its value; false with the reason on bad usage.
bool Apply(int id, std::string_view value, Options& options, std::string& error) {
    uint64_t number = 0;
    switch (id) {
        case 'h': options.help = true; return true;
        case kVersion: options.version = true; return true;
        case kJson: options.mode = OutputMode::Json; return true;
        case kTrace: options.mode = OutputMode::Trace; return true;
        case kCsv: options.mode = OutputMode::Csv; return true;
        case kTsv: options.mode = OutputMode::Tsv; return true;
        case kCodes: options.codes = true; return true;
        case 'r': options.recursive = true; return true;
        case 'q': options.quiet = true; return true;
        case '0': options.listSeparator = '\0'; return true;
        case kStats: options.stats = true; return true;
        case kRaw: options.raw = true; return true;
        case kProgress: options.progress = ProgressMode::Shown; return true;
        case kNoProgress: options.progress = ProgressMode::Hidden; return true;
        case '@':
            if (value.empty()) {
                error = "--files-from needs a file ('-' for standard input)";
                return false;
            }
            options.paths.push_back(Argument{std::string(value), true});
            return true;
        case kExt: return ExtensionList(value, options.extensions, error);
        case kExclude:
            if (value.empty()) {
                error = "--exclude needs a pattern";
                return false;
            }
            options.excludes.emplace_back(value);
            return true;
        case kFields: options.fields.clear(); return ParseFieldList(value, options.fields, error);
        case kListFields: options.listFields = true; return true;
        case kStdinLimit:
            if (!ParseSize(value, options.stdinLimit)) return BadNumber("--stdin-limit", value, "1 to 4G-1", error);
            return true;
        case kBlockLimit: {
            uint64_t limit = 0;
            if (!ParseSize(value, limit)) return BadNumber("--block-limit", value, "1 to 4G-1", error);
            options.blockLimit = static_cast<uint32_t>(limit);
            return true;
        }
        case kFilter:
            if (value.empty()) {
                error = "--filter needs a path";
                return false;
            }
            options.filterPath = value;
            return true;
        case 'j':
            if (!ParseNumber(value, 1, kMaxJobs, number)) return BadNumber("-j", value, "1 to 256", error);
            options.jobs = static_cast<unsigned>(number);
            return true;
        case kStopEvery:
            if (!ParseNumber(value, 1, std::numeric_limits<uint32_t>::max(), number)) {
                return BadNumber("--stop-every", value, "1 or more", error);
            }
            options.stopEvery = static_cast<uint32_t>(number);
            return true;
        case kType:
            if (!ParseNumber(value, 0, std::numeric_limits<uint16_t>::max(), number)) {
                return BadNumber("--type", value, "0 to 65535", error);
            }
            options.fileType = static_cast<uint16_t>(number);
            return true;
        default: return false;
    }
}

// The option getopt_long refused, as the user wrote it: the long option of
// argument `arg`, or the short option `shortName`.
std::string Refused(std::string_view arg, int shortName) {
    if (arg.starts_with("--")) return std::string(arg.substr(0, arg.find('=')));
    return std::string("-") + static_cast<char>(shortName);
}

bool Parse(int argc, char** argv, Options& options, std::string& error) {
    unsigned modes = 0;
    bool jsonSeen = false;
    // 0 starts getopt afresh, so that it may parse more than one command line.
    optind = 0;
    opterr = 0;
    for (int id; (id = ::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1;) {
        if (id == 1) {
            options.paths.push_back(Argument{optarg, false});
            continue;
        }
        if (id == ':') {
            error = "option '" + Refused(argv[optind - 1], optopt) + "' needs a value";
            return false;
        }
        if (id == '?') {
            // optopt: 0 for an unknown long option, the short name for an
            // unknown short one, the option's value for a long option given
            // a value it does not take.
            const bool unknownShort = optopt > 0 && optopt < 256 && std::strchr(kShortOptions + 2, optopt) == nullptr;
            if (unknownShort) {
                error = "unknown option '" + Refused("", optopt) + "'";
            } else {
                const std::string name = Refused(argv[optind - 1], optopt);
                error = optopt == 0 ? "unknown option '" + name + "'" : "option '" + name + "' takes no value";
            }
            return false;
        }
        if (id == kJson || id == kTrace || id == kCsv || id == kTsv) modes |= 1u << (id - kVersion);
        jsonSeen |= id == kJson;
        if (!Apply(id, optarg != nullptr ? optarg : "", options, error)) return false;
    }
    for (int index = optind; index < argc; ++index) options.paths.push_back(Argument{argv[index], false});
    if ((modes & (modes - 1)) != 0) {
        error = "only one of --json, --trace, --csv and --tsv can be given";
        return false;
    }
    if (!options.fields.empty() && options.mode == OutputMode::Trace) {
        error = "--fields does not go with --trace";
        return false;
    }
    if (options.fields.empty() && (options.mode == OutputMode::Csv || options.mode == OutputMode::Tsv)) {
        ParseFieldList(kDefaultColumns, options.fields, error);
    }
    if (options.codes && !jsonSeen) {
        error = "--codes goes with --json";
        return false;
    }
    // Standard input is read once: as one file ("-") or as a list ("-@ -").
    int standardInputs = 0;
    for (const Argument& argument : options.paths) standardInputs += argument.path == "-";
    if (standardInputs > 1) {
        error = "standard input can be read only once ('-' and '-@ -')";
        return false;
    }
    if (!options.help && !options.version && !options.listFields && options.paths.empty()) {
        error = "no file given";
        return false;
    }
    return true;
}

}  // namespace

const option* LongOptions() { return kLongOptions; }
const char* ShortOptions() { return kShortOptions; }

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    if (Parse(argc, argv, options, error)) return true;
    // The reason, and where to read more unless it says so already.
    if (error.find("kzdump --") == std::string::npos) error += " (see kzdump --help)";
    return false;
}

const char* HelpText() {
    return R"HELP(Usage: kzdump [OPTIONS] PATH...
       kzdump [OPTIONS] -@ LIST
       kzdump --list-fields
Shows every ID3 field the filter module libkz_id3.so delivers for each file,
read through the host kit libkz_host.so as a host engine reads it.

Output:
      --json             JSON Lines, one object per file
      --codes            with --json: the raw character codes too
      --csv, --tsv       one row per file: path, type and the --fields columns
      --fields LIST      only these fields (TIT2,TPE1,ID3v1:title,118)
      --list-fields      list the names --fields takes
      --raw              genre numbers as the file has them, without names
      --trace            every call the module makes into the host
      --stats            a summary line on stderr at the end
Files:
  -r, --recursive        read the files under each directory PATH, sorted
      --ext LIST         with -r: only these extensions (mp3,mp2)
      --exclude PATTERN  with -r: leave out names that match (repeatable)
  -@, --files-from LIST  read the paths listed in LIST ('-': stdin)
  -0, --null             the lists are NUL-separated (find -print0)
      --stdin-limit SIZE  the most bytes of the PATH - (standard input, read
                         as one file and held in memory; default 256M)
Run:
  -j, --jobs N           N worker threads (1 to 256); output order is kept
  -q, --quiet            no message for files with nothing to read
      --progress         draw the progress line on stderr
      --no-progress      never draw it
      --stop-every K     answer "stop" at every K-th frame break, and page
      --block-limit SIZE  the most memory for one frame body (default: the
                         file's size); larger bodies are skipped, and said
      --type N           the file type to open with (default: detected)
      --filter PATH      load this module (default: $KZ_ID3_MODULE, else
                         the one installed with the kit)
      --version          the version and the module loaded
  -h, --help             this text
Exit status: 0 all read, 1 some file had nothing to read, 2 bad usage,
3 some file could not be read, 4 the output could not be written.

See man kzdump for every option, the output forms and the exit status.
)HELP";
}

}  // namespace kzdump
