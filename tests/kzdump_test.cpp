// End-to-end tests of kzdump, the reference host: the program is run as a
// user runs it, on the samples, on the real-world corpus and on files built
// here byte by byte.
#ifdef KZDUMP_PATH

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "tag_builder.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using kztest::Bytes;
using kztest::Latin1;
using kztest::Raw;

struct RunResult {
    int status = -1;  // exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;
};

std::string ReadWhole(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// A directory under the system's temporary directory, removed at the end.
class TempDir {
public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "kzdump-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) fs::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const fs::path& path() const { return path_; }

    std::string Write(const std::string& name, const Bytes& bytes) const {
        const fs::path file = path_ / name;
        fs::create_directories(file.parent_path());
        std::ofstream stream(file, std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char*>(bytes.data()),
                     static_cast<std::streamsize>(bytes.size()));
        return file.string();
    }

private:
    fs::path path_;
};

// Runs kzdump with `args`, its output and error output captured in files.
RunResult RunKzdump(const std::vector<std::string>& args) {
    RunResult result;
    TempDir capture;
    const std::string outPath = (capture.path() / "out").string();
    const std::string errPath = (capture.path() / "err").string();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    std::vector<std::string> argv = {KZDUMP_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& arg : argv) pointers.push_back(arg.data());
    pointers.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, KZDUMP_PATH, &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << KZDUMP_PATH;
        return result;
    }
    int status = 0;
    waitpid(pid, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = ReadWhole(outPath);
    result.err = ReadWhole(errPath);
    return result;
}

std::vector<std::string> FilesIn(const fs::path& directory, const std::string& extension = {}) {
    std::vector<std::string> files;
    std::error_code ec;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, ec)) {
        if (!entry.is_regular_file()) continue;
        if (!extension.empty() && entry.path().extension() != extension) continue;
        files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> SampleFiles() { return FilesIn(KZ_SAMPLES_DIR, ".mp3"); }

std::string Sample(const std::string& name) { return std::string(KZ_SAMPLES_DIR) + "/" + name; }

bool HaveCorpus() { return fs::is_directory(KZ_CORPUS_DIR); }

std::vector<std::string> CorpusFiles() {
    std::vector<std::string> files;
    for (const std::string& file : FilesIn(KZ_CORPUS_DIR)) {
        if (fs::path(file).extension() != ".md") files.push_back(file);
    }
    return files;
}

std::vector<std::string> Concat(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

// True when `text` is valid UTF-8 with no control character but the line feed.
bool PrintableUtf8(const std::string& text) {
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            if ((lead < 0x20 && lead != '\n') || lead == 0x7F) return false;
            ++i;
            continue;
        }
        const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
        if (length == 0 || i + length > text.size()) return false;
        uint32_t cp = lead & (0x7F >> length);
        for (size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (next & 0x3F);
        }
        if (cp >= 0x80 && cp <= 0x9F) return false;
        i += length;
    }
    return true;
}

// ---- A small JSON reader: enough to check kzdump's lines ---------------------

struct Json;
using JsonObject = std::map<std::string, Json>;
using JsonArray = std::vector<Json>;

struct Json {
    std::variant<std::nullptr_t, bool, double, std::string, JsonArray, JsonObject> value;

    bool Has(const std::string& key) const {
        const auto* object = std::get_if<JsonObject>(&value);
        return object != nullptr && object->count(key) != 0;
    }
    const Json& operator[](const std::string& key) const {
        return std::get<JsonObject>(value).at(key);
    }
    const JsonArray& Array() const { return std::get<JsonArray>(value); }
    const std::string& String() const { return std::get<std::string>(value); }
    double Number() const { return std::get<double>(value); }
};

class JsonReader {
public:
    explicit JsonReader(const std::string& text) : text_(text) {}

