// End-to-end tests of kzdump, the reference host: the program is run as a
// user runs it, on the samples, on the real-world corpus, on files built
// here byte by byte and on the example files of the host guide.  JSON and
// CSV are read back with python3.
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
#include "tag_builder.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;

// Header lines name the type detected: MPEG-1 Layer III audio after an ID3v2
// tag, or a tag without audio.
const std::string kType = ": MPEG-1 audio - Layer 3, ID3v2.x";
const std::string kTagOnly = ": ID3 Ver 2.x (no MPEG audio frame)";
const Strings kTwoTags = {"  TIT2: First tag", "  TPE1: Band A", "  TIT2: Second tag", "  TALB: Other album"};

RunResult Kzdump(const Strings& args) { return Run(Quoted(Strings{KZDUMP_PATH} + args)); }
std::string Sample(const std::string& name) { return std::string(KZ_SAMPLES_DIR) + "/" + name; }
Strings AllFiles() { return FilesIn(KZ_SAMPLES_DIR, ".mp3") + FilesIn(KZ_CORPUS_DIR, ""); }

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
Bytes FileFrom(const std::string& notation) {
    Bytes content;
    TagOptions tag;
    for (size_t begin = 0, end; begin != std::string::npos; begin = end == std::string::npos ? end : end + 3) {
        end = notation.find(" + ", begin);
        std::istringstream words(notation.substr(begin, end - begin));
        std::string id, word, more;
        words >> id;
        if (id == "tag") {
            words >> word >> more;
            if (word == "flags") tag.flags = static_cast<uint8_t>(std::stoul(more, nullptr, 16));
            if (word == "size") tag.declaredSize = std::stoul(more);
            continue;
        }
        Bytes body;
        std::optional<uint32_t> size;
        unsigned long flags = 0;
        while (words >> word) {
            if (word == "(size" && words >> more) size = std::stoul(more);
            else if (word == "(flags" && words >> word >> more) flags = std::stoul(word + more, nullptr, 16);
            else body.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
        }
        Bytes frame = Frame(3, id, body, size);
        frame[8] = static_cast<uint8_t>(flags >> 8);
        frame[9] = static_cast<uint8_t>(flags);
        content += frame;
    }
    return Tag(3, content, tag);
}

