#include "options.h"

#include <bit>
#include <charconv>
#include <limits>
#include <string_view>
#include <utility>

namespace kzdump {

namespace {

constexpr unsigned kMaxJobs = 256;

// A whole argument as an unsigned decimal number within [low, high].
bool ParseNumber(std::string_view text, uint64_t low, uint64_t high, uint64_t& value) {
    if (text.empty()) return false;
    const char* end = text.data() + text.size();
    auto [stop, ec] = std::from_chars(text.data(), end, value);
    return ec == std::errc() && stop == end && value >= low && value <= high;
}

enum class Id {
    Help, Version, Json, Trace, Codes, Recursive, Quiet, Null,
    FilesFrom, Extensions, Jobs, StopEvery, Type, Filter, Fields, Csv, Tsv, Stats, Raw,
    Progress, NoProgress
};

struct KnownOption {
    std::string_view longName;
    char shortName;
    bool takesValue;
    Id id;
};

constexpr KnownOption kKnownOptions[] = {
    {"--help", 'h', false, Id::Help},         {"--version", '\0', false, Id::Version},
    {"--json", '\0', false, Id::Json},        {"--trace", '\0', false, Id::Trace},
    {"--codes", '\0', false, Id::Codes},      {"--recursive", 'r', false, Id::Recursive},
    {"--quiet", 'q', false, Id::Quiet},       {"--null", '0', false, Id::Null},
    {"--files-from", '@', true, Id::FilesFrom}, {"--ext", '\0', true, Id::Extensions},
    {"--jobs", 'j', true, Id::Jobs},          {"--stop-every", '\0', true, Id::StopEvery},
    {"--type", '\0', true, Id::Type},         {"--filter", '\0', true, Id::Filter},
    {"--fields", '\0', true, Id::Fields},     {"--csv", '\0', false, Id::Csv},
    {"--tsv", '\0', false, Id::Tsv},          {"--stats", '\0', false, Id::Stats},
    {"--raw", '\0', false, Id::Raw},          {"--progress", '\0', false, Id::Progress},
    {"--no-progress", '\0', false, Id::NoProgress},
};

// The CSV and TSV columns when --fields is not given.
constexpr std::string_view kDefaultColumns = "TIT2,TPE1,TALB,TYER,TRCK,TCON";

const KnownOption* FindLong(std::string_view name) {
    for (const KnownOption& option : kKnownOptions)
        if (option.longName == name) return &option;
    return nullptr;
}

const KnownOption* FindShort(char name) {
    for (const KnownOption& option : kKnownOptions)
        if (option.shortName == name) return &option;
    return nullptr;
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

bool Apply(Id id, std::string_view value, Options& options, std::string& error) {
    uint64_t number = 0;
    switch (id) {
        case Id::Help: options.help = true; return true;
        case Id::Version: options.version = true; return true;
        case Id::Json: options.mode = OutputMode::Json; return true;
        case Id::Trace: options.mode = OutputMode::Trace; return true;
        case Id::Codes: options.codes = true; return true;
        case Id::Recursive: options.recursive = true; return true;
        case Id::Quiet: options.quiet = true; return true;
        case Id::Null: options.listSeparator = '\0'; return true;
        case Id::FilesFrom:
            if (value.empty()) {
                error = "--files-from needs a file ('-' for standard input)";
                return false;
            }
            options.paths.push_back(Argument{std::string(value), true});
            return true;
        case Id::Extensions:
            options.extensions = ExtensionList(value);
            if (options.extensions.empty()) {
                error = "--ext needs extensions, as mp3,mp2";
                return false;
            }
            return true;
        case Id::Fields: options.fields.clear(); return FieldList(value, options.fields, error);
        case Id::Csv: options.mode = OutputMode::Csv; return true;
        case Id::Tsv: options.mode = OutputMode::Tsv; return true;
        case Id::Stats: options.stats = true; return true;
        case Id::Raw: options.raw = true; return true;
        case Id::Progress: options.progress = ProgressMode::Shown; return true;
        case Id::NoProgress: options.progress = ProgressMode::Hidden; return true;
        case Id::Filter:
            if (value.empty()) {
                error = "--filter needs a path";
                return false;
            }
            options.filterPath = value;
            return true;
        case Id::Jobs:
            if (!ParseNumber(value, 1, kMaxJobs, number)) {
                error = "bad number for -j: '" + std::string(value) + "' (1 to 256)";
                return false;
            }
            options.jobs = static_cast<unsigned>(number);
            return true;
        case Id::StopEvery:
            if (!ParseNumber(value, 1, std::numeric_limits<uint32_t>::max(), number)) {
                error = "bad number for --stop-every: '" + std::string(value) + "' (1 or more)";
                return false;
            }
            options.stopEvery = static_cast<uint32_t>(number);
            return true;
        case Id::Type:
            if (!ParseNumber(value, 0, std::numeric_limits<uint16_t>::max(), number)) {
                error = "bad number for --type: '" + std::string(value) + "' (0 to 65535)";
                return false;
            }
            options.fileType = static_cast<uint16_t>(number);
            return true;
    }
    return false;
}

// One argument that starts with "-": a long option ("--name", "--name=value",
// "--name value") or short options, combined as in "-rj2" or "-r -j 2".
bool ParseOption(std::string_view arg, int& index, int argc, char** argv, Options& options,
                 std::string& error, bool& jsonSeen, unsigned& modes) {
    const auto apply = [&](const KnownOption& option, std::string_view shown, std::string_view rest,
                           bool restGiven) {
        std::string_view value = rest;
        if (option.takesValue && !restGiven) {
            if (index + 1 >= argc) {
                error = "option '" + std::string(shown) + "' needs a value";
                return false;
            }
            value = argv[++index];
        }
        if (option.id == Id::Json || option.id == Id::Trace || option.id == Id::Csv || option.id == Id::Tsv) {
            modes |= 1u << static_cast<unsigned>(option.id);
        }
        jsonSeen |= option.id == Id::Json;
        return Apply(option.id, value, options, error);
    };
    if (arg.starts_with("--")) {
        const size_t equals = arg.find('=');
        const std::string_view name = arg.substr(0, equals);
        const KnownOption* option = FindLong(name);
        if (option == nullptr) {
            error = "unknown option '" + std::string(name) + "'";
            return false;
        }
        if (equals != std::string_view::npos && !option->takesValue) {
            error = "option '" + std::string(name) + "' takes no value";
            return false;
        }
        const bool given = equals != std::string_view::npos;
        return apply(*option, name, given ? arg.substr(equals + 1) : std::string_view(), given);
    }
    for (size_t at = 1; at < arg.size(); ++at) {
        const KnownOption* option = FindShort(arg[at]);
        const std::string shown = std::string("-") + arg[at];
        if (option == nullptr) {
            error = "unknown option '" + shown + "'";
            return false;
        }
        if (option->takesValue) {
            const std::string_view rest = arg.substr(at + 1);
            return apply(*option, shown, rest, !rest.empty());
        }
        if (!apply(*option, shown, {}, false)) return false;
    }
    return true;
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    bool jsonSeen = false;
    unsigned modes = 0;
    bool optionsEnded = false;
    for (int index = 1; index < argc; ++index) {
        const std::string_view arg = argv[index];
        if (optionsEnded || arg == "-" || !arg.starts_with('-')) {
            options.paths.push_back(Argument{std::string(arg), false});
        } else if (arg == "--") {
            optionsEnded = true;
        } else if (!ParseOption(arg, index, argc, argv, options, error, jsonSeen, modes)) {
            return false;
        }
    }
    if (std::popcount(modes) > 1) {
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
       kzdump --version

Reads each file through the host kit libkz_host.so, which loads the ID3
filter module libkz_id3.so the way a host engine does, and shows every field
the module delivers.

Options:
  --json            JSON Lines: one object per file (see below)
  --codes           with --json: also the raw character codes of each text
  --csv             CSV (RFC 4180: quoted where needed, CRLF line ends): a
                    header row, then one row per file: path, type, and the
                    fields of --fields (default TIT2,TPE1,TALB,TYER,TRCK,
                    TCON), a field that occurs more than once with its
                    values joined by "; "; files that cannot be read have
                    no row
  --tsv             the same as tab-separated values, a tab, line feed,
                    carriage return and backslash in a value written as
                    \t, \n, \r and \\
  --fields LIST     only these fields, in every output but --trace: a
                    comma-separated list of identifiers as the text output
                    shows them (TIT2, TXXX), ID3v1:title and the like for
                    the trailer, or field numbers (118 takes TIT2 and the
                    ID3v1 title); the header line of each file stays
  --raw             genres as the file has them: without it, the ID3v1 genre
                    number and the references in TCON ((13), a bare 13,
                    (13)Pop, (RX), (CR)) show with their names from the
                    genre list (0 to 191), as 13 (Pop), RX (Remix), CR
                    (Cover), references joined by ", ", a refinement text
                    after them kept after a space (13 (Pop) Pop); the JSON
                    keeps "text" as it is and adds the named form as
                    "genre" whatever --raw says
  --stats           at the end, a line on stderr: files, files read with
                    tags, files not read, fields shown, seconds
  --trace           every call the module makes into the host, one per line,
                    with its arguments as received
  -r, --recursive   read the files under each directory PATH (sorted by name,
                    directories entered in the same order; symbolic links to
                    directories are not followed)
  --ext LIST        with -r: only the files whose names end in one of these
                    comma-separated extensions, in any case (--ext mp3,mp2);
                    paths named as arguments or in lists are read whatever
                    their names
  -@, --files-from FILE
                    read the paths listed in FILE, one a line ('-' for the
                    standard input), where this option stands among the
                    arguments; blank lines are skipped; a path is taken as
                    it stands, every byte but the line feed kept
  -0, --null        the lists of -@ are separated by NUL bytes, as written
                    by find -print0, so a path may hold any byte
  -q, --quiet       no message for files with nothing to read (the exit
                    status is still 1), and no progress line unless
                    --progress is given
  --progress        draw the progress line (below) on stderr whatever it is,
                    with --quiet too
  --no-progress     never draw the progress line
  -j, --jobs N      N worker threads (1 to 256, default 1), each with its own
                    module context; the output order is the order of the
                    arguments and of the sorted walk whatever N is
  --stop-every K    answer "stop" at every K-th frame break, and between read
                    calls save the module's state (VwStreamTell, VwGetData)
                    and restore it (VwSetData, VwStreamSeek).  The output is
                    the same as without this option whenever every frame
                    body is read or skipped whole.  Where one is not (a frame
                    that declares more bytes than remain in the file), a
                    stopped read resumes where the stream actually stands,
                    not where that frame said it ends: tag numbers, and even
                    the set of fields, may then differ
  --type N          file type identifier passed when opening (0 to 65535; the
                    module knows 1706 to 1715 and names no other); without it,
                    or with 0, the type is detected from each file (below)
  --filter PATH     load this module instead of the one the kit finds: the
                    file named by the environment variable KZ_ID3_MODULE,
                    else kz_id3/libkz_id3.so beside libkz_host.so
  --version         the package version, then the module loaded and the
                    version marker it exports
  -h, --help        this text
  --                end of options: every later argument is a path
Short options combine, as in -rj2 or -rq0@ list; a value follows its option
(-j2, -j 2, --jobs=2, --jobs 2).  Paths may hold any bytes; in the text
output, bytes that are not UTF-8 and control characters show as \xNN.

Environment:
  KZ_ID3_MODULE     the module to load when --filter is not given; when it is
                    not set either, kzdump loads libkz_id3.so from the module
                    directory installed with it (found relative to kzdump, so
                    the installed tree may be moved), else from the build tree

Text output (default):
  A header line per file: the path, then the type name the module wrote into
  the file information record ("no tags" is added when the module found
  nothing to read).  Then one line per field, in the order delivered:
    TIT2: value          an ID3v2 frame, shown by the four-letter identifier
                         of its field number (ID3v2.2 frames such as TT2 share
                         the numbers of their four-letter counterparts)
    ID3v1 title: value   a field of the ID3v1 trailer (title, artist, album,
                         year, comment, track, genre)
    TXXX "desc": value   a user-defined field (field number 500 and above,
                         its description in a string tag)
    (outside any field): text delivered outside every field (the involved
                         people list, IPLS, has no field of its own)
  Rules the host applies, since the module does not pass frame identifiers:
  - ID3v1 fields: the fields that arrive after the last frame break and
    before the end break.  Every ID3v2 frame is followed by a frame break and
    the trailer's fields are not, so this rule is exact.
  - TXXX or WXXX: the module switches to UTF-16 for a TXXX value whenever the
    frame's encoding is UTF-16, while a WXXX URL is always single bytes.  So
    a field whose value follows a switch to UTF-16 is TXXX, a field whose
    description is UTF-16 and whose value is not is WXXX, and a field with a
    single-byte description cannot be told apart: it shows as TXXX/WXXX.
  - Other string tags inside a field are shown in place as [text].
  Characters are decoded by the character set in force: single-byte codes as
  ISO-8859-1, UTF-16 units with surrogate pairs joined (a lone half becomes
  U+FFFD), and written as UTF-8.  Control characters are escaped as \xNN,
  U+FEFF, U+2028, U+2029, U+FFFE and U+FFFF as \uNNNN, a backslash as \\ (and
  a quote in a description as \"), so the output is always printable.  A line
  feed in a value (a line break the module delivers, or a line-feed
  character) continues the value on the next line, indented by four spaces;
  in a description it shows as \n.  A failure the module reports shows as a
  line "(failure N reported by the module)"; 9 means the ID3v1 trailer could
  not be read whole.  Field numbers without an identifier show as "field N".

Type detection (without --type):
  From the ID3v2 tags at the start of the file, the first MPEG audio frame
  after them (within 64 KiB, confirmed by a second frame header where the
  first one's length says it should be) and the ID3v1 trailer:
    MPEG-1 Layer III     1707 with an ID3v2 tag, else 1706 with an ID3v1
                         trailer, else 1710
    MPEG-1 Layer I, II   1711, 1712
    MPEG-2 and 2.5       Layer I, II, III: 1713, 1714, 1715
    no audio frame       1709 with an ID3v2 tag, else 1708 with an ID3v1
                         trailer, else 1710

JSON output (--json), one object per file:
  {"path":..., "status": open status (0, or 51 for nothing to read),
   "type": type name, "fields": [...], "end": true when the end break came}
  Each entry of "fields" is one of
    {"tag": tag number, "field": field number, "id": identifier as in the
     text output, "text": decoded value, "strings": [{"tag":..., "text":...}]
     (string tags inside the field, not part of "text"), "description": text
     of the first string (user-defined fields only)}
    {"outside": true, "text": ...}
    {"failure": N}
  With --codes, every "text" has a "codes" array beside it: the exact codes
  the module passed to SOOutChar, a line break (SOOutSpecial 5) as -5.  A
  file that could not be opened gives {"path":..., "error": reason}.  A path
  that is not valid UTF-8 has U+FFFD in "path" for each byte that is not,
  and "path_base64" beside it holding its exact bytes (base64); a valid
  path has no "path_base64".

Progress:
  A run that lasts more than half a second shows one line on stderr, redrawn
  between files up to four times a second: files done, files per second,
  the size of those files (decimal units: kB, MB, GB), errors (files that
  could not be read) and, when the number of files is known before the run
  (paths given as arguments, path lists that are regular files, no -r), the
  total, the share done and the time left at the mean rate so far:
    1200 of 5000 files (24%), 410 files/s, 1.4 GB, 0 errors, 0:00:09 left
  The line is drawn with a carriage return, cut to the terminal's width,
  and cleared (a carriage return, spaces over it, a carriage return) before
  any message on stderr, before output when stdout is a terminal too, and
  at the end.  By default it is drawn only when stderr is a terminal and
  stdout is not (a terminal that shows the output shows the progress
  already), and not with --quiet; of --progress and --no-progress, the last
  given wins.

Output is written as it is made: with -j 1 a file's fields appear as they
arrive; with -j N a worker holds at most 1 MiB of output that is not yet its
turn, then waits for it.

Exit status (when several apply, the highest):
  0  every file was read
  1  some file had nothing to read: no tags found (open status 51 or another
     non-zero status), or the module did not finish it
  2  bad usage (unknown option, bad number, no path), or the module could not
     be loaded or lacks VwGetRtns or an entry point
  3  some file could not be read: missing, unreadable, not a regular file, a
     directory without -r, larger than 4 GiB, or an I/O error
  4  the output could not be written (disk full, I/O error); kzdump stops
Errors are reported on stderr, one line each, naming the path; the other
files are still read.  A closed pipe (kzdump ... | head) ends kzdump quietly.
Each file's text block or JSON line is written with one write(2) when it
fits in 4096 bytes (PIPE_BUF), so that runs appending to one file never mix
their records.
)HELP";
}

}  // namespace kzdump