    // The whole text as one value; false when it is not valid JSON.
    bool ReadDocument(Json& out) {
        if (!ReadValue(out)) return false;
        SkipSpace();
        return pos_ == text_.size();
    }

private:
    void SkipSpace() {
        while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t' ||
                                       text_[pos_] == '\n' || text_[pos_] == '\r')) {
            ++pos_;
        }
    }
    bool Take(char c) {
        SkipSpace();
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    bool Literal(const std::string& word) {
        if (text_.compare(pos_, word.size(), word) != 0) return false;
        pos_ += word.size();
        return true;
    }
    bool Hex4(uint32_t& unit) {
        if (pos_ + 4 > text_.size()) return false;
        unit = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = text_[pos_++];
            unit <<= 4;
            if (c >= '0' && c <= '9') unit |= static_cast<uint32_t>(c - '0');
            else if (c >= 'a' && c <= 'f') unit |= static_cast<uint32_t>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F') unit |= static_cast<uint32_t>(c - 'A' + 10);
            else return false;
        }
        return true;
    }
    static void AppendUtf8(uint32_t cp, std::string& out) {
        if (cp < 0x80) {
            out.push_back(static_cast<char>(cp));
        } else if (cp < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else if (cp < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
        }
    }
    bool ReadString(std::string& out) {
        if (!Take('"')) return false;
        while (pos_ < text_.size()) {
            const char c = text_[pos_++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out.push_back(c);
                continue;
            }
            if (pos_ >= text_.size()) return false;
            const char escape = text_[pos_++];
            switch (escape) {
                case '"': out.push_back('"'); break;
                case '\\': out.push_back('\\'); break;
                case '/': out.push_back('/'); break;
                case 'b': out.push_back('\b'); break;
                case 'f': out.push_back('\f'); break;
                case 'n': out.push_back('\n'); break;
                case 'r': out.push_back('\r'); break;
                case 't': out.push_back('\t'); break;
                case 'u': {
                    uint32_t unit = 0;
                    if (!Hex4(unit)) return false;
                    if (unit >= 0xD800 && unit <= 0xDBFF) {
                        uint32_t low = 0;
                        if (!Literal("\\u") || !Hex4(low) || low < 0xDC00 || low > 0xDFFF) {
                            return false;
                        }
                        unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                    } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
                        return false;
                    }
                    AppendUtf8(unit, out);
                    break;
                }
                default: return false;
            }
        }
        return false;
    }
    bool ReadNumber(double& out) {
        const size_t start = pos_;
        if (pos_ < text_.size() && text_[pos_] == '-') ++pos_;
        while (pos_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[pos_]))) {
            ++pos_;
        }
        if (pos_ == start || (pos_ == start + 1 && text_[start] == '-')) return false;
        out = std::stod(text_.substr(start, pos_ - start));
        return true;
    }
    bool ReadValue(Json& out) {
        SkipSpace();
        if (pos_ >= text_.size()) return false;
        const char c = text_[pos_];
        if (c == '{') {
            ++pos_;
            JsonObject object;
            if (!Take('}')) {
                do {
                    std::string key;
                    Json member;
                    if (!ReadString(key) || !Take(':') || !ReadValue(member)) return false;
                    object[key] = std::move(member);
                } while (Take(','));
                if (!Take('}')) return false;
            }
            out.value = std::move(object);
            return true;
        }
        if (c == '[') {
            ++pos_;
            JsonArray array;
            if (!Take(']')) {
                do {
                    Json element;
                    if (!ReadValue(element)) return false;
                    array.push_back(std::move(element));
                } while (Take(','));
                if (!Take(']')) return false;
            }
            out.value = std::move(array);
            return true;
        }
        if (c == '"') {
            std::string text;
            if (!ReadString(text)) return false;
            out.value = std::move(text);
            return true;
        }
        if (Literal("true")) {
            out.value = true;
            return true;
        }
        if (Literal("false")) {
            out.value = false;
            return true;
        }
        if (Literal("null")) {
            out.value = nullptr;
            return true;
        }
        double number = 0;
        if (!ReadNumber(number)) return false;
        out.value = number;
        return true;
    }

    const std::string& text_;
    size_t pos_ = 0;
};

