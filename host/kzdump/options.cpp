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
    kStats, kRaw, kProgress, kNoProgress,
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
    {"raw", no_argument, nullptr, kRaw},
    {"stats", no_argument, nullptr, kStats},
    {"recursive", no_argument, nullptr, 'r'},
    {"ext", required_argument, nullptr, kExt},
    {"files-from", required_argument, nullptr, '@'},
    {"null", no_argument, nullptr, '0'},
    {"quiet", no_argument, nullptr, 'q'},
    {"progress", no_argument, nullptr, kProgress},
    {"no-progress", no_argument, nullptr, kNoProgress},
    {"jobs", required_argument, nullptr, 'j'},
    {"stop-every", required_argument, nullptr, kStopEvery},
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

// Comma-separated field names: identifiers, "ID3v1:title" (or "ID3v1
// title"), or field numbers.
bool FieldList(std::string_view text, std::vector<FieldChoice>& fields, std::string& error) {
    while (!text.empty()) {
        const size_t comma = text.find(',');
        FieldChoice choice;
        choice.name = text.substr(0, comma);
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
        if (choice.name.empty()) continue;
        uint64_t number = 0;
        if (ParseNumber(choice.name, 1, std::numeric_limits<uint32_t>::max(), number)) {
            choice.number = static_cast<uint32_t>(number);
        } else {
            choice.ident = choice.name;
            if (choice.ident.starts_with("ID3v1:")) choice.ident[5] = ' ';
        }
        fields.push_back(std::move(choice));
    }
    if (fields.empty()) error = "--fields needs field names, as TIT2,TPE1,ID3v1:title";
    return !fields.empty();
}

// Comma-separated words, lower-cased, a leading dot dropped.
std::vector<std::string> ExtensionList(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const size_t comma = text.find(',');
        std::string word(text.substr(0, comma));
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
        if (word.starts_with('.')) word.erase(0, 1);
        for (char& c : word) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        if (!word.empty()) words.push_back(std::move(word));
    }
    return words;
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
        case kExt:
            options.extensions = ExtensionList(value);
            if (options.extensions.empty()) {
                error = "--ext needs extensions, as mp3,mp2";
                return false;
            }
            return true;
        case kFields: options.fields.clear(); return FieldList(value, options.fields, error);
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

}  // namespace

const option* LongOptions() { return kLongOptions; }
const char* ShortOptions() { return kShortOptions; }

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
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
        FieldList(kDefaultColumns, options.fields, error);
    }
    if (options.codes && !jsonSeen) {
        error = "--codes goes with --json";
        return false;
    }
    if (!options.help && !options.version && options.paths.empty()) {
        error = "no file given";
        return false;
    }
    return true;
}

const char* HelpText() {
    return R"HELP(Usage: kzdump [OPTIONS] PATH...
       kzdump [OPTIONS] -@ LIST
Shows every ID3 field the filter module libkz_id3.so delivers for each file,
read through the host kit libkz_host.so as a host engine reads it.

Output:
      --json             JSON Lines, one object per file
      --codes            with --json: the raw character codes too
      --csv, --tsv       one row per file: path, type and the --fields columns
      --fields LIST      only these fields (TIT2,TPE1,ID3v1:title,118)
      --raw              genre numbers as the file has them, without names
      --trace            every call the module makes into the host
      --stats            a summary line on stderr at the end
Files:
  -r, --recursive        read the files under each directory PATH, sorted
      --ext LIST         with -r: only these extensions (mp3,mp2)
  -@, --files-from LIST  read the paths listed in LIST ('-': stdin)
  -0, --null             the lists are NUL-separated (find -print0)
Run:
  -j, --jobs N           N worker threads (1 to 256); output order is kept
  -q, --quiet            no message for files with nothing to read
      --progress         draw the progress line on stderr
      --no-progress      never draw it
      --stop-every K     answer "stop" at every K-th frame break, and page
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
