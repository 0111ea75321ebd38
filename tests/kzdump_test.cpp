// End-to-end tests of kzdump, the reference host: the program is run as a
// user runs it, on the samples, on the real-world corpus, on files built
// here byte by byte and on the example files of the host guide; arguments
// in, the exact output, exit status and error lines out.
#ifdef KZDUMP_PATH

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <unistd.h>

#include "id3v2/frame_walker.h"
#include "kz_id3.h"
#include "kz_id3_version.h"
#include "options.h"
#include "processes.h"
#include "progress.h"
#include "tag_builder.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;

// Header lines name the type detected: MPEG-1 Layer III audio after an ID3v2
// tag, or a tag without audio.
const std::string kType = ": MPEG-1 audio - Layer 3, ID3v2.x";
const std::string kTagOnly = ": ID3 Ver 2.x (no MPEG audio frame)";

RunResult Kzdump(const Strings& args) { return Shell(Quoted(Strings{KZDUMP_PATH} + args)); }
std::string Sample(const std::string& name) { return std::string(KZ_SAMPLES_DIR) + "/" + name; }
// The output of a file whose only field is TIT2 "x".
std::string TitleX(const std::string& path) { return path + kTagOnly + "\n  TIT2: x\n"; }

Strings Lines(const std::string& text) {
    Strings lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// Whether text matches pattern, in which '*' stands for any characters.
bool Matches(std::string_view text, std::string_view pattern) {
    const size_t star = pattern.find('*');
    if (star == std::string_view::npos) return text == pattern;
    if (!text.starts_with(pattern.substr(0, star))) return false;
    for (size_t at = star; at <= text.size(); ++at)
        if (Matches(text.substr(at), pattern.substr(star + 1))) return true;
    return false;
}

// Shell words after kzdump, run in a directory, against the exact output,
// exit status and error lines ('*': any characters).
struct Case {
    std::string command;
    std::string out;
    int status = 0;
    Strings err = {};
};

void Check(const std::string& directory, const std::vector<Case>& cases, const std::string& prefix = "") {
    for (const Case& c : cases) {
        const RunResult run = Shell("cd" + Quoted({directory}) + " && " + prefix + Quoted({KZDUMP_PATH}) + " " + c.command);
        EXPECT_EQ(run.out, c.out) << c.command;
        EXPECT_EQ(run.status, c.status) << c.command << "\n" << run.err;
        const Strings lines = Lines(run.err);
        EXPECT_EQ(lines.size(), c.err.size()) << c.command << "\n" << run.err;
        for (size_t i = 0; i < std::min(lines.size(), c.err.size()); ++i)
            EXPECT_TRUE(Matches(lines[i], c.err[i])) << c.command << "\n" << lines[i] << " / " << c.err[i];
    }
}

// The texts between backticks.
Strings Spans(const std::string& cell) {
    Strings spans;
    for (size_t open = cell.find('`'), close; open != std::string::npos; open = cell.find('`', close + 1)) {
        close = cell.find('`', open + 1);
        spans.push_back(cell.substr(open + 1, close - open - 1));
    }
    return spans;
}

// The trimmed cells of the rows of every table in a document whose header
// row starts with `header`.
std::vector<Strings> TableRows(const std::string& path, const std::string& header) {
    std::vector<Strings> rows;
    bool inTable = false;
    for (const std::string& line : Lines(ReadWhole(path))) {
        if (line.starts_with(header)) inTable = true;
        inTable = inTable && line.starts_with('|');
        if (!inTable || line.starts_with(header) || line.starts_with("|---")) continue;
        Strings& cells = rows.emplace_back();
        for (size_t at = 1, next; (next = line.find('|', at)) != std::string::npos; at = next + 1) {
            const std::string cell = line.substr(at, next - at);
            const size_t first = cell.find_first_not_of(' ');
            cells.push_back(first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(' ') + 1 - first));
        }
    }
    return rows;
}

// A whole file in the guide's notation: one ID3v2.3 tag whose frames are
// "ID bytes" joined by " + ", "(flags XX XX)" or "(size N)" after an
// identifier, and "tag flags XX" or "tag size N" for the tag header.
Bytes FileFrom(std::string notation) {
    for (size_t at; (at = notation.find(" + ")) != std::string::npos;) notation.replace(at, 3, 1, '\n');
    Bytes content;
    TagOptions tag;
    std::istringstream pieces(notation);
    for (std::string piece; std::getline(pieces, piece);) {
        std::istringstream words(piece);
        std::string id, word, more;
        Bytes body;
        std::optional<uint32_t> size;
        unsigned long flags = 0;
        for (words >> id; words >> word;) {
            if (id == "tag" && words >> more && word == "flags") tag.flags = static_cast<uint8_t>(std::stoul(more, nullptr, 16));
            else if (id == "tag") tag.declaredSize = std::stoul(more);
            else if (word == "(size" && words >> more) size = std::stoul(more);
            else if (word == "(flags" && words >> word >> more) flags = std::stoul(word + more, nullptr, 16);
            else body.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
        }
        if (id == "tag") continue;
        Bytes frame = Frame(3, id, body, size);
        frame[8] = static_cast<uint8_t>(flags >> 8);
        frame[9] = static_cast<uint8_t>(flags);
        content += frame;
    }
    return Tag(3, content, tag);
}

// ---- What kzdump shows and returns ---------------------------------------------------