// The text lines of one file in kzdump's text output, keyed by header.
std::vector<std::vector<std::string>> SplitFiles(const std::string& out) {
    std::vector<std::vector<std::string>> files;
    for (const std::string& line : Lines(out)) {
        if (!line.starts_with("  ")) files.emplace_back();
        if (files.empty()) files.emplace_back();
        files.back().push_back(line);
    }
    return files;
}

bool PlainAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return c >= 0x20 && c < 0x7F && c != '\\' && c != '"';
    });
}

// ---- Expected output of the samples ------------------------------------------

TEST(Kzdump, ShowsTextFramesAndTrailerOfAnId3v24Sample) {
    const std::string path = Sample("v24_with_id3v1.mp3");
    const RunResult run = RunKzdump({path});
    EXPECT_EQ(run.status, 0) << run.err;
    // The generator wrote TIT2, TPE1, TRCK and a TDRC frame (not one the
    // module reads), audio, and an ID3v1.1 trailer with track 7 and genre 13.
    EXPECT_EQ(run.out, path + ": MPEG-1 audio - Layer 3, ID3v2.x\n"
                              "  TIT2: Evening Song\n"
                              "  TPE1: The Testers\n"
                              "  TRCK: 7\n"
                              "  ID3v1 title: Evening Song\n"
                              "  ID3v1 artist: The Testers\n"
                              "  ID3v1 album: Sample Album\n"
                              "  ID3v1 year: 2004\n"
                              "  ID3v1 comment: ID3v1.1 trailer\n"
                              "  ID3v1 track: 7\n"
                              "  ID3v1 genre: 13\n");
    EXPECT_EQ(run.err, "");
}