// What python3 prints of `expression` for each JSON line f of the output
// (x: its fields).
std::string FromJson(const RunResult& run, const std::string& expression) {
    return Python("import base64, json, sys\nfor line in sys.stdin:\n    f = json.loads(line)\n"
                  "    x = f.get('fields')\n    print(" + expression + ")\n", run.out);
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
    // are, and JSON has both.
    const std::pair<std::string, std::string> genres[] = {
        {"(13)", "13 (Pop)"}, {"191", "191 (Psybient)"}, {"(4)(RX)Eurodisco", "4 (Disco), RX (Remix) Eurodisco"},
        {"(CR)", "CR (Cover)"}, {"((13) text", "(13) text"}, {"(192)", "(192)"}, {"80", "80 (Folk)"},
        {"Pop", "Pop"},
    };
    Bytes tcon;
    Strings named, raw;
    std::string json;
    for (const auto& [value, shown] : genres) {
        tcon += Frame(3, "TCON", Raw({0}) + Latin1(value));
        raw.push_back("  TCON: " + value);
        named.push_back("  TCON: " + shown);
        json += value + " = " + shown + "\n";
    }
    const std::string genre = dir.Write("genres.mp3", Tag(3, tcon));
    // Every body of the samples and the corpus is read or skipped whole, so
    // stopping changes nothing there (the equal-output test).  In 44 bytes
    // that hold TIT2 "A", a TALB declaring 20,000 bytes and TPE1 "B", the
    // TALB body is neither: a read that goes on ends the tag at that body's
    // declared end, while a stopped read resumes where the stream stands,
    // after the TALB header, and finds TPE1.
    const std::string cut = dir.Write(
        "cut.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 'A'})) + Frame(3, "TALB", {}, 20'000) +
                              Frame(3, "TPE1", Raw({0, 'B'})), {.declaredSize = 100}));
    const std::string two = Sample("two_tags.mp3"), v1 = Sample("id3v1_only.mp3");
    const std::string v22 = Sample("v22_latin1.mp3"), v23 = Sample("v23_utf16.mp3");
    const std::string v24 = Sample("v24_with_id3v1.mp3"), people = Sample("v23_people_lyrics.mp3");
    const std::string missing = "/nonexistent/kzdump/missing.mp3";
    const std::string noModule = "/nonexistent/libkz_id3.so";
    // The host memory services library loads but is no filter module.
    const std::string services = (fs::path(KZ_MODULE_PATH).parent_path() / "libkz_sys.so").string();
    const std::string silent = dir.Write("silent.mp3", SilentMpegFrames(4));
    const std::string emptyDir = (dir.path / "empty").string();
    fs::create_directory(emptyDir);
    const struct {
        Strings args;
        Strings out;
        int status = 0;
        Strings err = {};  // one line each, matching ('*': any characters)
    } cases[] = {
        // TDRC (not one of the module's frames) is left out; the ID3v1.1
        // trailer has track 7 and genre 13.
        {{v24}, {v24 + kType, "  TIT2: Evening Song", "  TPE1: The Testers", "  TRCK: 7",
                 "  ID3v1 title: Evening Song", "  ID3v1 artist: The Testers", "  ID3v1 album: Sample Album",
                 "  ID3v1 year: 2004", "  ID3v1 comment: ID3v1.1 trailer", "  ID3v1 track: 7",
                 "  ID3v1 genre: 13 (Pop)"}},
        {{v1}, {v1 + ": MPEG-1 audio - Layer 3, ID3v1.x", "  ID3v1 title: Only Trailer", "  ID3v1 artist: Nobody",
                "  ID3v1 album:", "  ID3v1 year: 1999", "  ID3v1 comment: A comment that fills 30 bytes.",
                "  ID3v1 genre:"}},
        {{two}, Strings{two + kType} + kTwoTags},
        {{v22}, {v22 + kType, "  TIT2: Morning Song", "  TPE1: The Testers", "  TALB: Sample Album", "  TYER: 2001",
                 "  TRCK: 3/12", "  TCON: 13 (Pop) Pop", "  COMM:  Recorded live"}},
        // A line break continues the value on an indented line; a
        // single-byte description cannot tell TXXX from WXXX.
        {{v23}, {v23 + kType, "  TIT2: Caf\u00E9 \u00DCn\u00EFcode", "  TPE1: \u03A9mega \U0001D11E Band",
                 "  TALB: Gr\u00FC\u00DFe", "  COMM: note Line one", "    Line two", "  TXXX/WXXX \"MOOD\": calm",
                 "  TXXX \"TEMPO\": andante", "  WXXX \"Homepage\": http://example.com/",
                 "  APIC: image/png \\x03 cover"}},
        {{people}, {people + kType, "  TIT2: Credits", "  (outside any field): producer Ann mixer Bob ",
                    "  USLT:  first line", "    second line", "  PCNT: \\x00\\x00\\x01,"}},
        // A line-feed character continues the value too; a description
        // is quoted, its quotes and line breaks escaped.
        {{escapes}, {escapes + kTagOnly, "  TIT2: A\\x01B\\\\\\x7F", "    ", "  TPE1: x\uFFFDy\uFFFD",
                       "  TXXX/WXXX \"\\\"\\n\": v"}},
        {{large}, {large + kTagOnly, "  TIT2:"}, 0, {"kzdump: " + large + ": note: a frame declares a body larger than the file*"}},
        // Bodies up to 16 KiB go through the module's own buffer; a larger
        // one takes memory, within the limit.
        {{"--block-limit", "16K", bodied}, {bodied + kTagOnly, "  TIT2: T", "  TPE1:", "  TALB: B"}, 0,
         {"kzdump: " + bodied + ": note: a frame body larger than --block-limit was skipped*"}},
        {{"-q", "--block-limit", "20000", bodied}, {bodied + kTagOnly, "  TIT2: T", "  TPE1:", "  TALB: B"}},
        {{"--block-limit", "20001", bodied}, {bodied + kTagOnly, "  TIT2: T", "  TPE1: " + std::string(20000, 'x'), "  TALB: B"}},
        {{genre}, Strings{genre + kTagOnly} + named},
        {{"--raw", genre}, Strings{genre + kTagOnly} + raw},
        {{cut}, {cut + kTagOnly, "  TIT2: A", "  TALB:"}, 0, {"kzdump: " + cut + ": note: a frame declares a body larger than the file*"}},
        {{"--stop-every", "1", cut}, {cut + kTagOnly, "  TIT2: A", "  TALB:", "  TPE1: B"}, 0, {"kzdump: " + cut + ": note: *"}},
        {{"--type", "1708", two}, Strings{two + ": ID3 Ver 1.x"} + kTwoTags},
        {{"--type=9999", two}, Strings{two + ": type 9999"} + kTwoTags},
        {{"--filter", KZ_MODULE_PATH, two}, Strings{two + kType} + kTwoTags},
        // Nothing to read: status 1, and with -q no message.
        {{"-q", silent}, {silent + ": MPEG-1 audio - Layer 3: no tags"}, 1},
        // Files that cannot be read: status 3, one error line each, the
        // other files still read.
        {{silent, missing, two}, Strings{silent + ": MPEG-1 audio - Layer 3: no tags", two + kType} + kTwoTags, 3,
         {"kzdump: " + silent + ": *", "kzdump: " + missing + ": No such file or directory"}},
        {{emptyDir, two}, Strings{two + kType} + kTwoTags, 3, {"kzdump: " + emptyDir + ": *-r*"}},
        {{"--filter", noModule, two}, {}, 2, {"kzdump: " + noModule + ": *"}},
        {{"--filter", services, two}, {}, 2, {"kzdump: " + services + ": *VwGetRtns*"}},
    };
    const auto check = [](const Strings& args, const Strings& out, int status, const Strings& err) {
        const RunResult run = Kzdump(args);
        EXPECT_EQ(run.status, status) << Quoted(args) << run.err;
        EXPECT_EQ(Lines(run.out), out) << Quoted(args);
        EXPECT_TRUE(out.empty() || run.out.ends_with('\n')) << Quoted(args);
        const Strings lines = Lines(run.err);
        EXPECT_EQ(lines.size(), err.size()) << Quoted(args) << run.err;
        for (size_t i = 0; i < std::min(lines.size(), err.size()); ++i)
            EXPECT_TRUE(Matches(lines[i], err[i])) << Quoted(args) << lines[i] << " / " << err[i];
    };
    for (const auto& c : cases) check(c.args, c.out, c.status, c.err);
    // Bad usage: status 2, no output and one line of error.
    const Strings bad[] = {
        {"--frobnicate", two},    {"-j", "0", two},           {"-j", "x", two},
        {"-j"},                   {"--stop-every", "0", two}, {"--stop-every", "-1", two},
        {"--type", "70000", two}, {"--type", "12a", two},     {},
        {"--json", "--trace", two}, {"--codes", two}, {"--json=1", two}, {"-rx", two},
        {"--ext", ",", two},      {"--csv", "--json", two},   {"--fields", ",", two},
        {"--block-limit", "0", two}, {"--block-limit", "4G", two},
    };
    for (const Strings& args : bad) check(args, {}, 2, {"kzdump: *"});
    // The ranges of the numbers: their ends taken, one past them refused.
    check({"--type", "65535", "-j", "256", "--stop-every", "4294967295", two}, Strings{two + ": type 65535"} + kTwoTags, 0, {});
    const std::pair<Strings, std::string> ranges[] = {
        {{"--type", "65536", two}, "bad number for --type: '65536' (0 to 65535)"},
        {{"-j", "257", two}, "bad number for -j: '257' (1 to 256)"},
        {{"--stop-every", "4294967296", two}, "bad number for --stop-every: '4294967296' (1 or more)"},
    };
    for (const auto& [args, message] : ranges) check(args, {}, 2, {"kzdump: " + message + " (see kzdump --help)"});
    // The host guide's example files give the fields it says the host
    // receives.
    const auto examples = TableRows(KZ_DOCS_DIR "/host-guide.md", "| Tag content | The host receives |");
    EXPECT_GE(examples.size(), 12u);
    for (size_t n = 0; n < examples.size(); ++n) {
        const std::string file = dir.Write("guide" + std::to_string(n) + ".mp3", FileFrom(Spans(examples[n][0]).at(0)));
        Strings lines = {file + kTagOnly};
        for (const std::string& field : Spans(examples[n][1])) lines.push_back("  " + field);
        check({file}, lines, 0, {});
    }
    EXPECT_EQ(FromJson(Kzdump({"--json", genre}), "'\\n'.join(y['text'] + ' = ' + y['genre'] for y in x)"), json);
}

