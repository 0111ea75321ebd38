// End-to-end tests of kzdump, the reference host: the program is run as a
// user runs it, on the samples, on the real-world corpus and on files built
// here byte by byte.  JSON output is read with python3's json module.
#ifdef KZDUMP_PATH

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kz_id3_version.h"
#include "processes.h"
#include "tag_builder.h"

namespace {

namespace fs = std::filesystem;
using namespace kztest;

// Header lines name the type detected: MPEG-1 Layer III audio after an ID3v2
// tag or before an ID3v1 trailer, or a tag without audio.
const std::string kType = ": MPEG-1 audio - Layer 3, ID3v2.x";
const std::string kTypeV1 = ": MPEG-1 audio - Layer 3, ID3v1.x";
const std::string kTagOnly = ": ID3 Ver 2.x";

RunResult Kzdump(const Strings& args) { return Run(Quoted(Strings{KZDUMP_PATH} + args)); }

Strings SampleFiles() { return FilesIn(KZ_SAMPLES_DIR, ".mp3"); }
Strings CorpusFiles() { return FilesIn(KZ_CORPUS_DIR, ""); }
std::string Sample(const std::string& name) { return std::string(KZ_SAMPLES_DIR) + "/" + name; }

Strings Lines(const std::string& text) {
    Strings lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

void ExpectSameRun(const RunResult& a, const RunResult& b, const std::string& what) {
    EXPECT_EQ(a.out, b.out) << what;
    EXPECT_EQ(a.err, b.err) << what;
    EXPECT_EQ(a.status, b.status) << what;
}

// ---- Expected output -------------------------------------------------------------

TEST(Kzdump, ShowsTheFieldsOfSamplesAndOfFilesBuiltHere) {
    TempDir dir;
    const std::string escapes = dir.Write(
        "escapes.mp3",
        kztest::Tag(3, Frame(3, "TIT2", Raw({0x00, 'A', 0x01, 'B', '\\', 0x7F, 0x0A})) +
                           // x, a high surrogate followed by y, then a lone low surrogate.
                           Frame(3, "TPE1", Raw({0x01, 0xFF, 0xFE, 'x', 0x00, 0x34, 0xD8, 'y',
                                                 0x00, 0x1E, 0xDD}))));
    using kztest::Utf16Le;
    const std::string user = dir.Write(
        "user.mp3",
        kztest::Tag(3, Frame(3, "TXXX", Raw({1}) + Utf16Le(u"Mood") + Raw({0, 0}) + Utf16Le(u"calm")) +
                           Frame(3, "WXXX", Raw({1}) + Utf16Le(u"Home") + Raw({0, 0}) + Latin1("http://h/")) +
                           Frame(3, "TXXX", Raw({0}) + Latin1("Key") + Raw({0}) + Latin1("value"))));
    const std::string people = dir.Write(
        "people.mp3", kztest::Tag(3, Frame(3, "TIT2", Raw({0, 'T'})) +
                                         Frame(3, "IPLS", Raw({0x00, 'a', 0x00, 'b', 0x00}))));
    // 100 bytes that declare a text frame of almost 2 GB, or of 50 MB (below
    // the host's default limit): kzdump refuses any block larger than the
    // file, and the field stays empty.
    const auto declaring = [&dir](const std::string& name, uint32_t size) {
        Bytes bytes = kztest::Tag(3, Frame(3, "TIT2", Raw({0, 'A'}), size), {.declaredSize = 0x0FFFFFFF});
        bytes.resize(100, 0);
        return dir.Write(name, bytes);
    };
    const std::string huge = declaring("huge.mp3", 0x7FFFFF00);
    const std::string large = declaring("large.mp3", 50'000'000);
    const struct {
        std::string path;
        std::string type;
        bool whole;  // false: the lines after the header start with these
        Strings lines;
    } cases[] = {
        // TIT2, TPE1, TRCK, a TDRC frame (not one the module reads), audio,
        // and an ID3v1.1 trailer with track 7 and genre 13.
        {Sample("v24_with_id3v1.mp3"), kType, true,
         {"  TIT2: Evening Song", "  TPE1: The Testers", "  TRCK: 7", "  ID3v1 title: Evening Song",
          "  ID3v1 artist: The Testers", "  ID3v1 album: Sample Album", "  ID3v1 year: 2004",
          "  ID3v1 comment: ID3v1.1 trailer", "  ID3v1 track: 7", "  ID3v1 genre: 13 (Pop)"}},
        {Sample("id3v1_only.mp3"), kTypeV1, true,
         {"  ID3v1 title: Only Trailer", "  ID3v1 artist: Nobody", "  ID3v1 album:",
          "  ID3v1 year: 1999", "  ID3v1 comment: A comment that fills 30 bytes.", "  ID3v1 genre:"}},
        {Sample("two_tags.mp3"), kType, true,
         {"  TIT2: First tag", "  TPE1: Band A", "  TIT2: Second tag", "  TALB: Other album"}},
        {Sample("v22_latin1.mp3"), kType, false,
         {"  TIT2: Morning Song", "  TPE1: The Testers", "  TALB: Sample Album", "  TYER: 2001",
          "  TRCK: 3/12", "  TCON: 13 (Pop) Pop"}},
        {Sample("v23_utf16.mp3"), kType, false,
         {"  TIT2: Caf\u00E9 \u00DCn\u00EFcode", "  TPE1: \u03A9mega \U0001D11E Band",
          "  TALB: Gr\u00FC\u00DFe"}},
        // A line feed continues the value on an indented line.
        {escapes, kTagOnly, true, {"  TIT2: A\\x01B\\\\\\x7F", "    ", "  TPE1: x\uFFFDy\uFFFD"}},
        {user, kTagOnly, true, {"  TXXX \"Mood\": calm", "  WXXX \"Home\": http://h/", "  TXXX/WXXX \"Key\": value"}},
        {people, kTagOnly, true, {"  TIT2: T", "  (outside any field): a b "}},
        {huge, kTagOnly, true, {"  TIT2:"}},
        {large, kTagOnly, true, {"  TIT2:"}},
    };
    for (const auto& c : cases) {
        const RunResult run = Kzdump({c.path});
        EXPECT_EQ(run.status, 0) << c.path << run.err;
        EXPECT_EQ(run.err, "") << c.path;
        const Strings lines = Lines(run.out);
        if (c.whole) {
            EXPECT_TRUE(run.out.ends_with('\n')) << c.path;
            EXPECT_EQ(lines, Strings{c.path + c.type} + c.lines);
        } else {
            ASSERT_GT(lines.size(), c.lines.size()) << run.out;
            EXPECT_EQ(lines[0], c.path + c.type);
            EXPECT_EQ(Strings(lines.begin() + 1, lines.begin() + 1 + c.lines.size()), c.lines);
        }
    }
}

TEST(Kzdump, ExitStatusAndMessages) {
    TempDir dir;
    const std::string sample = Sample("two_tags.mp3");
    const std::string missing = "/nonexistent/kzdump/missing.mp3";
    const std::string noModule = "/nonexistent/libkz_id3.so";
    // The host memory services library loads but is no filter module.
    const std::string services = (fs::path(KZ_MODULE_PATH).parent_path() / "libkz_sys.so").string();
    const std::string silent = dir.Write("silent.mp3", kztest::SilentMpegFrames(4));
    const std::string emptyDir = (dir.path / "empty").string();
    fs::create_directory(emptyDir);
    const struct {
        Strings args;
        int status;
        std::string outStart, outHas, errStart;  // errStart ending in a line feed: the whole of it
        Strings errHas;
    } cases[] = {
        {{silent, missing, sample}, 3, silent + ": MPEG-1 audio - Layer 3: no tags\n", "  TIT2: Second tag\n", "", {}},
        {{"--type", "1708", sample}, 0, sample + ": ID3 Ver 1.x\n", "", "", {}},
        {{"--type=9999", sample}, 0, sample + ": type 9999\n", "", "", {}},
        {{missing, sample}, 3, "", "  TIT2: First tag\n",
         "kzdump: " + missing + ": No such file or directory\n", {}},
        {{emptyDir, sample}, 3, "", "  TIT2: First tag\n", "", {emptyDir, "-r"}},
        {{"--filter", noModule, sample}, 2, "", "", "kzdump: " + noModule + ": ", {}},
        {{"--filter", services, sample}, 2, "", "", "kzdump: " + services + ": ", {"VwGetRtns"}},
        {{"--filter", KZ_MODULE_PATH, sample}, 0, "", "  TIT2: First tag\n", "", {}},
    };
    for (const auto& c : cases) {
        const RunResult run = Kzdump(c.args);
        const std::string what = Quoted(c.args);
        EXPECT_EQ(run.status, c.status) << what << run.err;
        EXPECT_TRUE(run.out.starts_with(c.outStart)) << what << run.out;
        EXPECT_NE(run.out.find(c.outHas), std::string::npos) << what << run.out;
        if (c.errStart.ends_with('\n')) {
            EXPECT_EQ(run.err, c.errStart) << what;
        }
        EXPECT_TRUE(run.err.starts_with(c.errStart)) << what << run.err;
        for (const std::string& part : c.errHas) EXPECT_NE(run.err.find(part), std::string::npos) << what << run.err;
    }
    // Output that cannot be written: status 4, the reason, and nothing more
    // read; a closed pipe ends quietly.
    for (const Strings& args : {Strings{sample, sample}, Strings{"--json", sample}, Strings{"--trace", sample},
                                Strings{"--version"}, Strings{"--help"}}) {
        const RunResult full = kztest::Run(Quoted(Strings{KZDUMP_PATH} + args) + " >/dev/full");
        EXPECT_EQ(full.status, 4) << Quoted(args);
        EXPECT_EQ(full.err, "kzdump: write error: No space left on device\n") << Quoted(args);
    }
    const RunResult piped = kztest::Run(Quoted(Strings{KZDUMP_PATH} + Strings(2000, sample)) + " | head -c 1");
    EXPECT_EQ(piped.out + piped.err, sample.substr(0, 1));
    // The progress line, once half a second has passed: drawn with \r and
    // cleared at the end; by default only when stderr is a terminal (script
    // makes one) and stdout is not, and not with -q.
    const struct {
        Strings args;
        bool terminal, drawn;
    } progress[] = {
        {{"--progress"}, false, true}, {{}, false, false}, {{}, true, true},
        {{"-q"}, true, false}, {{"--progress", "--no-progress"}, true, false},
    };
    for (const auto& c : progress) {
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
    // Bad usage: status 2, no output and one line of error.
    const Strings bad[] = {
        {"--frobnicate", sample},    {"-j", "0", sample},           {"-j", "x", sample},
        {"-j"},                      {"--stop-every", "0", sample}, {"--stop-every", "-1", sample},
        {"--type", "70000", sample}, {"--type", "12a", sample},     {},
        {"--json", "--trace", sample}, {"--codes", sample}, {"--json=1", sample}, {"-rx", sample},
        {"--ext", ",", sample},      {"--csv", "--json", sample}, {"--fields", ",", sample},
    };
    for (const Strings& args : bad) {
        const RunResult run = Kzdump(args);
        EXPECT_EQ(run.status, 2) << Quoted(args);
        EXPECT_EQ(run.out, "") << Quoted(args);
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << Quoted(args) << run.err;
    }
}

TEST(Kzdump, WalksDirectoriesInSortedOrder) {
    TempDir dir;
    const Bytes tagged = kztest::Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'})));
    for (const char* name : {"b.mp3", "sub/c.mp3", "a.mp3", "B.mp3"}) dir.Write(name, tagged);
    const RunResult run = Kzdump({"-r", dir.path.string(), "-j", "3"});
    EXPECT_EQ(run.status, 0) << run.err;
    Strings headers;
    for (const std::string& line : Lines(run.out))
        if (!line.starts_with("  ")) headers.push_back(line);
    const std::string base = dir.path.string();
    EXPECT_EQ(headers, (Strings{base + "/B.mp3" + kTagOnly, base + "/a.mp3" + kTagOnly,
                                base + "/b.mp3" + kTagOnly, base + "/sub/c.mp3" + kTagOnly}));
}

// Paths from lists (one a line, or NUL-separated), with any bytes; the walk
// filtered by extension; short options combined.
TEST(Kzdump, ReadsPathListsAndFiltersTheWalk) {
    TempDir dir;
    const Bytes tagged = kztest::Tag(3, Frame(3, "TIT2", Raw({0x00, 'x'})));
    const std::string base = dir.path.string() + "/";
    const std::string odd = "new\nline\xFF.mp3";
    for (const std::string name : {"a.MP3", "sub/b.mp3", "c.txt", odd.c_str()}) dir.Write(name, tagged);
    const std::string lines = dir.Write("lines", base + "c.txt\n\n" + base + "a.MP3\n");
    const std::string nul = dir.Write("nul", base + odd + '\0' + base + "c.txt");
    const struct {
        Strings args;
        Strings headers;  // the file header lines, the directory's path left out
        int status;
    } cases[] = {
        {{"-rq", "--ext=MP3,.mp2", base}, {"a.MP3", "new\\x0Aline\\xFF.mp3", "sub/b.mp3"}, 0},
        {{"-rj2", "--", base + "sub", "-r"}, {"sub/b.mp3"}, 3},
        {{"a.MP3", "-0@", nul}, {"a.MP3", "new\\x0Aline\\xFF.mp3", "c.txt"}, 0},
        {{"-j", "3", "-@", lines, base + "c.txt"}, {"c.txt", "a.MP3", "c.txt"}, 0},
        {{"-@", base + "none", base + "c.txt"}, {}, 2},
    };
    for (const auto& c : cases) {
        const RunResult run = ::Run("cd " + Quoted({base}) + " &&" + Quoted(Strings{KZDUMP_PATH} + c.args));
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
    const RunResult json = Kzdump({"--json", "-0", "--files-from", nul});
    EXPECT_EQ(Python(R"(import base64, json, sys
for line in sys.stdin:
    f = json.loads(line)
    print(f['path'].split('/')[-1].encode('utf-8'), base64.b64decode(f.get('path_base64', '')).split(b'/')[-1])
)", json.out), "b'new\\nline\\xef\\xbf\\xbd.mp3' b'new\\nline\\xff.mp3'\nb'c.txt' b''\n");
}

// CSV read back by Python's csv module; TSV escapes; --fields picks the same
// lines as the full output has, on the corpus too.
TEST(Kzdump, ChoosesFieldsForCsvTsvAndText) {
    TempDir dir;
    const std::string odd = dir.Write("odd.mp3", kztest::Tag(3, Frame(3, "TIT2", Raw({0}) + Latin1("a,\"b\"\n\tc"))));
    const Strings files = {Sample("two_tags.mp3"), Sample("v24_with_id3v1.mp3"), odd};
    const std::string columns = "TIT2,ID3v1:genre,118";
    const RunResult csv = Kzdump(Strings{"--csv", "--fields", columns} + files);
    EXPECT_EQ(csv.status, 0) << csv.err;
    EXPECT_EQ(Python("import csv, sys\nfor row in csv.reader(sys.stdin): print(row[2:])\n", csv.out),
              "['TIT2', 'ID3v1:genre', '118']\n['First tag; Second tag', '', 'First tag; Second tag']\n"
              "['Evening Song', '13 (Pop)', 'Evening Song; Evening Song']\n['a,\"b\"\\n\\tc', '', 'a,\"b\"\\n\\tc']\n");
    const RunResult tsv = Kzdump({"--tsv", "--fields=TIT2", odd});
    EXPECT_EQ(tsv.out, "path\ttype\tTIT2\n" + odd + "\tID3 Ver 2.x\ta,\"b\"\\n\\tc\n");
    const Strings corpus = SampleFiles() + CorpusFiles();
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

// Genre references named from the genre list; --raw shows them as they are,
// and JSON has both.
TEST(Kzdump, NamesGenres) {
    const struct {
        std::string value, shown;
    } cases[] = {
        {"(13)", "13 (Pop)"}, {"191", "191 (Psybient)"}, {"(4)(RX)Eurodisco", "4 (Disco), RX (Remix) Eurodisco"},
        {"(CR)", "CR (Cover)"}, {"((13) text", "(13) text"}, {"(192)", "(192)"}, {"80", "80 (Folk)"},
        {"Pop", "Pop"},
    };
    Bytes frames;
    Strings raw, shown, json;
    for (const auto& c : cases) {
        frames += Frame(3, "TCON", Raw({0}) + Latin1(c.value));
        raw.push_back("  TCON: " + c.value);
        shown.push_back("  TCON: " + c.shown);
        json.push_back(c.shown);
    }
    TempDir dir;
    const std::string file = dir.Write("genres.mp3", kztest::Tag(3, frames));
    EXPECT_EQ(Lines(Kzdump({file}).out), Strings{file + kTagOnly} + shown);
    EXPECT_EQ(Lines(Kzdump({"--raw", file}).out), Strings{file + kTagOnly} + raw);
    EXPECT_EQ(Lines(Python("import json, sys\nfor f in json.loads(sys.stdin.read())['fields']: print(f['genre'])\n",
                           Kzdump({"--json", file}).out)), json);
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

TEST(Kzdump, DocumentsItsOptionsAndExitStatus) {
    const RunResult run = Kzdump({"--help"});
    EXPECT_EQ(run.status, 0);
    for (const char* word : {"--json", "--codes", "--trace", "-r", "-j", "--stop-every", "--type", "--filter",
                             "Exit status", "TXXX/WXXX", "ID3v1"}) {
        EXPECT_NE(run.out.find(word), std::string::npos) << word;
    }
}

// ---- Equal outputs -------------------------------------------------------------------

// Valid UTF-8 with no control character but the line feed, C1 included.
const char* const kPrintable = R"(import sys
text = sys.stdin.buffer.read().decode('utf-8')
print(repr([c for c in text if (c < ' ' and c != '\n') or '\x7f' <= c <= '\x9f'][:5]))
)";

// Every file three times, so that workers overtake one another.  "-r"
// changes nothing for plain files: it stands for the text output.
TEST(Kzdump, SameOutputTwiceAndWithWorkerThreadsAndOnlyPrintableText) {
    const Strings once = SampleFiles() + CorpusFiles();
    ASSERT_FALSE(once.empty());
    const Strings files = once + once + once;
    for (const std::string mode : {"-r", "--json", "--trace"}) {
        const RunResult single = Kzdump(Strings{mode, "-j", "1"} + files);
        EXPECT_TRUE(single.status == 0 || single.status == 1) << mode << single.err;
        EXPECT_EQ(Python(kPrintable, single.out), "[]\n") << mode;
        ExpectSameRun(Kzdump(Strings{mode, "-j", "1"} + files), single, mode + " again");
        for (const char* jobs : {"2", "4"})
            ExpectSameRun(Kzdump(Strings{mode, "-j", jobs} + files), single, mode + " -j " + jobs);
    }
}

// Every body of the samples and the corpus is read or skipped whole, so
// stopping changes nothing there.  In 44 bytes that hold TIT2 "A", a TALB
// declaring 20,000 bytes and TPE1 "B", the TALB body is neither: a read that
// goes on ends the tag at that body's declared end, while a stopped read
// resumes where the stream stands, after the TALB header, and finds TPE1.
TEST(Kzdump, StopEveryChangesTheOutputOnlyWhereABodyIsNotReadWhole) {
    for (const std::string& file : SampleFiles() + CorpusFiles()) {
        for (const Strings& mode : {Strings{}, Strings{"--json"}}) {
            const RunResult plain = Kzdump(mode + Strings{file});
            for (const char* every : {"1", "2", "3"}) {
                const RunResult stopped = Kzdump(Strings{"--stop-every", every} + mode + Strings{file});
                EXPECT_EQ(stopped.out, plain.out) << file << " --stop-every " << every << Quoted(mode);
                EXPECT_EQ(stopped.status, plain.status) << file;
            }
        }
    }
    TempDir dir;
    const std::string cut = dir.Write(
        "cut.mp3", kztest::Tag(3, Frame(3, "TIT2", Raw({0, 'A'})) + Frame(3, "TALB", {}, 20'000) +
                                      Frame(3, "TPE1", Raw({0, 'B'})),
                               {.declaredSize = 100}));
    const Strings plain = {cut + kTagOnly, "  TIT2: A", "  TALB:"};
    EXPECT_EQ(Lines(Kzdump({cut}).out), plain);
    EXPECT_EQ(Lines(Kzdump({"--stop-every", "1", cut}).out), plain + Strings{"  TPE1: B"});
}

// ---- JSON --------------------------------------------------------------------------------

// Reads the JSON lines and checks them against the text output (argv[1]) of
// the same files (argv[2:]); prints every disagreement.
const char* const kAgreement = R"(import json, sys
files = sys.argv[2:]
lines = sys.stdin.read().splitlines()
groups = []
for line in open(sys.argv[1], encoding='utf-8', errors='surrogateescape').read().splitlines():
    if not line.startswith('  ') or not groups:
        groups.append([])
    groups[-1].append(line)
if not len(lines) == len(groups) == len(files):
    sys.exit('%d JSON lines, %d text files, %d files' % (len(lines), len(groups), len(files)))
plain = lambda s: all(' ' <= c < '\x7f' and c not in '\\"' for c in s)
for path, line, group in zip(files, lines, groups):
    def check(ok, *what):
        if not ok:
            print(path, *what)
    f = json.loads(line)
    check(f['path'] == path, 'path', f['path'])
    check(group[0].startswith(path + ': ' + f['type']), group[0])
    check((f['status'] == 51) == group[0].endswith(': no tags'), 'status', f['status'])
    # One text line per field, plus indented continuations of values that
    # hold line breaks.
    rows = [row for row in group[1:] if not row.startswith('    ')]
    if len(rows) != len(f['fields']):
        check(False, len(rows), 'text lines for', len(f['fields']), 'fields')
        continue
    for field, row in zip(f['fields'], rows):
        if 'failure' in field:
            continue
        check(all(-5 <= code <= 0xFFFF for code in field['codes']), field['codes'])
        if 'outside' in field:
            check(row.startswith('  (outside any field):'), row)
            continue
        label = '  ' + field['id']
        if 'description' in field:
            if not plain(field['description']):
                continue
            label += ' "%s"' % field['description']
        label += ':'
        check(row.startswith(label), row, '/', label)
        text = field.get('genre', field['text'])
        if plain(text) and not field['strings']:
            check(row == (label + ' ' + text if text else label), row)
)";

TEST(Kzdump, JsonLinesParseAndAgreeWithTheTextOutput) {
    const Strings files = SampleFiles() + CorpusFiles();
    const RunResult json = Kzdump(Strings{"--json", "--codes"} + files);
    const RunResult text = Kzdump(files);
    EXPECT_EQ(json.status, text.status);
    TempDir dir;
    EXPECT_EQ(Python(kAgreement, json.out, Strings{dir.Write("text", text.out)} + files), "");
}

TEST(Kzdump, JsonGivesCodesTagAndFieldNumbers) {
    const RunResult run = Kzdump({"--json", "--codes", Sample("v23_utf16.mp3")});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string fields = Python(R"(import json, sys
f = json.loads(sys.stdin.readline())
artist = f['fields'][1]
print(f['status'], artist['tag'], artist['field'], artist['id'], *artist['codes'])
print(artist['text'])
)", run.out);
    std::string expected = "0 2 132 TPE1";
    for (const int code : std::initializer_list<int>{0x3A9, 'm', 'e', 'g', 'a', ' ', 0xD834, 0xDD1E, ' ', 'B', 'a', 'n', 'd'})
        expected.append(" ").append(std::to_string(code));
    EXPECT_EQ(fields, expected + "\n\u03A9mega \U0001D11E Band\n");
}

// ---- Package -------------------------------------------------------------------------

// Option names of --help: the lines "  -j, --jobs N   text" of its Options.
std::set<std::string> HelpOptions(const std::string& help) {
    std::set<std::string> names;
    bool inOptions = false;
    for (const std::string& line : Lines(help)) {
        if (!line.starts_with(' ')) inOptions = line == "Options:";
        if (!inOptions || !line.starts_with("  -")) continue;
        std::istringstream words(line.substr(0, line.find("  ", 2)));
        for (std::string word; words >> word;) {
            if (word.ends_with(',')) word.pop_back();
            if (word.starts_with('-')) names.insert(word);
        }
    }
    return names;
}

// Option names of the man page: the bold words of each .TP term in OPTIONS.
std::set<std::string> ManPageOptions(const std::string& page) {
    std::set<std::string> names;
    std::string section;
    bool term = false;
    for (std::string line : Lines(page)) {
        if (line.starts_with(".SH ")) section = line.substr(4);
        if (term && section == "OPTIONS") {
            for (size_t at; (at = line.find("\\-")) != std::string::npos;) line.erase(at, 1);
            for (size_t at = 0; (at = line.find("\\fB", at)) != std::string::npos;) {
                const size_t end = line.find("\\fR", at);
                names.insert(line.substr(at + 3, end - at - 3));
                at = end;
            }
        }
        term = line == ".TP";
    }
    return names;
}

TEST(Kzdump, ManPageListsTheOptionsOfHelp) {
    const std::set<std::string> help = HelpOptions(Kzdump({"--help"}).out);
    EXPECT_TRUE(help.contains("-j") && help.contains("--jobs") && help.contains("--")) << help.size();
    EXPECT_EQ(ManPageOptions(ReadWhole(KZ_DOCS_DIR "/kzdump.1")), help);
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
        const RunResult run = ::Run("env -u KZ_ID3_MODULE " + c.environment +
                                  Quoted(Strings{KZDUMP_PATH} + c.args));
        const std::string what = c.environment + Quoted(c.args);
        const std::string loaded = "module " + c.module + ": QZV_VER=8.5.4.9.1901010828\n";
        EXPECT_EQ(run.out, "kzdump (kz_id3) " KZ_ID3_VERSION_STRING "\n" + (c.module.empty() ? "" : loaded)) << what;
        EXPECT_EQ(run.status, c.module.empty() ? 2 : 0) << what;
        EXPECT_TRUE(run.err.starts_with(c.module.empty() ? "kzdump: " + missing + ": " : "")) << what << run.err;
    }
}

}  // namespace

#endif  // KZDUMP_PATH