TEST(Kzdump, ShowsAnId3v1OnlySampleWithAFullCommentAndNoGenre) {
    const std::string path = Sample("id3v1_only.mp3");
    const RunResult run = RunKzdump({path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, path + ": MPEG-1 audio - Layer 3, ID3v2.x\n"
                              "  ID3v1 title: Only Trailer\n"
                              "  ID3v1 artist: Nobody\n"
                              "  ID3v1 album:\n"
                              "  ID3v1 year: 1999\n"
                              "  ID3v1 comment: A comment that fills 30 bytes.\n"
                              "  ID3v1 genre:\n");
}

TEST(Kzdump, ShowsTwoTagsBackToBack) {
    const std::string path = Sample("two_tags.mp3");
    const RunResult run = RunKzdump({path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, path + ": MPEG-1 audio - Layer 3, ID3v2.x\n"
                              "  TIT2: First tag\n"
                              "  TPE1: Band A\n"
                              "  TIT2: Second tag\n"
                              "  TALB: Other album\n");
}

TEST(Kzdump, ShowsId3v22FramesByTheirFourLetterIdentifiers) {
    const RunResult run = RunKzdump({Sample("v22_latin1.mp3")});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_GE(lines.size(), 7u) << run.out;
    EXPECT_EQ(lines[1], "  TIT2: Morning Song");
    EXPECT_EQ(lines[2], "  TPE1: The Testers");
    EXPECT_EQ(lines[3], "  TALB: Sample Album");
    EXPECT_EQ(lines[4], "  TYER: 2001");
    EXPECT_EQ(lines[5], "  TRCK: 3/12");
    EXPECT_EQ(lines[6], "  TCON: (13)Pop");
}

TEST(Kzdump, DecodesLatin1AndUtf16WithSurrogatePairs) {
    const RunResult run = RunKzdump({Sample("v23_utf16.mp3")});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_GE(lines.size(), 4u) << run.out;
    EXPECT_EQ(lines[1], "  TIT2: Caf\u00E9 \u00DCn\u00EFcode");
    EXPECT_EQ(lines[2], "  TPE1: \u03A9mega \U0001D11E Band");
    EXPECT_EQ(lines[3], "  TALB: Gr\u00FC\u00DFe");
}

// ---- Files built here --------------------------------------------------------

TEST(Kzdump, EscapesControlCharactersAndReplacesLoneSurrogates) {
    TempDir dir;
    const Bytes frames = kztest::Cat({
        kztest::Frame(3, "TIT2", Raw({0x00, 'A', 0x01, 'B', '\\', 0x7F, 0x0A})),
        // x, a high surrogate followed by y, then a lone low surrogate.
        kztest::Frame(3, "TPE1", Raw({0x01, 0xFF, 0xFE, 'x', 0x00, 0x34, 0xD8, 'y', 0x00, 0x1E,
                                      0xDD})),
    });
    const std::string path = dir.Write("escapes.mp3", kztest::Tag(3, frames));
    const RunResult run = RunKzdump({path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, path + ": MPEG-1 audio - Layer 3, ID3v2.x\n"
                              "  TIT2: A\\x01B\\\\\\x7F\\x0A\n"
                              "  TPE1: x\uFFFDy\uFFFD\n");
}

TEST(Kzdump, TellsUserDefinedTextFromUrlWhereTheCharacterSetsShowIt) {
    TempDir dir;
    using kztest::Utf16Le;
    const Bytes frames = kztest::Cat({
        kztest::Frame(3, "TXXX", kztest::Cat({Raw({0x01}), Utf16Le(u"Mood"), Raw({0, 0}),
                                              Utf16Le(u"calm")})),
        kztest::Frame(3, "WXXX", kztest::Cat({Raw({0x01}), Utf16Le(u"Home"), Raw({0, 0}),
                                              Latin1("http://h/")})),
        kztest::Frame(3, "TXXX", kztest::Cat({Raw({0x00}), Latin1("Key"), Raw({0}),
                                              Latin1("value")})),
    });
    const std::string path = dir.Write("user.mp3", kztest::Tag(3, frames));
    const RunResult run = RunKzdump({path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, path + ": MPEG-1 audio - Layer 3, ID3v2.x\n"
                              "  TXXX \"Mood\": calm\n"
                              "  WXXX \"Home\": http://h/\n"
                              "  TXXX/WXXX \"Key\": value\n");
}

TEST(Kzdump, ShowsInvolvedPeopleOutsideAnyField) {
    TempDir dir;
    const Bytes frames = kztest::Cat({
        kztest::Frame(3, "TIT2", kztest::Cat({Raw({0x00}), Latin1("T")})),
        kztest::Frame(3, "IPLS", Raw({0x00, 'a', 0x00, 'b', 0x00})),
    });
    const std::string path = dir.Write("people.mp3", kztest::Tag(3, frames));
    const RunResult run = RunKzdump({path});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, path + ": MPEG-1 audio - Layer 3, ID3v2.x\n"
                              "  TIT2: T\n"
                              "  (outside any field): a b \n");
}

TEST(Kzdump, ReportsAFileWithoutTagsWithStatusOne) {
    TempDir dir;
    const std::string path = dir.Write("silent.mp3", kztest::SilentMpegFrames(4));
    const RunResult run = RunKzdump({path, Sample("two_tags.mp3")});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.out.starts_with(path + ": MPEG-1 audio - Layer 3, ID3v2.x: no tags\n"))
        << run.out;
    EXPECT_NE(run.out.find("  TIT2: Second tag\n"), std::string::npos);
}

TEST(Kzdump, PassesTheFileTypeAndShowsItsName) {
    const std::string path = Sample("two_tags.mp3");
    RunResult run = RunKzdump({"--type", "1708", path});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.out.starts_with(path + ": ID3 Ver 1.x\n")) << run.out;
    run = RunKzdump({"--type=9999", path});
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.out.starts_with(path + ": type 9999\n")) << run.out;
}

TEST(Kzdump, WalksDirectoriesInSortedOrder) {
    TempDir dir;
    const Bytes tagged = kztest::Tag(3, kztest::Frame(3, "TIT2", Raw({0x00, 'x'})));
    dir.Write("b.mp3", tagged);
    dir.Write("sub/c.mp3", tagged);
    dir.Write("a.mp3", tagged);
    dir.Write("B.mp3", tagged);
    const RunResult run = RunKzdump({"-r", dir.path().string(), "-j", "3"});
    EXPECT_EQ(run.status, 0) << run.err;
    std::vector<std::string> headers;
    for (const std::string& line : Lines(run.out)) {
        if (!line.starts_with("  ")) headers.push_back(line);
    }
    const std::string base = dir.path().string();
    const std::string type = ": MPEG-1 audio - Layer 3, ID3v2.x";
    EXPECT_EQ(headers, (std::vector<std::string>{base + "/B.mp3" + type, base + "/a.mp3" + type,
                                                 base + "/b.mp3" + type,
                                                 base + "/sub/c.mp3" + type}));
}