// Output that cannot be written: status 4, the reason, and nothing more
// read; a closed pipe ends quietly.
TEST(Kzdump, WriteErrorsAndClosedPipes) {
    const std::string sample = Sample("two_tags.mp3");
    for (const Strings& args : {Strings{sample, sample}, Strings{"--json", sample}, Strings{"--trace", sample},
                                Strings{"--version"}, Strings{"--help"}}) {
        const RunResult full = kztest::Run(Quoted(Strings{KZDUMP_PATH} + args) + " >/dev/full");
        EXPECT_EQ(full.status, 4) << Quoted(args);
        EXPECT_EQ(full.err, "kzdump: write error: No space left on device\n") << Quoted(args);
    }
    const RunResult piped = kztest::Run(Quoted(Strings{KZDUMP_PATH} + Strings(2000, sample)) + " | head -c 1");
    EXPECT_EQ(piped.out + piped.err, sample.substr(0, 1));
}

// The progress line, once half a second has passed: drawn with \r and
// cleared at the end; by default only when stderr is a terminal (script
// makes one) and stdout is not, and not with -q.
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
        const RunResult run = kztest::Run(c.terminal ? "script -qec" + Quoted({command}) + " /dev/null" : command);
        const std::string& err = c.terminal ? run.out : run.err;
        EXPECT_EQ(run.status, 0) << Quoted(c.args) << c.terminal;
        // After "\r2 files, ", the rate, which depends on the clock.
        const std::string rate = err.size() > 10 ? err.substr(10, err.find(' ', 10) - 10) : "";
        const std::string line = "2 files, " + rate + " files/s, 2.7 kB, 0 errors";
        EXPECT_EQ(err, c.drawn ? "\r" + line + "\r" + std::string(line.size(), ' ') + "\r" : "")
            << Quoted(c.args) << c.terminal;
        EXPECT_EQ(rate.find_first_not_of("0123456789"), std::string::npos) << rate;
    }
}