TEST(Kzdump, OutputAndExitStatusOfSamplesFilesBuiltHereAndBadUsage) {
    TempDir dir;
    const std::string escapes = dir.Write(
        "escapes.mp3",
        Tag(3, Frame(3, "TIT2", Raw({0x00, 'A', 0x01, 'B', '\\', 0x7F, 0x0A})) +
                   // x, a high surrogate followed by y, then a lone low surrogate.
                   Frame(3, "TPE1", Raw({0x01, 0xFF, 0xFE, 'x', 0x00, 0x34, 0xD8, 'y', 0x00, 0x1E, 0xDD})) +
                   Frame(3, "TXXX", Raw({0x00, '"', 0x0A, 0x00, 'v'}))));
    // 100 bytes that declare a text frame of 50 MB (below the host's default
    // limit): kzdump refuses any block larger than the file, and the field
    // stays empty.
    Bytes declaring = Tag(3, Frame(3, "TIT2", Raw({0, 'A'}), 50'000'000), {.declaredSize = 0x0FFFFFFF});
    declaring.resize(100, 0);
    const std::string large = dir.Write("large.mp3", declaring);
    const std::string bodied = dir.Write("bodied.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 'T'})) + Frame(3, "TPE1", Raw({0}) + Bytes(20000, 'x')) +
                                                                   Frame(3, "TALB", Raw({0, 'B'}))));
    // Genre references named from the genre list; --raw shows them as they
    // are.
    const std::pair<std::string, std::string> genres[] = {
        {"(13)", "13 (Pop)"}, {"191", "191 (Psybient)"}, {"(4)(RX)Eurodisco", "4 (Disco), RX (Remix) Eurodisco"},
        {"(CR)", "CR (Cover)"}, {"((13) text", "(13) text"}, {"(192)", "(192)"}, {"80", "80 (Folk)"},
        {"Pop", "Pop"}, {"13x", "13x"},
    };
    Bytes tcon;
    std::string named, raw;
    for (const auto& [value, shown] : genres) {
        tcon += Frame(3, "TCON", Raw({0}) + Latin1(value));
        raw += "  TCON: " + value + "\n";
        named += "  TCON: " + shown + "\n";
    }
    const std::string genre = dir.Write("genres.mp3", Tag(3, tcon));
    // Every body of the samples and the corpus is read or skipped whole, so
    // stopping changes nothing there (the equal-output test).  In bytes that
    // hold a TALB declaring 20,000 bytes and TPE1 "B", the TALB body is
    // neither: a read that goes on ends the tag at that body's declared end,
    // while a read stopped after the first frame resumes where the stream
    // stands, after the TALB header, and finds TPE1.
    const std::string cut = dir.Write(
        "cut.mp3", Tag(3, Frame(3, "TALB", {}, 20'000) + Frame(3, "TPE1", Raw({0, 'B'})), {.declaredSize = 100}));
    const std::string two = Sample("two_tags.mp3"), v1 = Sample("id3v1_only.mp3");
    const std::string v22 = Sample("v22_latin1.mp3"), v23 = Sample("v23_utf16.mp3");
    const std::string v24 = Sample("v24_with_id3v1.mp3"), people = Sample("v23_people_lyrics.mp3");
    const std::string twoTags = "\n  TIT2: First tag\n  TPE1: Band A\n  TIT2: Second tag\n  TALB: Other album\n";
    const std::string noModule = "/nonexistent/libkz_id3.so";
    // The host memory services library loads but is no filter module.
    const std::string services = (fs::path(KZ_MODULE_PATH).parent_path() / "libkz_sys.so").string();
    const std::string silent = dir.Write("silent.mp3", SilentMpegFrames(4));
    const std::string noTags = silent + ": MPEG-1 audio - Layer 3: no tags\n";
    const std::string skipped = ": note: a frame declares a body larger than the file; it was skipped and its field is empty";
    fs::create_directory(dir.path / "empty");
    std::vector<Case> cases = {
        // TDRC (not one of the module's frames) is left out; the ID3v1.1
        // trailer has track 7 and genre 13.
        {Quoted({v24}), v24 + kType + "\n  TIT2: Evening Song\n  TPE1: The Testers\n  TRCK: 7\n  ID3v1 title: Evening Song\n"
                        "  ID3v1 artist: The Testers\n  ID3v1 album: Sample Album\n  ID3v1 year: 2004\n"
                        "  ID3v1 comment: ID3v1.1 trailer\n  ID3v1 track: 7\n  ID3v1 genre: 13 (Pop)\n"},
        {Quoted({v1}), v1 + ": MPEG-1 audio - Layer 3, ID3v1.x\n  ID3v1 title: Only Trailer\n  ID3v1 artist: Nobody\n"
                       "  ID3v1 album:\n  ID3v1 year: 1999\n  ID3v1 comment: A comment that fills 30 bytes.\n  ID3v1 genre:\n"},
        {Quoted({v22}), v22 + kType + "\n  TIT2: Morning Song\n  TPE1: The Testers\n  TALB: Sample Album\n  TYER: 2001\n"
                        "  TRCK: 3/12\n  TCON: 13 (Pop) Pop\n  COMM:  Recorded live\n"},
        // A line break continues the value on an indented line; a
        // single-byte description cannot tell TXXX from WXXX.
        {Quoted({v23}), v23 + kType + "\n  TIT2: Caf\u00E9 \u00DCn\u00EFcode\n  TPE1: \u03A9mega \U0001D11E Band\n"
                        "  TALB: Gr\u00FC\u00DFe\n  COMM: note Line one\n    Line two\n  TXXX/WXXX \"MOOD\": calm\n"
                        "  TXXX \"TEMPO\": andante\n  WXXX \"Homepage\": http://example.com/\n  APIC: image/png \\x03 cover\n"},
        {Quoted({people}), people + kType + "\n  TIT2: Credits\n  (outside any field): producer Ann mixer Bob \n"
                           "  USLT:  first line\n    second line\n  PCNT: \\x00\\x00\\x01,\n"},
        {Quoted({"--json", people}),
         "{\"path\":\"" + people + "\",\"status\":0,\"type\":\"MPEG-1 audio - Layer 3, ID3v2.x\",\"fields\":["
         "{\"tag\":1,\"field\":118,\"id\":\"TIT2\",\"text\":\"Credits\",\"strings\":[]},"
         "{\"outside\":true,\"text\":\"producer Ann mixer Bob \"},{\"tag\":3,\"field\":153,\"id\":\"USLT\","
         "\"text\":\" first line\\nsecond line\",\"strings\":[]},{\"tag\":4,\"field\":94,\"id\":\"PCNT\","
         "\"text\":\"\\u0000\\u0000\\u0001,\",\"strings\":[]}],\"end\":true}\n"},
        // A line-feed character continues the value too; a description
        // is quoted, its quotes and line breaks escaped.
        {Quoted({escapes}),
         escapes + kTagOnly + "\n  TIT2: A\\x01B\\\\\\x7F\n    \n  TPE1: x\uFFFDy\uFFFD\n  TXXX/WXXX \"\\\"\\n\": v\n"},
        {Quoted({large}), large + kTagOnly + "\n  TIT2:\n", 0, {"kzdump: " + large + skipped}},
        // Bodies up to 16 KiB go through the module's own buffer; a larger
        // one takes memory, within the limit.
        {Quoted({"--block-limit", "16K", bodied}), bodied + kTagOnly + "\n  TIT2: T\n  TPE1:\n  TALB: B\n", 0,
         {"kzdump: " + bodied + ": note: a frame body larger than --block-limit was skipped; its field is empty"}},
        {Quoted({"-q", "--block-limit", "20000", bodied}), bodied + kTagOnly + "\n  TIT2: T\n  TPE1:\n  TALB: B\n"},
        {Quoted({"--block-limit", "20001", bodied}),
         bodied + kTagOnly + "\n  TIT2: T\n  TPE1: " + std::string(20000, 'x') + "\n  TALB: B\n"},
        {Quoted({genre}), genre + kTagOnly + "\n" + named},
        {Quoted({"--raw", genre}), genre + kTagOnly + "\n" + raw},
        {Quoted({cut}), cut + kTagOnly + "\n  TALB:\n", 0, {"kzdump: " + cut + skipped}},
        {Quoted({"--stop-every", "1", cut}), cut + kTagOnly + "\n  TALB:\n  TPE1: B\n", 0, {"kzdump: " + cut + skipped}},
        {Quoted({"--type", "1708", two}), two + ": ID3 Ver 1.x" + twoTags},
        {Quoted({"--type=9999", two}), two + ": type 9999" + twoTags},
        {Quoted({"--filter", KZ_MODULE_PATH, two}), two + kType + twoTags},
        // The ends of the ranges of the numbers.
        {Quoted({"--type", "65535", "-j", "256", "--stop-every", "4294967295", two}), two + ": type 65535" + twoTags},
        // Nothing to read: status 1, and with -q no message.
        {Quoted({"-q", silent}), noTags, 1},
        // Files that cannot be read: status 3, one error line each, the
        // other files still read.
        {Quoted({silent, "/nonexistent/a.mp3", two}), noTags + two + kType + twoTags, 3,
         {"kzdump: " + silent + ": nothing to read: *", "kzdump: /nonexistent/a.mp3: No such file or directory"}},
        {"empty" + Quoted({two}), two + kType + twoTags, 3,
         {"kzdump: empty: is a directory (use -r to read the files under it)"}},
        {Quoted({"--filter", noModule, two}), "", 2, {"kzdump: " + noModule + ": no such module file"}},
        {Quoted({"--filter", services, two}), "", 2, {"kzdump: " + services + ": not a filter module: no VwGetRtns"}},
        // One past the ends of the ranges.
        {Quoted({"--type", "65536", two}), "", 2, {"kzdump: bad number for --type: '65536' (0 to 65535) (see kzdump --help)"}},
        {Quoted({"-j", "257", two}), "", 2, {"kzdump: bad number for -j: '257' (1 to 256) (see kzdump --help)"}},
        {Quoted({"--stop-every", "4294967296", two}), "", 2,
         {"kzdump: bad number for --stop-every: '4294967296' (1 or more) (see kzdump --help)"}},
    };
    // Bad usage: status 2, no output and one line of error.
    for (const Strings& args : std::vector<Strings>{
             {"--frobnicate", two}, {"-j", "0", two}, {"-j", "x", two}, {"-j"}, {"--stop-every", "0", two},
             {"--stop-every", "-1", two}, {"--type", "12a", two}, {}, {"--json", "--trace", two}, {"--codes", two},
             {"--json=1", two}, {"-rx", two}, {"--csv", "--json", two}, {"--block-limit", "0", two},
             {"--block-limit", "4G", two}, {"--filter", "", two}}) {
        cases.push_back({Quoted(args), "", 2, {"kzdump: *"}});
    }
    // The host guide's example files give the fields it says the host
    // receives.
    const auto examples = TableRows(KZ_DOCS_DIR "/host-guide.md", "| Tag content | The host receives |");
    EXPECT_GE(examples.size(), 12u);
    for (size_t n = 0; n < examples.size(); ++n) {
        const std::string file = dir.Write("guide" + std::to_string(n) + ".mp3", FileFrom(Spans(examples[n][0]).at(0)));
        std::string out = file + kTagOnly + "\n";
        for (const std::string& field : Spans(examples[n][1])) out += "  " + field + "\n";
        cases.push_back({Quoted({file}), out});
    }
    Check(dir.path.string(), cases);
}

// Output that cannot be written: status 4, the reason, and nothing more
// read; a closed pipe ends quietly.
TEST(Kzdump, WriteErrorsAndClosedPipes) {
    const std::string sample = Sample("two_tags.mp3");
    for (const Strings& args : {Strings{sample, sample}, Strings{"--json", sample}, Strings{"--trace", sample},
                                Strings{"--version"}, Strings{"--help"}}) {
        const RunResult full = Shell(Quoted(Strings{KZDUMP_PATH} + args) + " >/dev/full");
        EXPECT_EQ(full.status, 4) << Quoted(args);
        EXPECT_EQ(full.err, "kzdump: write error: No space left on device\n") << Quoted(args);
    }
    const RunResult piped = Shell(Quoted(Strings{KZDUMP_PATH} + Strings(2000, sample)) + " | head -c 1");
    EXPECT_EQ(piped.out + piped.err, sample.substr(0, 1));
}

// The progress line, once half a second has passed: drawn with \r and
// cleared at the end; by default only when stderr is a terminal (script
// makes one) and stdout is not, and not with -q.  With a total known before
// the run (path lists that are regular files, and "-"), the line has it.
TEST(Kzdump, DrawsTheProgressLineWhereItShould) {
    const std::string sample = Sample("two_tags.mp3");
    const struct {
        Strings args;
        bool terminal, drawn;
    } cases[] = {
        {{"--progress"}, false, true}, {{}, false, false}, {{}, true, true},
        {{"-q"}, true, false}, {{"--progress", "--no-progress"}, true, false},
    };
    for (const auto& c : cases) {
        const std::string command = "(echo" + Quoted({sample}) + "; sleep 0.8; echo" + Quoted({sample}) + ") |" +
                                    Quoted(Strings{KZDUMP_PATH, "-@", "-"} + c.args) + " >/dev/null";
        const RunResult run = Shell(c.terminal ? "script -qec" + Quoted({command}) + " /dev/null" : command);
        const std::string& err = c.terminal ? run.out : run.err;
        EXPECT_EQ(run.status, 0) << Quoted(c.args) << c.terminal;
        // After "\r2 files, ", the rate, which depends on the clock.
        const std::string rate = err.size() > 10 ? err.substr(10, err.find(' ', 10) - 10) : "";
        const std::string line = "2 files, " + rate + " files/s, 2.7 kB, 0 errors";
        EXPECT_EQ(err, c.drawn ? "\r" + line + "\r" + std::string(line.size(), ' ') + "\r" : "")
            << Quoted(c.args) << c.terminal;
        EXPECT_EQ(rate.find_first_not_of("0123456789"), std::string::npos) << rate;
    }
    // 3 paths in the list (the first of one letter), blank lines between and
    // after them, and "-".
    TempDir dir;
    dir.Write("a.mp3", Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    dir.Write("x", Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    dir.Write("list", "x\n\na.mp3\n\n\na.mp3\n\n");
    const RunResult run = Shell("cd" + Quoted({dir.path.string()}) + " && (sleep 0.7; cat a.mp3) |" +
                              Quoted({KZDUMP_PATH, "--progress", "-@", "list", "-"}) + " >/dev/null");
    const std::string line = run.err.substr(std::min<size_t>(1, run.err.size()), run.err.find('\r', 1) - 1);
    EXPECT_TRUE(Matches(line, "4 of 4 files (100%), * files/s, 88 B, 0 errors, 0:00:00 left")) << run.err;
}

// The line's text: sizes in decimal units as du --si shows them, the time
// left at the mean rate so far.
TEST(Kzdump, WritesTheProgressText) {
    const struct {
        size_t done, total;
        uint64_t bytes;
        size_t errors;
        double seconds;
        const char* text;
    } cases[] = {
        {0, 0, 999, 0, 0, "0 files, 0 files/s, 999 B, 0 errors"},
        {3, 0, 1000, 1, 2, "3 files, 2 files/s, 1.0 kB, 1 error"},
        {1, 4, 500'000'000, 2, 61, "1 of 4 files (25%), 0 files/s, 500.0 MB, 2 errors, 0:03:03 left"},
        {3600, 7200, 2'500'000'000'000'000'000u, 0, 3600, "3600 of 7200 files (50%), 1 files/s, 2.5 EB, 0 errors, 1:00:00 left"},
        {5, 4, 999'960, 0, 1, "5 of 4 files (125%), 5 files/s, 1.0 MB, 0 errors"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(kzdump::ProgressText(c.done, c.total, c.bytes, c.errors, c.seconds), c.text) << c.text;
}

// ---- Nothing skipped in silence, every input checked -----------------------------

// A walk names each directory it cannot read where it stands, goes on, and
// ends with status 3.  Root reads a directory of mode 000 by its
// capabilities, so a run as root is made without them.
TEST(Kzdump, WalksReportEveryDirectoryTheyCannotRead) {
    TempDir dir;
    const Bytes tagged = Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'})));
    dir.Write("t/b/x.mp3", tagged);
    dir.Write("t/z.mp3", tagged);
    dir.Write("after.mp3", tagged);
    fs::create_directories(dir.path / "t/a_locked");
    fs::create_directories(dir.path / "empty/sub");
    dir.Write("empty/notes.txt", "text");
    fs::permissions(dir.path / "t/a_locked", fs::perms::none);
    const std::string locked = "kzdump: t/a_locked: cannot read the directory: Permission denied";
    Check(dir.path.string(),
          {
              {"-r t after.mp3", TitleX("t/b/x.mp3") + TitleX("t/z.mp3") + TitleX("after.mp3"), 3, {locked}},
              {"--stats -r --json t",
               "{\"path\":\"t/a_locked\",\"error\":\"cannot read the directory: Permission denied\"}\n"
               "{\"path\":\"t/b/x.mp3\",\"status\":0,\"type\":\"ID3 Ver 2.x\",\"fields\":[{\"tag\":1,\"field\":118,"
               "\"id\":\"TIT2\",\"text\":\"x\",\"strings\":[]}],\"end\":true}\n"
               "{\"path\":\"t/z.mp3\",\"status\":0,\"type\":\"ID3 Ver 2.x\",\"fields\":[{\"tag\":1,\"field\":118,"
               "\"id\":\"TIT2\",\"text\":\"x\",\"strings\":[]}],\"end\":true}\n",
               3, {locked, "kzdump: 3 files, 2 tagged, 1 not read, 2 fields, * s"}},
              {"--stats -r --ext mp3 empty", "", 0,
               {"kzdump: empty: no file found in the walk", "kzdump: 0 files, 0 tagged, 0 not read, 0 fields, * s"}},
              {"-r --exclude b --exclude 'a_*' --exclude '*.txt' t empty", TitleX("t/z.mp3"), 0},
          },
          ::geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search" : "");
    fs::permissions(dir.path / "t/a_locked", fs::perms::owner_all);
}

// Paths from lists (one a line, or NUL-separated) with any bytes; lists must
// be regular files or pipes, read to their end; standard input is one file
// ("-") held in memory up to a limit, and read once; directories walked in
// sorted order (byte by byte, directories entered in that order too) and
// filtered by extension; short options combined.
TEST(Kzdump, ChecksPathListsWalksAndStandardInput) {
    TempDir dir;
    const std::string odd = "new\nline\xFF.mp3";
    for (const std::string& name : Strings{"a.mp3", "B.mp3", "sub/b.mp3", "c.txt", "d.mpa", odd})
        dir.Write(name, Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    dir.Write("list", "a.mp3\n");
    dir.Write("lines", "c.txt\n\na.mp3\n");
    dir.Write("nul", odd + '\0' + "c.txt");
    dir.Write("notes.txt", "hello\n");
    fs::create_directory(dir.path / "folder");
    const std::string a = TitleX("a.mp3"), shownOdd = "new\\x0Aline\\xFF.mp3";
    Check(dir.path.string(),
          {
              {"-rqj3 --ext=MP3,.mp2,MPA .",
               TitleX("./B.mp3") + TitleX("./a.mp3") + TitleX("./d.mpa") + TitleX("./" + shownOdd) + TitleX("./sub/b.mp3")},
              {"-rj2 -- sub -r", TitleX("sub/b.mp3"), 3, {"kzdump: -r: No such file or directory"}},
              {"a.mp3 -0@ nul", a + TitleX(shownOdd) + TitleX("c.txt")},
              {"-j 3 -@ lines c.txt -@ lines", TitleX("c.txt") + a + TitleX("c.txt") + TitleX("c.txt") + a},
              {"-@ folder a.mp3", "", 2, {"kzdump: cannot read the path list folder: Is a directory"}},
              {"-@ ''", "", 2, {"kzdump: --files-from needs a file ('-' for standard input) (see kzdump --help)"}},
              {"-@ missing", "", 2, {"kzdump: cannot read the path list missing: No such file or directory"}},
              {"-@ /dev/null", "", 2, {"kzdump: cannot read the path list /dev/null: not a regular file or a pipe"}},
              {"-0 -@ /proc/self/mem a.mp3", a, 3, {"kzdump: /proc/self/mem: cannot read the path list: Input/output error"}},
              {"--json -0 -@ /proc/self/mem",
               "{\"path\":\"/proc/self/mem\",\"error\":\"cannot read the path list: Input/output error\"}\n", 3,
               {"kzdump: /proc/self/mem: cannot read the path list: Input/output error"}},
              {"-@ - < list", a, 0},
              // Standard input closed: the file and the list opened take
              // descriptor 0.
              {"a.mp3 <&-", a, 0},
              {"-@ list <&-", a, 0},
              {"-@ - < folder", "", 2, {"kzdump: cannot read the path list -: Is a directory"}},
              {"- < a.mp3", TitleX("-"), 0},
              {"--stdin-limit 22 - < a.mp3", TitleX("-"), 0},
              {"--stdin-limit 21 - < a.mp3", "", 3, {"kzdump: -: standard input holds more than 21 bytes (see --stdin-limit)"}},
              {"--stdin-limit 1K --trace - < notes.txt", "# -\n# VwStreamOpen = 51, type \"MPEG-1 audio - Layer 3\"\n", 1,
               {"kzdump: -: nothing to read: the file holds no tag the module reads"}},
              {"- -@ - < a.mp3", "", 2, {"kzdump: standard input can be read only once ('-' and '-@ -') *"}},
              {"- - < a.mp3", "", 2, {"kzdump: standard input can be read only once *"}},
              {"--stdin-limit 4G - < a.mp3", "", 2, {"kzdump: bad number for --stdin-limit: '4G' *"}},
              {"--stdin-limit 0 - < a.mp3", "", 2, {"kzdump: bad number for --stdin-limit: '0' *"}},
              // No MPEG audio frame: the header line says so, and the
              // module still gets the type detection chose.
              {"notes.txt", "notes.txt: MPEG-1 audio - Layer 3 (no MPEG audio frame): no tags\n", 1,
               {"kzdump: notes.txt: nothing to read: *"}},
              {"--type 1710 -q notes.txt", "notes.txt: MPEG-1 audio - Layer 3: no tags\n", 1},
          });
}

// --fields: names in any case, spaces around them ignored, every name
// checked; --ext entries in three spellings, every entry checked.
TEST(Kzdump, ChecksFieldNamesAndExtensions) {
    TempDir dir;
    dir.Write("a.MP3", Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    dir.Write("b.MpA", Tag(3, Frame(3, "TIT2", Raw({0x00, 'y'}))));
    dir.Write("c.flac", Tag(3, Frame(3, "TIT2", Raw({0x00, 'z'}))));
    const std::string v23 = Sample("v23_utf16.mp3"), people = Sample("v23_people_lyrics.mp3"), v24 = Sample("v24_with_id3v1.mp3");
    std::vector<Case> cases = {
        {"--csv --fields ' tit2 ,TT2,id3v1:TITLE,ID3V1 artist, txxx:mood,WXXX:homepage,wxx,ipls, 118 ,624'" +
             Quoted({v23, people, v24}),
         "path,type,TIT2,TT2,ID3v1:title,ID3v1:artist,TXXX:mood,WXXX:homepage,WXX,IPLS,118,624\r\n" + v23 +
             ",\"MPEG-1 audio - Layer 3, ID3v2.x\",Caf\u00E9 \u00DCn\u00EFcode,Caf\u00E9 \u00DCn\u00EFcode,,,calm,"
             "http://example.com/,calm\\|http://example.com/,,Caf\u00E9 \u00DCn\u00EFcode,\r\n" +
             people + ",\"MPEG-1 audio - Layer 3, ID3v2.x\",Credits,Credits,,,,,,producer Ann mixer Bob ,Credits,\r\n" + v24 +
             ",\"MPEG-1 audio - Layer 3, ID3v2.x\",Evening Song,Evening Song,Evening Song,The Testers,,,,,"
             "Evening Song\\|Evening Song,\r\n"},
        {"--fields 'txxx:TEMPO,TXXX:TEMPX' " + Quoted({v23}), v23 + kType + "\n  TXXX \"TEMPO\": andante\n"},
        {"-r --ext ' MP3, *.mpa ,.Mp2' .", "./a.MP3" + kTagOnly + "\n  TIT2: x\n./b.MpA" + kTagOnly + "\n  TIT2: y\n"},
    };
    const std::string listed = Kzdump({"--list-fields"}).out;
    for (const std::string line : {"  118  TIT2  TT2  Title\n", "   78  APIC       Attached picture\n",
                                   "  IPLS  IPL  ", "  TXXX  TXX  ", "  500 and up: user-defined fields by number (500 + the frame's number)\n", " ID3v1:title ID3v1:artist ID3v1:album ID3v1:year "
                                   "ID3v1:comment ID3v1:track ID3v1:genre\n"})
        EXPECT_NE(listed.find(line), std::string::npos) << line;
    for (const std::string bad : {"XXXX", "99999999999", "ID3v1:bogus", "TIT2:x", "88", "162", "0", "499", "IPLS:x", "tit"}) {
        cases.push_back({"--fields 'talb, TIT2 ," + bad + ",TPE1' a.MP3", "", 2,
                         {"kzdump: --fields: unknown field '" + bad + "' (kzdump --list-fields lists them)"}});
    }
    for (const std::string empty : {"", "TIT2,", ",TIT2", "TIT2, ,TPE1", ","})
        cases.push_back({"--fields '" + empty + "' a.MP3", "", 2, {"kzdump: --fields has an empty name (see kzdump --help)"}});
    for (const std::string bad : {"", "mp3,", "*.", ".", "a.b", "m*", "mp 3", "x/y", "[m]", ","})
        cases.push_back({"-r --ext '" + bad + "' .", "", 2, {"kzdump: --ext: bad extension '*' (as mp3, .mp3 or *.mp3) *"}});
    cases.push_back({"-r --exclude '' .", "", 2, {"kzdump: --exclude needs a pattern (see kzdump --help)"}});
    Check(dir.path.string(), cases);
}

// CSV and TSV: one escape rule for every cell, so that joined values, NULs
// (a single-byte TXXX value keeps its terminator) and paths that are not
// UTF-8 all come back exactly; the text output escapes paths as values.
// The TXXX frame is the fourth: its field and tag number is 500 + 4.  JSON
// gives the raw codes (a line break as -5) and the genre named; the trace
// every call the module makes, in the host guide's notation.
TEST(Kzdump, TablesTextAndTracesKeepEveryValueAndPathApart) {
    TempDir dir;
    const Bytes tag = Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("A")) + Frame(3, "TIT2", Raw({0}) + Latin1("B; C")) +
                                 Frame(3, "TIT2", Raw({0}) + Latin1("D\\|E\tF")) +
                                 Frame(3, "TXXX", Raw({0}) + Latin1("gain") + Raw({0}) + Latin1("-1.80 dB") + Raw({0})));
    dir.Write("odd\xFF,.mp3", tag);
    dir.Write("\xFFx.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 'f'}))));
    // U+110000 and an overlong NUL, in the forms of UTF-8: no UTF-8.
    dir.Write("\xF4\x90\x80\x80\xE0\x80\x80.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 'g'}))));
    dir.Write("a\nb.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 'n'}))));
    dir.Write("a\\x0Ab.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 'l'}))));
    // U+DFFF and U+D800 written as UTF-8 (surrogates, so no UTF-8), then
    // U+D7FF and U+07FF.
    dir.Write("s\xED\xBF\xBF\xED\xA0\x80\xED\x9F\xBF\xDF\xBF.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 's'}))));
    // Quotes, a line feed and a tab; the ID3v1 genre 13, named in tables too.
    dir.Write("q.mp3", Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("a,\"b\"\n\tc"))) + Id3v1({.genre = 13}));
    dir.Write("t.mp3", Tag(3, Frame(3, "TIT2", Raw({1, 0xFF, 0xFE, 'A', 0, '\n', 0})) + Frame(3, "TCON", Raw({0}) + Latin1("(13)"))));
    const std::string type = "ID3 Ver 2.x";
    Check(dir.path.string(),
          {
              {"--csv --fields TIT2,TXXX:GAIN odd*",
               "path,type,TIT2,TXXX:GAIN\r\n\"odd\\xFF,.mp3\"," + type + ",A\\|B; C\\|D\\\\|E\tF,-1.80 dB\\0\r\n"},
              {"--tsv --fields TIT2,TXXX:GAIN odd*",
               "path\ttype\tTIT2\tTXXX:GAIN\nodd\\xFF,.mp3\t" + type + "\tA\\|B; C\\|D\\\\|E\\tF\t-1.80 dB\\0\n"},
              {"--csv --fields TIT2,ID3v1:genre q.mp3",
               "path,type,TIT2,ID3v1:genre\r\nq.mp3," + type + ",\"a,\"\"b\"\"\n\tc\",13 (Pop)\r\n"},
              {"--tsv --fields TIT2,ID3v1:genre q.mp3",
               "path\ttype\tTIT2\tID3v1:genre\nq.mp3\t" + type + "\ta,\"b\"\\n\\tc\t13 (Pop)\n"},
              {"--json --fields txxx odd*",
               "{\"path\":\"odd\uFFFD,.mp3\",\"path_base64\":\"b2Rk/ywubXAz\",\"status\":0,\"type\":\"" + type +
                   "\",\"fields\":[{\"tag\":504,\"field\":504,\"id\":\"TXXX/WXXX\",\"description\":\"gain\","
                   "\"text\":\"-1.80 dB\\u0000\",\"strings\":[{\"tag\":504,\"text\":\"gain\"}]}],\"end\":true}\n"},
              {"--json" + Quoted({"\xFFx.mp3"}),
               "{\"path\":\"\uFFFDx.mp3\",\"path_base64\":\"/3gubXAz\",\"status\":0,\"type\":\"" + type +
                   "\",\"fields\":[{\"tag\":1,\"field\":118,\"id\":\"TIT2\",\"text\":\"f\",\"strings\":[]}],"
                   "\"end\":true}\n"},
              {"--json" + Quoted({"\xF4\x90\x80\x80\xE0\x80\x80.mp3"}),
               "{\"path\":\"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD.mp3\",\"path_base64\":\"9JCAgOCAgC5tcDM=\",\"status\":0,\"type\":\"" + type +
                   "\",\"fields\":[{\"tag\":1,\"field\":118,\"id\":\"TIT2\",\"text\":\"g\",\"strings\":[]}],"
                   "\"end\":true}\n"},
              {"a*", "a\\x0Ab.mp3" + kTagOnly + "\n  TIT2: n\na\\\\x0Ab.mp3" + kTagOnly + "\n  TIT2: l\n"},
              {"s*", "s\\xED\\xBF\\xBF\\xED\\xA0\\x80\xED\x9F\xBF\xDF\xBF.mp3" + kTagOnly + "\n  TIT2: s\n"},
              {"missing\\\\x0A 'new\nline'", "", 3,
               {"kzdump: missing\\\\x0A: No such file or directory", "kzdump: new\\x0Aline: No such file or directory"}},
              {"--json --codes t.mp3",
               "{\"path\":\"t.mp3\",\"status\":0,\"type\":\"" + type + "\",\"fields\":[{\"tag\":1,\"field\":118,\"id\":\"TIT2\","
               "\"text\":\"A\\n\",\"codes\":[65,-5],\"strings\":[]},{\"tag\":2,\"field\":108,\"id\":\"TCON\",\"text\":\"(13)\","
               "\"codes\":[40,49,51,41],\"genre\":\"13 (Pop)\",\"strings\":[]}],\"end\":true}\n"},
              {"--trace t.mp3",
               "# t.mp3\n# VwStreamOpen = 0, type \"ID3 Ver 2.x\"\nSOStartSection(9, 0, 0)\nSOSetCharSet(0x00080101)\n"
               "SOSetSectionFlags(0x8000)\nSOBeginTag(0xA0010004, 1, {118})\nSOSetCharSet(0x14B00000)\nSOOutChar(0x0041)\n"
               "SOOutSpecial(5)\nSOSetCharSet(0x00080101)\nSOEndTag(0xA0010004, 1)\nSOOutBreak(11, 0) = 0\n"
               "SOBeginTag(0xA0010004, 2, {108})\nSOOutChar(0x0028)\nSOOutChar(0x0031)\nSOOutChar(0x0033)\nSOOutChar(0x0029)\n"
               "SOEndTag(0xA0010004, 2)\nSOOutBreak(11, 0) = 0\nSOOutBreak(2, 0) = 0\n"},
          });
}

// SIGINT and SIGTERM: the file being read is finished and written whole,
// no other is begun, the progress line is cleared, and kzdump ends by the
// signal.  The path list stays open, so kzdump waits on it when the signal
// comes.
TEST(Kzdump, StopsBetweenFilesOnSigintAndSigterm) {
    TempDir dir;
    dir.Write("a.mp3", Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    for (const std::string signal : {"INT", "TERM"}) {
        const RunResult run = Shell(
            "cd" + Quoted({dir.path.string()}) +
            " && { { sh -c 'echo $$ > writer; echo a.mp3; sleep 0.7; echo a.mp3; exec sleep 5' | " + Quoted({KZDUMP_PATH}) +
            " --progress -@ - 2>progress & sleep 1.2; kill -" + signal +
            " $!; kill $(cat writer); wait $!; echo status $?; } 2>/dev/null; cat progress >&2; }");
        EXPECT_EQ(run.out, TitleX("a.mp3") + TitleX("a.mp3") + "status " + (signal == "INT" ? "130" : "143") + "\n") << signal;
        const std::string line = run.err.substr(std::min<size_t>(1, run.err.size()), run.err.find('\r', 1) - 1);
        EXPECT_TRUE(Matches(line, "2 files, * files/s, 44 B, 0 errors")) << run.err;
        EXPECT_EQ(run.err, "\r" + line + "\r" + std::string(line.size(), ' ') + "\r") << signal;
    }
}

// ---- Equal outputs -------------------------------------------------------------------

// Valid UTF-8 with no control character but the line feed, C1 included.
const char* const kPrintable = R"(import sys
text = sys.stdin.buffer.read().decode('utf-8')
print(repr([c for c in text if (c < ' ' and c != '\n') or '\x7f' <= c <= '\x9f'][:5]))
)";

// Every file three times, so that workers overtake one another.  Every body
// of these files is read or skipped whole, so stopping at frame breaks (and
// saving and restoring the state) changes nothing; the trace shows the stops
// and is left out there.  "-r" changes nothing for plain files: it stands
// for the text output.
TEST(Kzdump, SameOutputTwiceWithWorkerThreadsAndWithStopsAndOnlyPrintableText) {
    const Strings once = SampleAndCorpusFiles();
    ASSERT_FALSE(once.empty());
    const Strings files = once + once + once;
    for (const std::string mode : {"-r", "--json", "--trace"}) {
        const RunResult single = Kzdump(Strings{mode, "-j", "1"} + files);
        EXPECT_TRUE(single.status == 0 || single.status == 1) << mode << single.err;
        EXPECT_EQ(Python(kPrintable, single.out), "[]\n") << mode;
        for (const Strings& more : {Strings{"-j", "1"}, Strings{"-j", "2"}, Strings{"-j", "4"},
                                    Strings{"--stop-every", "1"}, Strings{"--stop-every", "2"},
                                    Strings{"--stop-every", "3"}}) {
            if (mode == "--trace" && more[0] != "-j") continue;
            const RunResult run = Kzdump(Strings{mode} + more + files);
            EXPECT_EQ(run.out, single.out) << mode << Quoted(more);
            EXPECT_EQ(run.err, single.err) << mode << Quoted(more);
            EXPECT_EQ(run.status, single.status) << mode << Quoted(more);
        }
    }
}

// ---- Documents ------------------------------------------------------------------------

// The man page's options (the bold words of each .TP term in OPTIONS) are
// those of kzdump's getopt_long table, and man renders each of them without
// a warning; --help fits on a screen, sends the reader to the man page, and
// its options, numbers and exit statuses are the man page's; the host
// guide's field table is KzFieldIdent and KzFieldLabel, with the
// identifiers the module dispatches for each number; every C excerpt of the
// README's and the guide's is a verbatim part of the example host.
TEST(Documents, ManPageFieldTableAndCodeExcerptsMatchTheirSources) {
    std::set<std::string> known = {"--"}, page;
    for (const option* o = kzdump::LongOptions(); o->name != nullptr; ++o) known.insert(std::string("--") + o->name);
    for (const char* c = kzdump::ShortOptions(); *c != '\0'; ++c)
        if (*c != '-' && *c != ':') known.insert(std::string("-") + *c);
    std::string section, previous;
    for (std::string line : Lines(ReadWhole(KZ_DOCS_DIR "/kzdump.1"))) {
        if (line.starts_with(".SH ")) section = line.substr(4);
        for (size_t at; previous == ".TP" && section == "OPTIONS" && (at = line.find("\\-")) != std::string::npos;)
            line.erase(at, 1);
        for (size_t at = 0; previous == ".TP" && section == "OPTIONS" && (at = line.find("\\fB", at)) != std::string::npos;
             at = line.find("\\fR", at))
            page.insert(line.substr(at + 3, line.find("\\fR", at) - at - 3));
        previous = line;
    }
    EXPECT_TRUE(known.contains("-j") && known.contains("--jobs") && known.contains("--files-from")) << known.size();
    EXPECT_EQ(page, known);
    const RunResult man = Shell("LC_ALL=C MANWIDTH=100 man --warnings -P cat -l " KZ_DOCS_DIR "/kzdump.1");
    EXPECT_EQ(man.status, 0);
    EXPECT_EQ(man.err, "");
    for (const std::string& name : known) EXPECT_NE(man.out.find(" " + name), std::string::npos) << name;
    const std::string help = Kzdump({"--help"}).out;
    EXPECT_LE(Lines(help).size(), 40u);
    EXPECT_NE(help.find("man kzdump"), std::string::npos);
    std::istringstream words(help);
    for (std::string word; words >> word;) {
        const std::string bare = word.substr(0, word.find_first_of(",):"));
        EXPECT_TRUE(!bare.starts_with('-') || bare.size() == 1 || bare == "-print0" || known.contains(bare)) << bare;
        for (size_t at = word.find_first_of("0123456789"), end; at != std::string::npos; at = word.find_first_of("0123456789", end)) {
            end = word.find_first_not_of("0123456789", at);
            EXPECT_NE(man.out.find(word.substr(at, end - at)), std::string::npos) << word;
        }
    }
    // "Exit status: 0 all read, 1 ..., 4 ...": the first word after the colon
    // and after each comma, and each status of the man page's EXIT STATUS.
    const size_t exits = help.find("Exit status:") + 12, exitSection = man.out.find("EXIT STATUS");
    std::istringstream sentence(help.substr(exits, help.find('.', exits) - exits));
    std::string statuses, pageStatuses;
    for (std::string part; std::getline(sentence, part, ',');) statuses += part.substr(part.find_first_not_of(" \n"), 1);
    for (const char status : std::string("0123456789"))
        if (man.out.find("\n       " + std::string(1, status) + "  ", exitSection) != std::string::npos) pageStatuses += status;
    EXPECT_EQ(statuses, "01234");
    EXPECT_EQ(pageStatuses, "01234");

    const std::vector<Strings> table = TableRows(KZ_DOCS_DIR "/host-guide.md", "| Field | Identifier |");
    size_t row = 0;
    for (uint32_t number = 0; number <= KZ_FIELD_USER_DEFINED_BASE; ++number) {
        if (KzFieldIdent(number) == nullptr) continue;
        ASSERT_LT(row, table.size()) << number;
        const Strings& cells = table[row++];
        EXPECT_EQ(cells[0] + cells[1] + cells[2], std::to_string(number) + "`" + KzFieldIdent(number) + "`" + KzFieldLabel(number));
        for (const std::string& id : Spans(cells[1] + cells[3]))
            EXPECT_EQ(kz::FieldNumberOf(id.size() == 3 ? id[0] << 16 | id[1] << 8 | id[2]
                                                       : id[0] << 24 | id[1] << 16 | id[2] << 8 | id[3]), number) << id;
    }
    EXPECT_EQ(row, table.size());

    const std::string example = ReadWhole(KZ_DOCS_DIR "/../examples/minimal_host.c");
    int excerpts = 0;
    for (const std::string& text : {ReadWhole(KZ_DOCS_DIR "/../README.md"), ReadWhole(KZ_DOCS_DIR "/host-guide.md")}) {
        for (size_t at = text.find("```c\n"); at != std::string::npos; at = text.find("```c\n", at + 1), ++excerpts)
            EXPECT_NE(example.find(text.substr(at + 5, text.find("```", at + 5) - at - 5)), std::string::npos) << at;
    }
    EXPECT_GE(excerpts, 5);
}

// The module comes from --filter, else KZ_ID3_MODULE, else the module
// directory found from kzdump's own location, also in a tree moved
// elsewhere; --version names it.
TEST(Kzdump, VersionNamesTheModuleFoundInTheSearchOrder) {
    TempDir moved;
    fs::create_directories(moved.path / "bin");
    fs::copy(KZDUMP_PATH, moved.path / "bin");
    fs::copy(KZ_HOST_LIBRARY_DIR, moved.path / "lib", fs::copy_options::recursive);
    const std::string built = fs::weakly_canonical(KZ_MODULE_PATH).string();
    const std::string missing = "/nonexistent/libkz_id3.so";
    const struct {
        std::string command;
        std::string module;  // empty: none loads
    } cases[] = {
        {Quoted({KZDUMP_PATH, "--version"}), built},
        {"KZ_ID3_MODULE=" + missing + Quoted({KZDUMP_PATH, "--version"}), ""},
        {"KZ_ID3_MODULE=" + missing + Quoted({KZDUMP_PATH, "--filter", KZ_MODULE_PATH, "--version"}), KZ_MODULE_PATH},
        {"KZ_ID3_MODULE=" KZ_MODULE_PATH + Quoted({KZDUMP_PATH, "--version"}), KZ_MODULE_PATH},
        {Quoted({(moved.path / "bin/kzdump").string(), "--version"}),
         fs::weakly_canonical(moved.path / "lib/kz_id3/libkz_id3.so").string()},
    };
    for (const auto& c : cases) {
        const RunResult run = Shell("env -u KZ_ID3_MODULE " + c.command);
        const std::string loaded = "module " + c.module + ": QZV_VER=8.5.4.9.1901010828\n";
        EXPECT_EQ(run.out, "kzdump (kz_id3) " KZ_ID3_VERSION_STRING "\n" + (c.module.empty() ? "" : loaded)) << c.command;
        EXPECT_EQ(run.status, c.module.empty() ? 2 : 0) << c.command;
        EXPECT_EQ(run.err, c.module.empty() ? "kzdump: " + missing + ": no such module file (named by KZ_ID3_MODULE)\n" : "")
            << c.command;
    }
}

}  // namespace

#endif  // KZDUMP_PATH