// ---- Equal outputs -------------------------------------------------------------

TEST(Kzdump, GivesTheSameOutputTwice) {
    const std::vector<std::string> files = Concat(SampleFiles(), CorpusFiles());
    ASSERT_FALSE(files.empty());
    for (const char* mode : {"--json", "--trace"}) {
        std::vector<std::string> args = files;
        args.insert(args.begin(), mode);
        const RunResult first = RunKzdump(args);
        const RunResult second = RunKzdump(args);
        EXPECT_EQ(first.out, second.out) << mode;
        EXPECT_EQ(first.err, second.err) << mode;
        EXPECT_EQ(first.status, second.status) << mode;
    }
    const RunResult first = RunKzdump(files);
    const RunResult second = RunKzdump(files);
    EXPECT_EQ(first.out, second.out);
    EXPECT_EQ(first.err, second.err);
}

void ExpectStopEveryMatchesPlain(const std::vector<std::string>& files) {
    for (const std::string& file : files) {
        for (const char* mode : {"", "--json"}) {
            std::vector<std::string> plainArgs = {file};
            if (*mode != '\0') plainArgs.insert(plainArgs.begin(), mode);
            const RunResult plain = RunKzdump(plainArgs);
            for (const char* every : {"1", "2", "3"}) {
                std::vector<std::string> args = plainArgs;
                args.insert(args.begin(), {"--stop-every", every});
                const RunResult stopped = RunKzdump(args);
                EXPECT_EQ(stopped.out, plain.out) << file << " --stop-every " << every << " " << mode;
                EXPECT_EQ(stopped.status, plain.status) << file;
            }
        }
    }
}

TEST(Kzdump, StopEveryGivesThePlainOutputOnTheSamples) {
    ExpectStopEveryMatchesPlain(SampleFiles());
}

TEST(Kzdump, StopEveryGivesThePlainOutputOnTheCorpus) {
    if (!HaveCorpus()) GTEST_SKIP() << "no corpus at " << KZ_CORPUS_DIR;
    ExpectStopEveryMatchesPlain(CorpusFiles());
}

// "--recursive" changes nothing for plain files: it stands for the text
// output among the output options below.
TEST(Kzdump, WorkerThreadsKeepTheOrderAndTheOutput) {
    // Every file three times, so that workers overtake one another.
    std::vector<std::string> files;
    for (int round = 0; round < 3; ++round) files = Concat(files, Concat(SampleFiles(), CorpusFiles()));
    for (const char* mode : {"--recursive", "--json", "--trace"}) {
        std::vector<std::string> one = files;
        one.insert(one.begin(), {mode, "-j", "1"});
        const RunResult single = RunKzdump(one);
        for (const char* jobs : {"2", "4"}) {
            std::vector<std::string> many = files;
            many.insert(many.begin(), {mode, "-j", jobs});
            const RunResult parallel = RunKzdump(many);
            EXPECT_EQ(parallel.out, single.out) << mode << " -j " << jobs;
            EXPECT_EQ(parallel.err, single.err) << mode << " -j " << jobs;
            EXPECT_EQ(parallel.status, single.status);
        }
    }
}

// ---- JSON ------------------------------------------------------------------------