// With a total known before the run (a list that is a regular file, and
// "-"), the line has it: 3 paths in the list, blank lines before, between
// and after them.
TEST(Kzdump, ProgressCountsTheListedPathsBeforeTheRun) {
    TempDir dir;
    dir.Write("a.mp3", Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    dir.Write("list", "\na.mp3\n\na.mp3\n\n\na.mp3\n");
    const RunResult run = kztest::Run("cd" + Quoted({dir.path.string()}) + " && (sleep 0.7; cat a.mp3) |" +
                                      Quoted({KZDUMP_PATH, "--progress", "-@", "list", "-"}) + " >/dev/null");
    const std::string line = run.err.substr(std::min<size_t>(1, run.err.size()), run.err.find('\r', 1) - 1);
    EXPECT_TRUE(Matches(line, "4 of 4 files (100%), * files/s, 88 B, 0 errors, 0:00:00 left")) << run.err;
}

// Directories walked in sorted order (byte by byte, directories entered in
// that order too) and filtered by extension; paths from lists (one a line,
// or NUL-separated), with any bytes; short options combined.
TEST(Kzdump, WalksDirectoriesAndReadsPathLists) {
    TempDir dir;
    const Bytes tagged = Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'})));
    const std::string base = dir.path.string() + "/";
    const std::string odd = "new\nline\xFF.mp3";
    for (const std::string name : {"a.MP3", "B.mp3", "sub/b.mp3", "c.txt", "d.mpa", odd.c_str()}) dir.Write(name, tagged);
    const std::string lines = dir.Write("lines", base + "c.txt\n\n" + base + "a.MP3\n");
    const std::string nul = dir.Write("nul", base + odd + '\0' + base + "c.txt");
    const struct {
        Strings args;
        Strings headers;  // the file header lines, the directory's path left out
        int status;
    } cases[] = {
        {{"-rqj3", "--ext=MP3,.mp2,MPA", base}, {"B.mp3", "a.MP3", "d.mpa", "new\\x0Aline\\xFF.mp3", "sub/b.mp3"}, 0},
        {{"-rj2", "--", base + "sub", "-r"}, {"sub/b.mp3"}, 3},
        {{"a.MP3", "-0@", nul}, {"a.MP3", "new\\x0Aline\\xFF.mp3", "c.txt"}, 0},
        {{"-j", "3", "-@", lines, base + "c.txt"}, {"c.txt", "a.MP3", "c.txt"}, 0},
        {{"-@", base + "none", base + "c.txt"}, {}, 2},
    };
    for (const auto& c : cases) {
        const RunResult run = kztest::Run("cd " + Quoted({base}) + " &&" + Quoted(Strings{KZDUMP_PATH} + c.args));
        EXPECT_EQ(run.status, c.status) << Quoted(c.args) << run.err;
        Strings headers;
        for (std::string line : Lines(run.out)) {
            if (line.starts_with("  ")) continue;
            if (line.starts_with(base)) line.erase(0, base.size());
            headers.push_back(line.substr(0, line.size() - kTagOnly.size()));
        }
        EXPECT_EQ(headers, c.headers) << Quoted(c.args);
    }
    // JSON keeps the exact bytes of a path that is not UTF-8, beside the
    // path with U+FFFD, and only there.
    EXPECT_EQ(FromJson(Kzdump({"--json", "-0", "--files-from", nul}),
                       "f['path'].split('/')[-1].encode(), base64.b64decode(f.get('path_base64', '')).split(b'/')[-1]"),
              "b'new\\nline\\xef\\xbf\\xbd.mp3' b'new\\nline\\xff.mp3'\nb'c.txt' b''\n");
}

// CSV read back by Python's csv module; TSV escapes; --fields picks the same
// lines as the full output has, on the corpus too.
TEST(Kzdump, ChoosesFieldsForCsvTsvAndText) {
    TempDir dir;
    const std::string odd = dir.Write("odd.mp3", Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("a,\"b\"\n\tc"))));
    const Strings files = {Sample("two_tags.mp3"), Sample("v24_with_id3v1.mp3"), odd};
    const RunResult csv = Kzdump(Strings{"--csv", "--fields", "TIT2,ID3v1:genre,118"} + files);
    EXPECT_EQ(csv.status, 0) << csv.err;
    EXPECT_EQ(Python("import csv, sys\nfor row in csv.reader(sys.stdin): print(row[2:])\n", csv.out),
              "['TIT2', 'ID3v1:genre', '118']\n['First tag\\\\|Second tag', '', 'First tag\\\\|Second tag']\n"
              "['Evening Song', '13 (Pop)', 'Evening Song\\\\|Evening Song']\n['a,\"b\"\\n\\tc', '', 'a,\"b\"\\n\\tc']\n");
    EXPECT_EQ(Kzdump({"--tsv", "--fields=TIT2", odd}).out, "path\ttype\tTIT2\n" + odd + "\tID3 Ver 2.x\ta,\"b\"\\n\\tc\n");
    const Strings corpus = AllFiles();
    const auto kept = [](const std::string& text, bool all) {
        Strings lines;
        for (const std::string& line : Lines(text))
            if (!line.starts_with("    ") && (!line.starts_with("  ") || line.starts_with("  TIT2:") ||
                                              line.starts_with("  ID3v1 artist:") || all))
                lines.push_back(line);
        return lines;
    };
    const RunResult chosen = Kzdump(Strings{"--fields", "TIT2,ID3v1:artist", "--stats"} + corpus);
    EXPECT_EQ(kept(chosen.out, true), kept(Kzdump(corpus).out, false));
    EXPECT_NE(chosen.err.find("kzdump: " + std::to_string(corpus.size()) + " files, "), std::string::npos) << chosen.err;
}