TEST(Kzdump, JsonLinesParseAndAgreeWithTheTextOutput) {
    const std::vector<std::string> files = Concat(SampleFiles(), CorpusFiles());
    std::vector<std::string> jsonArgs = files;
    jsonArgs.insert(jsonArgs.begin(), "--json");
    const RunResult json = RunKzdump(jsonArgs);
    const RunResult text = RunKzdump(files);
    EXPECT_EQ(json.status, text.status);

    const std::vector<std::string> lines = Lines(json.out);
    const std::vector<std::vector<std::string>> textFiles = SplitFiles(text.out);
    ASSERT_EQ(lines.size(), files.size());
    ASSERT_EQ(textFiles.size(), files.size());
    for (size_t i = 0; i < lines.size(); ++i) {
        Json file;
        ASSERT_TRUE(JsonReader(lines[i]).ReadDocument(file)) << lines[i];
        EXPECT_EQ(file["path"].String(), files[i]);
        const std::string& type = file["type"].String();
        EXPECT_TRUE(textFiles[i][0].starts_with(files[i] + ": " + type)) << textFiles[i][0];
        const bool noTags = file["status"].Number() == 51;
        EXPECT_EQ(noTags, textFiles[i][0].ends_with(": no tags")) << files[i];

        // One text line per field, plus the indented continuations of values
        // that hold line breaks.
        const JsonArray& fields = file["fields"].Array();
        std::vector<std::string> fieldLines;
        for (size_t k = 1; k < textFiles[i].size(); ++k) {
            if (!textFiles[i][k].starts_with("    ")) fieldLines.push_back(textFiles[i][k]);
        }
        ASSERT_EQ(fieldLines.size(), fields.size()) << files[i];
        for (size_t k = 0; k < fields.size(); ++k) {
            const Json& field = fields[k];
            if (field.Has("failure")) continue;
            const std::string& value = field["text"].String();
            for (const Json& code : field["codes"].Array()) {
                EXPECT_GE(code.Number(), -5);
                EXPECT_LE(code.Number(), 0xFFFF);
            }
            if (field.Has("outside")) {
                EXPECT_TRUE(fieldLines[k].starts_with("  (outside any field):")) << fieldLines[k];
                continue;
            }
            std::string label = "  " + field["id"].String();
            if (field.Has("description")) {
                if (!PlainAscii(field["description"].String())) continue;
                label += " \"" + field["description"].String() + "\"";
            }
            label += ":";
            EXPECT_TRUE(fieldLines[k].starts_with(label)) << fieldLines[k] << " / " << label;
            if (PlainAscii(value) && field["strings"].Array().empty()) {
                EXPECT_EQ(fieldLines[k], value.empty() ? label : label + " " + value);
            }
        }
    }
}

TEST(Kzdump, JsonGivesCodesTagAndFieldNumbers) {
    const RunResult run = RunKzdump({"--json", Sample("v23_utf16.mp3")});
    EXPECT_EQ(run.status, 0) << run.err;
    Json file;
    ASSERT_TRUE(JsonReader(Lines(run.out).at(0)).ReadDocument(file)) << run.out;
    EXPECT_EQ(file["status"].Number(), 0);
    const Json& artist = file["fields"].Array().at(1);
    EXPECT_EQ(artist["tag"].Number(), 2);
    EXPECT_EQ(artist["field"].Number(), 132);
    EXPECT_EQ(artist["id"].String(), "TPE1");
    EXPECT_EQ(artist["text"].String(), "\u03A9mega \U0001D11E Band");
    std::vector<double> codes;
    for (const Json& code : artist["codes"].Array()) codes.push_back(code.Number());
    EXPECT_EQ(codes, (std::vector<double>{0x3A9, 'm', 'e', 'g', 'a', ' ', 0xD834, 0xDD1E, ' ', 'B',
                                          'a', 'n', 'd'}));
}

// ---- Robustness and errors ---------------------------------------------------------

TEST(Kzdump, ReadsEveryCorpusFileWithoutCrashingAndPrintsOnlyPrintableText) {
    if (!HaveCorpus()) GTEST_SKIP() << "no corpus at " << KZ_CORPUS_DIR;
    for (const std::string& file : CorpusFiles()) {
        for (const char* mode : {"--recursive", "--json", "--trace"}) {
            const RunResult run = RunKzdump({mode, file});
            EXPECT_TRUE(run.status == 0 || run.status == 1) << file << " " << mode << ": "
                                                            << run.status << " " << run.err;
            EXPECT_TRUE(PrintableUtf8(run.out)) << file << " " << mode;
        }
    }
}

TEST(Kzdump, ReportsAMissingFileAndGoesOn) {
    const std::string missing = "/nonexistent/kzdump/missing.mp3";
    const RunResult run = RunKzdump({missing, Sample("two_tags.mp3")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "kzdump: " + missing + ": No such file or directory\n");
    EXPECT_NE(run.out.find("  TIT2: First tag\n"), std::string::npos);
}

TEST(Kzdump, RefusesADirectoryWithoutRecursive) {
    TempDir dir;
    const RunResult run = RunKzdump({dir.path().string(), Sample("two_tags.mp3")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find(dir.path().string()), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("-r"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("  TIT2: First tag\n"), std::string::npos);
}

TEST(Kzdump, RejectsBadUsageWithStatusTwo) {
    const std::string sample = Sample("two_tags.mp3");
    const std::vector<std::vector<std::string>> bad = {
        {"--frobnicate", sample},   {"-j", "0", sample},          {"-j", "x", sample},
        {"-j"},                     {"--stop-every", "0", sample}, {"--stop-every", "-1", sample},
        {"--type", "70000", sample}, {"--type", "12a", sample},    {},
        {"--json", "--trace", sample},
    };
    for (const std::vector<std::string>& args : bad) {
        const RunResult run = RunKzdump(args);
        std::string joined;
        for (const std::string& arg : args) joined += arg + " ";
        EXPECT_EQ(run.status, 2) << joined;
        EXPECT_EQ(run.out, "") << joined;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << joined << run.err;
    }
}

TEST(Kzdump, ReportsAModuleThatCannotBeLoadedOrHasNoEntryTable) {
    const std::string sample = Sample("two_tags.mp3");
    const std::string missing = "/nonexistent/libkz_id3.so";
    RunResult run = RunKzdump({"--filter", missing, sample});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(run.err.starts_with("kzdump: " + missing + ": ")) << run.err;

    // The host memory services library loads but is no filter module.
    const std::string services = (fs::path(KZ_MODULE_PATH).parent_path() / "libkz_sys.so").string();
    run = RunKzdump({"--filter", services, sample});
    EXPECT_EQ(run.status, 2);
    EXPECT_TRUE(run.err.starts_with("kzdump: " + services + ": ")) << run.err;
    EXPECT_NE(run.err.find("VwGetRtns"), std::string::npos) << run.err;

    run = RunKzdump({"--filter", KZ_MODULE_PATH, sample});
    EXPECT_EQ(run.status, 0) << run.err;
}

TEST(Kzdump, TracesEveryHostCall) {
    const std::string path = Sample("two_tags.mp3");
    const RunResult run = RunKzdump({"--trace", path});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_GE(lines.size(), 8u);
    EXPECT_EQ(lines[0], "# " + path);
    EXPECT_EQ(lines[1], "# VwStreamOpen = 0, type \"MPEG-1 audio - Layer 3, ID3v2.x\"");
    EXPECT_EQ(lines[2], "SOStartSection(9, 0, 0)");
    EXPECT_EQ(lines[3], "SOSetCharSet(0x00080101)");
    EXPECT_EQ(lines[4], "SOSetSectionFlags(0x8000)");
    EXPECT_EQ(lines[5], "SOBeginTag(0xA0010004, 1, {118})");
    EXPECT_EQ(lines[6], "SOOutChar(0x0046)");
    EXPECT_EQ(lines.back(), "SOOutBreak(2, 0) = 0");
}

TEST(Kzdump, DocumentsItsOptionsAndExitStatus) {
    const RunResult run = RunKzdump({"--help"});
    EXPECT_EQ(run.status, 0);
    for (const char* word : {"--json", "--trace", "-r", "-j", "--stop-every", "--type", "--filter",
                             "Exit status", "TXXX/WXXX", "ID3v1"}) {
        EXPECT_NE(run.out.find(word), std::string::npos) << word;
    }
}

}  // namespace

#endif  // KZDUMP_PATH