// JSON: the tag and field numbers and the exact codes (a surrogate pair as
// two units, a line break as -5).
TEST(Kzdump, JsonGivesNumbersAndCodes) {
    EXPECT_EQ(FromJson(Kzdump({"--json", "--codes", Sample("v23_utf16.mp3")}),
                       "f['status'], x[1]['tag'], x[1]['field'], x[1]['id'], ' '.join(map(hex, x[1]['codes'])), "
                       "x[1]['text'], x[3]['codes'].index(-5)"),
              "0 2 132 TPE1 0x3a9 0x6d 0x65 0x67 0x61 0x20 0xd834 0xdd1e 0x20 0x42 0x61 0x6e 0x64 "
              "\u03A9mega \U0001D11E Band 13\n");
}

TEST(Kzdump, TracesEveryHostCall) {
    const std::string path = Sample("two_tags.mp3");
    const RunResult run = Kzdump({"--trace", path});
    EXPECT_EQ(run.status, 0) << run.err;
    const Strings lines = Lines(run.out);
    ASSERT_GE(lines.size(), 8u);
    EXPECT_EQ(Strings(lines.begin(), lines.begin() + 7),
              (Strings{"# " + path, "# VwStreamOpen = 0, type \"MPEG-1 audio - Layer 3, ID3v2.x\"",
                       "SOStartSection(9, 0, 0)", "SOSetCharSet(0x00080101)",
                       "SOSetSectionFlags(0x8000)", "SOBeginTag(0xA0010004, 1, {118})",
                       "SOOutChar(0x0046)"}));
    EXPECT_EQ(lines.back(), "SOOutBreak(2, 0) = 0");
}

// ---- Nothing skipped in silence, every input checked -----------------------------

// Arguments (run in the test's directory, `in` on standard input) against
// the exact output, exit status and error lines ('*': any characters).
struct Case {
    std::string command;  // shell words after kzdump
    std::string out;
    int status = 0;
    Strings err = {};
};

void CheckCases(const std::string& directory, const std::vector<Case>& cases, const std::string& prefix = "") {
    for (const Case& c : cases) {
        const RunResult run = kztest::Run("cd" + Quoted({directory}) + " && " + prefix + Quoted({KZDUMP_PATH}) + " " + c.command);
        EXPECT_EQ(run.out, c.out) << c.command;
        EXPECT_EQ(run.status, c.status) << c.command << "\n" << run.err;
        const Strings lines = Lines(run.err);
        EXPECT_EQ(lines.size(), c.err.size()) << c.command << "\n" << run.err;
        for (size_t i = 0; i < std::min(lines.size(), c.err.size()); ++i)
            EXPECT_TRUE(Matches(lines[i], c.err[i])) << c.command << "\n" << lines[i] << " / " << c.err[i];
    }
}

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
    const std::string header = kTagOnly + "\n  TIT2: x\n";
    const std::string locked = "kzdump: t/a_locked: cannot read the directory: Permission denied";
    CheckCases(dir.path.string(),
               {
                   {"-r t after.mp3", "t/b/x.mp3" + header + "t/z.mp3" + header + "after.mp3" + header, 3, {locked}},
                   {"--stats -r --json t",
                    "{\"path\":\"t/a_locked\",\"error\":\"cannot read the directory: Permission denied\"}\n"
                    "{\"path\":\"t/b/x.mp3\",\"status\":0,\"type\":\"ID3 Ver 2.x\",\"fields\":[{\"tag\":1,\"field\":118,"
                    "\"id\":\"TIT2\",\"text\":\"x\",\"strings\":[]}],\"end\":true}\n"
                    "{\"path\":\"t/z.mp3\",\"status\":0,\"type\":\"ID3 Ver 2.x\",\"fields\":[{\"tag\":1,\"field\":118,"
                    "\"id\":\"TIT2\",\"text\":\"x\",\"strings\":[]}],\"end\":true}\n",
                    3, {locked, "kzdump: 3 files, 2 tagged, 1 not read, 2 fields, * s"}},
                   {"--stats -r --ext mp3 empty", "", 0,
                    {"kzdump: empty: no file found in the walk", "kzdump: 0 files, 0 tagged, 0 not read, 0 fields, * s"}},
                   {"-r --exclude b --exclude 'a_*' --exclude '*.txt' t empty", "t/z.mp3" + header, 0},
               },
               ::geteuid() == 0 ? "setpriv --bounding-set=-dac_override,-dac_read_search" : "");
    fs::permissions(dir.path / "t/a_locked", fs::perms::owner_all);
}

// Path lists must be regular files or pipes, read to their end; standard
// input is one file ("-") held in memory up to a limit, and read once.
TEST(Kzdump, ChecksPathListsAndStandardInput) {
    TempDir dir;
    dir.Write("a.mp3", Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'}))));
    dir.Write("list", "a.mp3\n");
    dir.Write("notes.txt", "hello\n");
    fs::create_directory(dir.path / "folder");
    const std::string header = "a.mp3" + kTagOnly + "\n  TIT2: x\n";
    CheckCases(dir.path.string(),
               {
                   {"-@ folder a.mp3", "", 2, {"kzdump: cannot read the path list folder: Is a directory"}},
                   {"-@ missing", "", 2, {"kzdump: cannot read the path list missing: No such file or directory"}},
                   {"-@ /dev/null", "", 2, {"kzdump: cannot read the path list /dev/null: not a regular file or a pipe"}},
                   {"-0 -@ /proc/self/mem a.mp3", header, 3,
                    {"kzdump: /proc/self/mem: cannot read the path list: Input/output error"}},
                   {"--json -0 -@ /proc/self/mem",
                    "{\"path\":\"/proc/self/mem\",\"error\":\"cannot read the path list: Input/output error\"}\n", 3,
                    {"kzdump: /proc/self/mem: cannot read the path list: Input/output error"}},
                   {"-@ - < list", header, 0},
                   // Standard input closed: the file and the list opened
                   // take descriptor 0.
                   {"a.mp3 <&-", header, 0},
                   {"-@ list <&-", header, 0},
                   {"-@ - < folder", "", 2, {"kzdump: cannot read the path list -: Is a directory"}},
                   {"- < a.mp3", "-" + kTagOnly + "\n  TIT2: x\n", 0},
                   {"--stdin-limit 22 - < a.mp3", "-" + kTagOnly + "\n  TIT2: x\n", 0},
                   {"--stdin-limit 21 - < a.mp3", "", 3,
                    {"kzdump: -: standard input holds more than 21 bytes (see --stdin-limit)"}},
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
        {"--fields 'txxx:TEMPO' " + Quoted({v23}), v23 + kType + "\n  TXXX \"TEMPO\": andante\n"},
        {"-r --ext ' MP3, *.mpa ,.Mp2' .", "./a.MP3" + kTagOnly + "\n  TIT2: x\n./b.MpA" + kTagOnly + "\n  TIT2: y\n"},
    };
    const std::string listed = Kzdump({"--list-fields"}).out;
    for (const std::string line : {"  118  TIT2  TT2  Title\n", "   78  APIC       Attached picture\n",
                                   "  IPLS  IPL  ", "  TXXX  TXX  ", "  500 and up: user-defined fields by number (500 + the frame's number)\n", " ID3v1:title ID3v1:artist ID3v1:album ID3v1:year "
                                   "ID3v1:comment ID3v1:track ID3v1:genre\n"})
        EXPECT_NE(listed.find(line), std::string::npos) << line;
    for (const std::string bad : {"XXXX", "99999999999", "ID3v1:bogus", "TIT2:x", "88", "162", "0", "499", "IPLS:x", "tit"}) {
        cases.push_back({"--fields 'tit2, TIT2 ," + bad + ",TPE1' a.MP3", "", 2,
                         {"kzdump: --fields: unknown field '" + bad + "' (kzdump --list-fields lists them)"}});
    }
    for (const std::string empty : {"", "TIT2,", ",TIT2", "TIT2, ,TPE1"})
        cases.push_back({"--fields '" + empty + "' a.MP3", "", 2, {"kzdump: --fields has an empty name (see kzdump --help)"}});
    for (const std::string bad : {"", "mp3,", "*.", ".", "a.b", "m*", "mp 3", "x/y", "[m]"})
        cases.push_back({"-r --ext '" + bad + "' .", "", 2, {"kzdump: --ext: bad extension '*' (as mp3, .mp3 or *.mp3) *"}});
    cases.push_back({"-r --exclude '' .", "", 2, {"kzdump: --exclude needs a pattern (see kzdump --help)"}});
    CheckCases(dir.path.string(), cases);
}

// CSV and TSV: one escape rule for every cell, so that joined values, NULs
// (a single-byte TXXX value keeps its terminator) and paths that are not
// UTF-8 all come back exactly; the text output escapes paths as values.
// The TXXX frame is the fourth: its field and tag number is 500 + 4.
TEST(Kzdump, TablesAndTextKeepEveryValueAndPathApart) {
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
    // U+DFFF written as UTF-8 (a surrogate, so no UTF-8), then U+D7FF.
    dir.Write("s\xED\xBF\xBF\xED\x9F\xBF.mp3", Tag(3, Frame(3, "TIT2", Raw({0, 's'}))));
    const std::string type = "ID3 Ver 2.x";
    CheckCases(dir.path.string(),
               {
                   {"--csv --fields TIT2,TXXX:GAIN odd*",
                    "path,type,TIT2,TXXX:GAIN\r\n\"odd\\xFF,.mp3\"," + type + ",A\\|B; C\\|D\\\\|E\tF,-1.80 dB\\0\r\n"},
                   {"--tsv --fields TIT2,TXXX:GAIN odd*",
                    "path\ttype\tTIT2\tTXXX:GAIN\nodd\\xFF,.mp3\t" + type + "\tA\\|B; C\\|D\\\\|E\\tF\t-1.80 dB\\0\n"},
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
                   {"s*", "s\\xED\\xBF\\xBF\xED\x9F\xBF.mp3" + kTagOnly + "\n  TIT2: s\n"},
                   {"missing\\\\x0A 'new\nline'", "", 3,
                    {"kzdump: missing\\\\x0A: No such file or directory", "kzdump: new\\x0Aline: No such file or directory"}},
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
        const RunResult run = kztest::Run(
            "cd" + Quoted({dir.path.string()}) +
            " && { { sh -c 'echo $$ > writer; echo a.mp3; sleep 0.7; echo a.mp3; exec sleep 5' | " + Quoted({KZDUMP_PATH}) +
            " --progress -@ - 2>progress & sleep 1.2; kill -" + signal +
            " $!; kill $(cat writer); wait $!; echo status $?; } 2>/dev/null; cat progress >&2; }");
        const std::string record = "a.mp3" + kTagOnly + "\n  TIT2: x\n";
        EXPECT_EQ(run.out, record + record + "status " + (signal == "INT" ? "130" : "143") + "\n") << signal;
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
    const Strings once = AllFiles();
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
// a warning; --help fits on a screen and sends the reader to the man page;
// the host guide's field table is KzFieldIdent and KzFieldLabel, with the
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
    const RunResult man = kztest::Run("LC_ALL=C MANWIDTH=100 man --warnings -P cat -l " KZ_DOCS_DIR "/kzdump.1");
    EXPECT_EQ(man.status, 0);
    EXPECT_EQ(man.err, "");
    for (const std::string& name : known) EXPECT_NE(man.out.find(" " + name), std::string::npos) << name;
    // Every option --help names is in the table, every number it gives is
    // in the man page, and its exit statuses are the man page's.
    const RunResult help = Kzdump({"--help"});
    EXPECT_LE(Lines(help.out).size(), 40u);
    EXPECT_NE(help.out.find("man kzdump"), std::string::npos);
    std::istringstream words(help.out);
    std::set<std::string> statuses, pageStatuses;
    for (std::string word; words >> word;) {
        const std::string bare = word.substr(0, word.find_first_of(",):"));
        if (bare.starts_with('-') && bare.size() > 1 && bare != "-print0") {
            EXPECT_TRUE(known.contains(bare)) << bare;
        }
        for (size_t at = word.find_first_of("0123456789"); at != std::string::npos;
             at = word.find_first_of("0123456789", word.find_first_not_of("0123456789", at))) {
            const std::string number = word.substr(at, word.find_first_not_of("0123456789", at) - at);
            EXPECT_NE(man.out.find(number), std::string::npos) << number;
        }
    }
    // Each range "N to M" of --help is the man page's too.
    for (size_t to = help.out.find(" to "); to != std::string::npos; to = help.out.find(" to ", to + 1)) {
        const size_t from = help.out.find_last_of(" (", to - 1) + 1;
        const std::string range = help.out.substr(from, help.out.find_first_of(");", to + 4) - from);
        if (std::isdigit(static_cast<unsigned char>(range[0]))) {
            EXPECT_NE(man.out.find(range), std::string::npos) << range;
        }
    }
    // "Exit status: 0 all read, 1 ..., 4 ...": the first word after the colon
    // and after each comma.
    const size_t exits = help.out.find("Exit status:");
    std::istringstream sentence(help.out.substr(exits + 12, help.out.find('.', exits) - exits - 12));
    for (std::string part; std::getline(sentence, part, ',');) statuses.insert(part.substr(part.find_first_not_of(" \n"), 1));
    const size_t exitSection = man.out.find("EXIT STATUS");
    for (const char status : std::string("01234"))
        if (man.out.find("\n       " + std::string(1, status) + "  ", exitSection) != std::string::npos) pageStatuses.insert(std::string(1, status));
    EXPECT_EQ(pageStatuses, (std::set<std::string>{"0", "1", "2", "3", "4"}));
    EXPECT_EQ(statuses, pageStatuses);

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
// directory found from kzdump's own location; --version names it.
TEST(Kzdump, VersionNamesTheModuleFoundInTheSearchOrder) {
    const std::string built = fs::weakly_canonical(KZ_MODULE_PATH).string();
    const std::string missing = "/nonexistent/libkz_id3.so";
    const struct {
        std::string environment;
        Strings args;
        std::string module;  // empty: none loads
    } cases[] = {
        {"", {"--version"}, built},
        {"KZ_ID3_MODULE=" + missing, {"--version"}, ""},
        {"KZ_ID3_MODULE=" + missing, {"--filter", KZ_MODULE_PATH, "--version"}, KZ_MODULE_PATH},
        {"KZ_ID3_MODULE=" KZ_MODULE_PATH, {"--version"}, KZ_MODULE_PATH},
    };
    for (const auto& c : cases) {
        const RunResult run = kztest::Run("env -u KZ_ID3_MODULE " + c.environment + Quoted(Strings{KZDUMP_PATH} + c.args));
        const std::string what = c.environment + Quoted(c.args);
        const std::string loaded = "module " + c.module + ": QZV_VER=8.5.4.9.1901010828\n";
        EXPECT_EQ(run.out, "kzdump (kz_id3) " KZ_ID3_VERSION_STRING "\n" + (c.module.empty() ? "" : loaded)) << what;
        EXPECT_EQ(run.status, c.module.empty() ? 2 : 0) << what;
        EXPECT_TRUE(run.err.starts_with(c.module.empty() ? "kzdump: " + missing + ": " : "")) << what << run.err;
    }
    // A tree moved elsewhere: the kit finds the module beside itself, not in
    // the build tree.
    TempDir moved;
    fs::create_directories(moved.path / "bin");
    fs::copy(KZDUMP_PATH, moved.path / "bin");
    fs::copy(KZ_HOST_LIBRARY_DIR, moved.path / "lib", fs::copy_options::recursive);
    const RunResult run = kztest::Run("env -u KZ_ID3_MODULE" + Quoted({(moved.path / "bin/kzdump").string(), "--version"}));
    EXPECT_EQ(run.out, "kzdump (kz_id3) " KZ_ID3_VERSION_STRING "\nmodule " +
                           fs::weakly_canonical(moved.path / "lib/kz_id3/libkz_id3.so").string() +
                           ": QZV_VER=8.5.4.9.1901010828\n");
}

}  // namespace

#endif  // KZDUMP_PATH
