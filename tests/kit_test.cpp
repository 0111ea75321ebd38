// The host kit through its C interface only: bytes in, fields out; raw
// codes and string tags; the samples and the real-world corpus as kzdump
// shows them, read from files, from memory and on two threads; every
// function given bad input; type detection from tiny MPEG frame headers.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <span>
#include <thread>
#include <utility>

#include "kz_host.h"
#include "processes.h"
#include "tag_builder.h"

namespace {

using namespace kztest;

struct Reader {
    Reader() { EXPECT_EQ(kz_host_reader_new(nullptr, &reader, nullptr, 0), KZ_HOST_OK); }
    ~Reader() { kz_host_reader_free(reader); }
    kz_host_reader* reader = nullptr;
};

Bytes Text(const std::string& text) { return Raw({0}) + Latin1(text); }
Bytes TextUtf16(const std::u16string& text) { return Raw({1}) + Utf16Le(text); }

// Codes as " {hex ...}"; "" when there are none (null and a count of 0).
std::string CodeList(const uint32_t* codes, size_t count) {
    if (codes == nullptr) return count == 0 ? "" : " {null, count " + std::to_string(count) + "}";
    std::string out;
    char hex[12];
    for (size_t i = 0; i < count; ++i) out.append(hex, std::snprintf(hex, sizeof hex, " %X", codes[i]));
    return " {" + out.erase(0, 1) + "}";
}

// A field as a short line: "v1 " for the trailer, the identifier, the
// description in quotes, "=" and the text, each string tag as
// "[tag@offset codes]", the codes; the read's status last.
Strings Rows(const Bytes& bytes, uint64_t charLimit, unsigned flags = 0) {
    Reader r;
    kz_host_read_options options;
    kz_host_read_options_init(&options);
    options.char_limit = charLimit;
    options.flags = flags;
    kz_host_result* result = nullptr;
    const int status = kz_host_collect_memory(r.reader, bytes.data(), bytes.size(), &options, &result);
    Strings rows;
    for (size_t i = 0; i < kz_host_result_count(result); ++i) {
        const kz_host_field& f = *kz_host_result_field(result, i);
        std::string row = std::string(f.id3v1 == 1 ? "v1 " : f.id3v1 == 0 ? "" : "id3v1 neither 0 nor 1 ") + (f.kind == KZ_HOST_ITEM_OUTSIDE ? "outside" : f.ident);
        if (f.description != nullptr) row.append(" \"").append(f.description, f.description_len).append("\"");
        row.append("=").append(f.text, f.text_len);
        for (const kz_host_string& s : std::span(f.strings, f.string_count))
            row.append(" [").append(std::to_string(s.tag)).append("@").append(std::to_string(s.offset)).append(CodeList(s.codes, s.code_count)).append("]");
        rows.push_back(row + CodeList(f.codes, f.code_count));
    }
    kz_host_result_free(result);
    return rows + Strings{std::to_string(status)};
}

TEST(Kit, DeliversTheFieldsOfATagAsUtf8WithTheirKind) {
    const Bytes lone = Raw({0x01, 0xFF, 0xFE, 'x', 0, 0x34, 0xD8, 0x1E, 0xDD, 0x00, 0xD8, 'y', 0, 0x1E, 0xDD, 0xFF, 0xDF});
    const std::string a300(300, 'a');
    const std::u16string e20(20, u'\u00E9');
    const std::string unfinished = std::to_string(KZ_HOST_ERROR_UNFINISHED);
    const Bytes codes = Tag(3, Frame(3, "TXXX", TextUtf16(u"D") + Raw({0, 0}) + Utf16Le(u"x\U0001D11E")) +
                                   Frame(3, "COMM", Text("eng") + Raw({0}) + Latin1("a\n")));
    const struct {
        Bytes bytes;
        Strings rows;
        uint64_t charLimit = 0;
        unsigned flags = 0;
    } cases[] = {
        // A surrogate pair joined; a high half (U+D800) without its low half
        // and low halves alone (U+DD1E, U+DFFF) become U+FFFD.
        {Tag(3, Frame(3, "TIT2", Raw({0, 'C', 'a', 'f', 0xE9})) + Frame(3, "TPE1", lone)),
         {"TIT2=Caf\u00E9", "TPE1=x\U0001D11E\uFFFDy\uFFFD\uFFFD", "0"}},
        // Texts longer than the first buffer, multibyte characters across its end.
        {Tag(3, Frame(3, "TIT2", TextUtf16(std::u16string(u"\u00E9") + std::u16string(a300.begin(), a300.end()) + u"\u20AC\U0001D11E")) +
                    Frame(3, "TPE1", Text(a300 + "\xE9"))),
         {"TIT2=\u00E9" + a300 + "\u20AC\U0001D11E", "TPE1=" + a300 + "\u00E9", "0"}},
        // A line break the module delivers and a line-feed character alike.
        {Tag(3, Frame(3, "COMM", Text("eng") + Raw({0}) + Latin1("a\nb")) + Frame(3, "TIT2", Text("c\nd"))),
         {"COMM= a\nb", "TIT2=c\nd", "0"}},
        {Tag(3, Frame(3, "TXXX", TextUtf16(u"Mood") + Raw({0, 0}) + Utf16Le(u"calm")) +
                    Frame(3, "WXXX", TextUtf16(u"Home") + Raw({0, 0}) + Latin1("http://h/")) +
                    Frame(3, "TXXX", Text("Key") + Raw({0}) + Latin1("value"))),
         {"TXXX \"Mood\"=calm [501@0]", "WXXX \"Home\"=http://h/ [502@0]", "TXXX/WXXX \"Key\"=value [503@0]", "0"}},
        {Tag(3, Frame(3, "TIT2", Text("T")) + Frame(3, "IPLS", Raw({0, 'a', 0, 'b', 0}))), {"TIT2=T", "outside=a b ", "0"}},
        {Tag(4, Frame(4, "TIT2", Text("T"))) + SilentMpegFrames(1) +
             Id3v1({.title = "V", .year = "1999", .track = 7, .genre = 13}),
         {"TIT2=T", "v1 ID3v1 title=V", "v1 ID3v1 artist=", "v1 ID3v1 album=", "v1 ID3v1 year=1999",
          "v1 ID3v1 comment=", "v1 ID3v1 track=7", "v1 ID3v1 genre=13", "0"}},
        // The character limit counts characters, not bytes, across fields.
        {Tag(3, Frame(3, "TIT2", TextUtf16(e20)) + Frame(3, "TPE1", Text("abc"))),
         {"TIT2=\u00E9\u00E9\u00E9\u00E9\u00E9", unfinished}, 5},
        {Tag(3, Frame(3, "TIT2", Text("ab")) + Frame(3, "TPE1", TextUtf16(e20))), {"TIT2=ab", "TPE1=\u00E9\u00E9", unfinished}, 4},
        {Tag(3, Frame(3, "TIT2", Text(a300)) + Frame(3, "TPE1", Text("b"))), {"TIT2=" + a300, "TPE1=b", "0"}, 301},
        {Tag(3, Frame(3, "TIT2", Text("abc"))), {"TIT2=ab", unfinished}, 2},
        // The raw codes on request, for the value and each string tag: UTF-16
        // units (a surrogate pair as two) and a line break.
        {codes, {"TXXX \"D\"=x\U0001D11E [501@0 {10044}] {10078 1D834 1DD1E}", "COMM= a\n {20 61 20005}", "0"}, 0,
         KZ_HOST_READ_CODES},
        {codes, {"TXXX \"D\"=x\U0001D11E [501@0]", "COMM= a\n", "0"}},
    };
    for (const auto& c : cases) EXPECT_EQ(Rows(c.bytes, c.charLimit, c.flags), c.rows);
}

// The sentence of each status, and the packed form of a one-field result
// byte by byte (little-endian).
TEST(Kit, NamesEveryStatusAndPacksAResultByteByByte) {
    // From KZ_HOST_WALK_END (2) down to KZ_HOST_ERROR_STOPPED (-10), then a status that is none.
    const char* const sentences[] = {
        "the walk has no more entries", "nothing to read: the file holds no tag the module reads", "success",
        "invalid argument", "out of memory", "the filter module was not found",
        "the file is not a usable filter module", "the module could not allocate a context",
        "input/output error", "not a regular file", "larger than 4 GiB: beyond the module's 32-bit positions",
        "the module did not finish the file", "stopped by the visitor", "unknown status"};
    for (int status = KZ_HOST_WALK_END; status >= KZ_HOST_ERROR_STOPPED - 1; --status)
        EXPECT_STREQ(kz_host_strerror(status), sentences[KZ_HOST_WALK_END - status]) << status;
    const Bytes bytes = Tag(3, Frame(3, "TIT2", Text("x")));
    Reader r;
    kz_host_result* result = nullptr;
    ASSERT_EQ(kz_host_collect_memory(r.reader, bytes.data(), bytes.size(), nullptr, &result), KZ_HOST_OK);
    size_t size = 0;
    const auto* packed = static_cast<const uint8_t*>(kz_host_result_packed(result, &size));
    // One item, open status 0, type 1709 (0x06AD), flags 5 (end seen, type
    // detected), "ID3 Ver 2.x"; kind 0, not ID3v1, "TIT2", tag 1, field 118,
    // no description, text "x".
    const Bytes expected = Raw({1, 0, 0, 0, 0, 0, 0, 0, 0xAD, 0x06, 5, 11}) + Latin1("ID3 Ver 2.x") +
                           Raw({0, 0, 4, 0, 1, 0, 0, 0, 118, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0}) +
                           Latin1("TIT2x");
    EXPECT_EQ(Bytes(packed, packed + size), expected);
    kz_host_result_free(result);
}

// ---- Bad input ---------------------------------------------------------------------

int Ignore(const kz_host_field*, void*) { return 0; }
int Stop(const kz_host_field*, void*) { return 1; }
void Count(const kz_host_call*, void* user) { ++*static_cast<size_t*>(user); }

TEST(Kit, BadInputGivesTheDocumentedStatusAndNoCrash) {
    Reader r;
    kz_host_reader* reader = r.reader;
    TempDir dir;
    const std::string missing = (dir.path / "missing.mp3").string();
    const char* directory = dir.path.c_str();
    const std::string empty = dir.Write("empty.mp3", Bytes{});
    const char* e = empty.c_str();
    // A frame declared at almost 2 GB in a file of 100 bytes: the block
    // limit (the file's size) refuses its body.
    Bytes declared = Tag(3, Frame(3, "TIT2", Text("A"), 0x7FFFFF00), {.declaredSize = 0x0FFFFFFF});
    declared.resize(100, 0);
    const std::string truncated = dir.Write("truncated.mp3", declared);
    const std::string unreadable = dir.Write("unreadable.mp3", Text("x"));
    chmod(unreadable.c_str(), 0);
    const std::string services = (std::filesystem::path(KZ_MODULE_PATH).parent_path() / "libkz_sys.so").string();
    const Bytes three = Tag(3, Frame(3, "TIT2", Text("a")) + Frame(3, "TPE1", Text("b")) + Frame(3, "TALB", Text("c")));
    const uint8_t* t = three.data();
    kz_host_read_options badSize, badFlags, fewChars;
    for (kz_host_read_options* options : {&badSize, &badFlags, &fewChars}) kz_host_read_options_init(options);
    badSize.struct_size = 1;
    badFlags.flags = 0x80;
    fewChars.char_limit = 1;
    char message[512] = "";
    uint16_t type = 0;
    uint32_t number = 1;
    size_t calls = 0;
    kz_host_walk* walk = nullptr;
    const kz_host_walk_entry* entry = nullptr;
    kz_host_walk_options walkSize, noExtensions;
    kz_host_walk_options_init(&walkSize);
    kz_host_walk_options_init(&noExtensions);
    walkSize.struct_size = 0;
    noExtensions.extension_count = 1;
    kz_host_file_info i, last, small;
    kz_host_file_info_init(&i);
    kz_host_file_info_init(&small);
    small.struct_size -= 8;
    // The status of a call and the errno it left in errno and in i (kept as
    // last); a negative errnoValue: in errno only (calls without an info).
    const auto check = [&i, &last](const char* what, int got, int status, int errnoValue = 0) {
        EXPECT_EQ(got, status) << what;
        EXPECT_EQ(i.errno_value, std::max(errnoValue, 0)) << what;
        EXPECT_EQ(errnoValue != 0 ? errno : 0, std::abs(errnoValue)) << what;
        last = i;
        kz_host_file_info_init(&i);
        errno = 0;
    };
    const auto newReader = [&message](const char* path, size_t size = sizeof message) {
        kz_host_reader_options options;
        kz_host_reader_options_init(&options);
        options.module_path = path;
        kz_host_reader* made = nullptr;
        const int status = kz_host_reader_new(&options, &made, size != 0 ? message : nullptr, size);
        EXPECT_EQ(made == nullptr, status != KZ_HOST_OK);
        kz_host_reader_free(made);
        return status;
    };
    const auto collect = [&](const std::string& path) {
        kz_host_result* result = reinterpret_cast<kz_host_result*>(1);
        const int status = kz_host_collect_file(reader, path.c_str(), nullptr, &result);
        EXPECT_EQ(result == nullptr, status < 0 && status != KZ_HOST_ERROR_UNFINISHED) << path;
        kz_host_result_free(result);
        return status;
    };
    // A visitor that reads again with its own reader while it is reading.
    const kz_host_visitor readAgain = [](const kz_host_field*, void* user) {
        auto* n = static_cast<std::pair<kz_host_reader*, int>*>(user);
        n->second = kz_host_read_memory(n->first, "", 0, nullptr, &Ignore, nullptr, nullptr);
        return 0;
    };
    std::pair<kz_host_reader*, int> nested{reader, 0};

    check("no reader out", kz_host_reader_new(nullptr, nullptr, message, sizeof message), KZ_HOST_ERROR_ARGUMENT);
    check("module missing", newReader("/nonexistent/libkz_id3.so"), KZ_HOST_ERROR_MODULE_NOT_FOUND);
    EXPECT_NE(std::strstr(message, "/nonexistent/libkz_id3.so"), nullptr) << message;
    check("not the module", newReader(services.c_str()), KZ_HOST_ERROR_MODULE_INVALID);
    EXPECT_NE(std::strstr(message, "VwGetRtns"), nullptr) << message;
    check("empty module path", newReader("", 0), KZ_HOST_ERROR_ARGUMENT);
    check("no reader", kz_host_read_file(nullptr, e, nullptr, &Ignore, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("no path", kz_host_read_file(reader, nullptr, nullptr, &Ignore, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("no visitor", kz_host_read_file(reader, e, nullptr, nullptr, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("no tracer", kz_host_trace_memory(reader, "", 0, nullptr, nullptr, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("options size", kz_host_read_file(reader, e, &badSize, &Ignore, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("info size", kz_host_read_memory(reader, "", 0, nullptr, &Ignore, nullptr, &small), KZ_HOST_ERROR_ARGUMENT);
    check("unknown flag", kz_host_read_memory(reader, "", 0, &badFlags, &Ignore, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("no data", kz_host_read_memory(reader, nullptr, 3, nullptr, &Ignore, nullptr, &i), KZ_HOST_ERROR_ARGUMENT);
    check("no bytes", kz_host_read_memory(reader, nullptr, 0, nullptr, &Ignore, nullptr, &i), KZ_HOST_NOTHING_TO_READ);
    check("missing file", kz_host_read_file(reader, missing.c_str(), nullptr, &Ignore, nullptr, &i), KZ_HOST_ERROR_IO,
          ENOENT);
    check("directory", kz_host_trace_file(reader, directory, nullptr, &Count, &calls, &i), KZ_HOST_ERROR_NOT_REGULAR,
          EISDIR);
    if (access(unreadable.c_str(), R_OK) != 0) {  // root reads it anyway
        check("unreadable", kz_host_read_file(reader, unreadable.c_str(), nullptr, &Ignore, nullptr, &i),
              KZ_HOST_ERROR_IO, EACCES);
    }
    check("empty file", kz_host_read_file(reader, e, nullptr, &Ignore, nullptr, &i), KZ_HOST_NOTHING_TO_READ);
    // What a stop or a limit leaves: the fields before it; the limits say so.
    check("visitor stops", kz_host_read_memory(reader, t, three.size(), nullptr, &Stop, nullptr, &i),
          KZ_HOST_ERROR_STOPPED);
    EXPECT_EQ(last.field_count, 1u);
    check("read inside a read", kz_host_read_memory(reader, t, three.size(), nullptr, readAgain, &nested, &i),
          KZ_HOST_OK);
    check("read inside a read, inner", nested.second, KZ_HOST_ERROR_ARGUMENT);
    check("character limit", kz_host_read_memory(reader, t, three.size(), &fewChars, &Ignore, nullptr, &i),
          KZ_HOST_ERROR_UNFINISHED);
    EXPECT_EQ(last.truncated, 1);
    // The character limit bounds the calls traced too: only the open's.
    check("trace, character limit", kz_host_trace_memory(reader, t, three.size(), &fewChars, &Count, &calls, &i),
          KZ_HOST_ERROR_UNFINISHED);
    EXPECT_EQ(calls, 1u);
    EXPECT_EQ(last.truncated, 1);
    check("block limit", kz_host_read_file(reader, truncated.c_str(), nullptr, &Ignore, nullptr, &i), KZ_HOST_OK);
    EXPECT_EQ(last.truncated, 1);
    EXPECT_EQ(last.end_seen, 1);
    check("collect, no result", kz_host_collect_memory(reader, "", 0, nullptr, nullptr), KZ_HOST_ERROR_ARGUMENT);
    check("collect missing", collect(missing), KZ_HOST_ERROR_IO);
    check("collect truncated", collect(truncated), KZ_HOST_OK);
    check("detect, no path", kz_host_detect_file(nullptr, &type, nullptr), KZ_HOST_ERROR_ARGUMENT);
    check("detect, no type", kz_host_detect_memory("", 0, nullptr, nullptr), KZ_HOST_ERROR_ARGUMENT);
    check("detect, no data", kz_host_detect_memory(nullptr, 1, &type, nullptr), KZ_HOST_ERROR_ARGUMENT);
    check("detect missing", kz_host_detect_file(missing.c_str(), &type, nullptr), KZ_HOST_ERROR_IO, -ENOENT);
    check("detect directory", kz_host_detect_file(directory, &type, nullptr), KZ_HOST_ERROR_NOT_REGULAR, -EISDIR);
    check("frame, no identifier", kz_host_frame_field(nullptr, &number), KZ_HOST_ERROR_ARGUMENT);
    check("frame, no number", kz_host_frame_field("TIT2", nullptr), KZ_HOST_ERROR_ARGUMENT);
    check("frame unknown", kz_host_frame_field("tit2", &number), KZ_HOST_ERROR_ARGUMENT);
    check("walk, no root", kz_host_walk_new(nullptr, nullptr, &walk), KZ_HOST_ERROR_ARGUMENT);
    check("walk, no walk", kz_host_walk_new(directory, nullptr, nullptr), KZ_HOST_ERROR_ARGUMENT);
    check("walk, options size", kz_host_walk_new(directory, &walkSize, &walk), KZ_HOST_ERROR_ARGUMENT);
    check("walk, no extensions", kz_host_walk_new(directory, &noExtensions, &walk), KZ_HOST_ERROR_ARGUMENT);
    check("walk next, no walk", kz_host_walk_next(nullptr, &entry), KZ_HOST_ERROR_ARGUMENT);
    check("walk next, no entry", kz_host_walk_next(nullptr, nullptr), KZ_HOST_ERROR_ARGUMENT);
    // Null objects are harmless.
    size_t size = 1;
    EXPECT_EQ(kz_host_result_packed(nullptr, &size), nullptr);
    EXPECT_TRUE(size == 0 && kz_host_result_count(nullptr) == 0 && kz_host_result_field(nullptr, 0) == nullptr &&
                kz_host_result_info(nullptr) == nullptr);
    EXPECT_STREQ(kz_host_reader_module_path(nullptr), "");
    EXPECT_EQ(walk, nullptr);
    kz_host_walk_free(nullptr);
    kz_host_file_info_init(nullptr);
    kz_host_walk_options_init(nullptr);
    kz_host_reader_options_init(nullptr);
    kz_host_read_options_init(nullptr);
    kz_host_reader_free(nullptr);
    kz_host_result_free(nullptr);
}

// ---- Field numbers, walks, the header's example -------------------------------------

TEST(Kit, NamesFieldNumbersAndFindsThemByIdentifier) {
    // From the ID3v2.2 and ID3v2.3 frame lists: TOA (original performer)
    // is TOPE's form, TOT (original title) TOAL's; TDRC (ID3v2.4) is no
    // frame the module reads.
    // The number of each identifier; -1: none (the status is an error, the number untouched).
    const std::pair<const char*, int64_t> frames[] = {{"TIT2", 118}, {"TT2", 118}, {"TOA", 129}, {"TOT", 126},
                                                      {"WPUB", 161}, {"AENC", 77}, {"TXXX", 0},  {"WXX", 0},
                                                      {"IPL", 0},    {"TDRC", -1}, {"TIT", -1},  {"", -1}};
    for (const auto& [ident, expected] : frames) {
        uint32_t number = 7;
        const int status = kz_host_frame_field(ident, &number);
        EXPECT_EQ(std::make_pair(status, int64_t{number}),
                  std::make_pair(static_cast<int>(expected < 0 ? KZ_HOST_ERROR_ARGUMENT : KZ_HOST_OK), expected < 0 ? 7 : expected)) << ident;
    }
    EXPECT_STREQ(kz_host_field_ident(118), "TIT2");
    EXPECT_STREQ(kz_host_field_label(118), "Title");
    EXPECT_STREQ(kz_host_field_label(80), "Comment");
    for (const uint32_t none : {0u, 76u, 88u, 162u, 500u, 501u}) {
        EXPECT_EQ(kz_host_field_ident(none), nullptr) << none;
        EXPECT_EQ(kz_host_field_label(none), nullptr) << none;
    }
}

// Each entry of a walk as "path errno", END at the end; `gone` is removed
// after the first entry.
Strings Walked(const std::string& root, const kz_host_walk_options* options, const std::string& gone = "") {
    Reader reader;
    kz_host_walk* walk = nullptr;
    EXPECT_EQ(kz_host_walk_new(root.c_str(), options, &walk), KZ_HOST_OK);
    Strings entries;
    const kz_host_walk_entry* entry = nullptr;
    for (int status; (status = kz_host_walk_next(walk, &entry)) == KZ_HOST_OK;) {
        EXPECT_EQ(entry->struct_size, sizeof *entry);
        EXPECT_EQ(entry->path_len, std::strlen(entry->path));
        // A file is read by its name from its open directory.
        if (entry->error == 0) {
            EXPECT_EQ(entry->path + entry->path_len - std::strlen(entry->name), entry->name);
            kz_host_read_options read;
            kz_host_read_options_init(&read);
            read.directory = entry->directory;
            EXPECT_EQ(kz_host_read_file(reader.reader, entry->name, &read, &Ignore, nullptr, nullptr),
                      KZ_HOST_NOTHING_TO_READ) << entry->path;
        }
        entries.push_back(std::string(entry->path).substr(root.size()) + " " + std::to_string(entry->error));
        if (entries.size() == 1 && !gone.empty()) std::filesystem::remove_all(gone);
    }
    kz_host_walk_free(walk);
    return entries + Strings{"END"};
}

TEST(Kit, WalksDirectoriesInOrderNamingEveryDirectoryItCannotRead) {
    TempDir dir;
    const std::string r = dir.path.string() + "/r";
    for (const char* file : {"b.MP3", "a.mp3", "c.txt", "d/x.mp3", "d/skip/y.mp3", "e/z.mp3", "Skip.mp3",
                             "f.tmp.mp3", "d/noext"}) {
        dir.Write(std::string("r/") + file, Bytes{});
    }
    std::filesystem::create_directory_symlink(r + "/d", r + "/link");
    std::filesystem::create_symlink(r + "/a.mp3", r + "/flink.mp3");
    const char* extensions[] = {"mp3"};
    const char* excludes[] = {"skip", "*.tmp.*"};
    kz_host_walk_options options;
    kz_host_walk_options_init(&options);
    options.extensions = extensions;
    options.extension_count = 1;
    options.excludes = excludes;
    options.exclude_count = 2;
    // Standard input closed: a file the kit opens, then the root of the
    // walk, take descriptor 0 and are read all the same.
    Reader reader;
    kz_host_result* result = nullptr;
    const int savedInput = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    const int status = kz_host_collect_file(reader.reader, KZ_SAMPLES_DIR "/two_tags.mp3", nullptr, &result);
    // Folder e goes after the root was listed: it is named where it stood.
    const Strings walked = Walked(r, &options, r + "/e");
    dup2(savedInput, STDIN_FILENO);
    close(savedInput);
    EXPECT_EQ(status, KZ_HOST_OK);
    EXPECT_EQ(kz_host_result_count(result), 4u);
    kz_host_result_free(result);
    EXPECT_EQ(walked, (Strings{"/Skip.mp3 0", "/a.mp3 0", "/b.MP3 0", "/d/x.mp3 0", "/e " + std::to_string(ENOENT),
                               "/flink.mp3 0", "END"}));
    EXPECT_EQ(Walked(r + "/d/", nullptr), (Strings{"noext 0", "skip/y.mp3 0", "x.mp3 0", "END"}));
    EXPECT_EQ(Walked(r + "/none", nullptr), (Strings{" " + std::to_string(ENOENT), "END"}));
    EXPECT_EQ(Walked(r + "/a.mp3", nullptr), (Strings{" " + std::to_string(ENOTDIR), "END"}));
}

// The program at the head of kz_host.h builds as strict C11 against the
// header alone and reads a sample.
TEST(Kit, TheHeadersExampleBuildsAndReadsASample) {
    TempDir dir;
    const std::string source = (dir.path / "example.c").string();
    const std::string program = (dir.path / "example").string();
    ASSERT_EQ(Shell(Quoted({KZ_SOURCE_DIR "/tests/consumers/kit_example.sh", KZ_SOURCE_DIR "/include/kz_host.h"}) +
                          " >" + Quoted({source})).status, 0);
    Strings compile = {KZ_C_COMPILER, "-std=c11", "-pedantic", "-Wall", "-Wextra", "-Werror",
                       "-I" KZ_SOURCE_DIR "/include", source, "-o", program,
                       "-L" KZ_HOST_LIBRARY_DIR, "-Wl,-rpath," KZ_HOST_LIBRARY_DIR, "-lkz_host"};
    // A sanitized kit needs its runtime in the program that loads it.
    if (*KZ_C_SANITIZE != '\0') compile.push_back(KZ_C_SANITIZE);
    const RunResult build = Shell(Quoted(compile));
    ASSERT_EQ(build.status, 0) << build.err;
    const RunResult run = Shell(Quoted({program, KZ_SAMPLES_DIR "/v24_with_id3v1.mp3"}));
    EXPECT_EQ(run.out, "TIT2: Evening Song\nTPE1: The Testers\nTRCK: 7\nID3v1 title: Evening Song\n"
                       "ID3v1 artist: The Testers\nID3v1 album: Sample Album\nID3v1 year: 2004\n"
                       "ID3v1 comment: ID3v1.1 trailer\nID3v1 track: 7\nID3v1 genre: 13\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(Shell(Quoted({program, "/nonexistent.mp3"})).err,
              "/nonexistent.mp3: No such file or directory\n");
}

// ---- Type detection ------------------------------------------------------------------

// Two MPEG audio frames: the header's four bytes, zeros up to the length
// the header declares.
Bytes Audio(std::array<uint8_t, 4> header, size_t length, int count = 2) {
    Bytes frame(length, 0);
    std::copy(header.begin(), header.end(), frame.begin());
    Bytes out;
    for (int i = 0; i < count; ++i) out += frame;
    return out;
}

TEST(Kit, DetectsTheFileTypeFromTheTagsAndTheFirstAudioFrame) {
    const Bytes tag = Tag(3, Frame(3, "TIT2", Text("T")));
    const Bytes trailer = Id3v1({.title = "V"});
    // MPEG-1 Layer III, 128 kbit/s, 44.1 kHz: 144 * 128000 / 44100 bytes.
    const Bytes layer3 = Audio({0xFF, 0xFB, 0x90, 0x00}, 417);
    const struct {
        Bytes bytes;
        uint16_t type;
        int audio = 1;  // an audio frame was found
    } cases[] = {
        {tag + layer3, 1707},
        {tag + Audio({0xFF, 0xFB, 0x92, 0x00}, 418), 1707},  // padded: a byte longer
        {tag + tag + Zeros(100) + layer3, 1707},  // after both tags and some padding
        {tag + Audio({0xFF, 0xFB, 0x90, 0x00}, 417, 1), 1707},  // one frame ending the file
        {tag + layer3 + Zeros(10), 1707},                      // two frames, then no audio
        {layer3 + trailer, 1706},
        {layer3, 1710},
        // 32 kbit/s: Layer I (12 * 32000 / 44100) * 4, Layer II 144 * 32000 / 44100.
        {tag + Audio({0xFF, 0xFF, 0x10, 0x00}, 32), 1711},
        {tag + Audio({0xFF, 0xFD, 0x10, 0x00}, 104), 1712},
        // MPEG-2 at 22.05 kHz: Layer I 32 kbit/s (12 * 32000 / 22050) * 4;
        // Layers II and III 8 kbit/s, 144 and 72 * 8000 / 22050.
        {tag + Audio({0xFF, 0xF7, 0x10, 0x00}, 68), 1713},
        {tag + Audio({0xFF, 0xF5, 0x10, 0x00}, 52), 1714},
        {tag + Audio({0xFF, 0xF3, 0x10, 0x00}, 26), 1715},
        // MPEG-2.5 Layer III at 11.025 kHz: 72 * 8000 / 11025.
        {tag + Audio({0xFF, 0xE3, 0x10, 0x00}, 52), 1715},
        // A header that no second header confirms is no audio, nor is one
        // with the reserved emphasis; only "ID3" starts a tag header.
        {tag + Audio({0xFF, 0xFB, 0x90, 0x02}, 417), 1709, 0},
        {Raw({'X', 'Y', 'Z', 3}) + Zeros(996), 1710, 0},
        {tag + Audio({0xFF, 0xFB, 0x90, 0x00}, 417, 1) + Zeros(10), 1709, 0},
        {tag, 1709, 0},
        {trailer, 1708, 0},
        {Zeros(1000), 1710, 0},
        {Bytes{}, 1710, 0},
    };
    TempDir dir;
    for (const auto& c : cases) {
        uint16_t types[2] = {};
        int audio[2] = {-1, -1};
        EXPECT_EQ(kz_host_detect_memory(c.bytes.data(), c.bytes.size(), &types[0], &audio[0]), KZ_HOST_OK);
        EXPECT_EQ(kz_host_detect_file(dir.Write("file", c.bytes).c_str(), &types[1], &audio[1]), KZ_HOST_OK);
        EXPECT_EQ(std::vector<int>({types[0], types[1], audio[0], audio[1]}),
                  std::vector<int>({c.type, c.type, c.audio, c.audio})) << &c - cases;
    }
}

// ---- Samples and corpus ----------------------------------------------------------------

std::string Hex(const char* text, size_t length) {
    std::string out;
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        out += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    }
    return out;
}

// One line per file and one per item, as kJsonSummary gives kzdump's JSON,
// texts in hexadecimal UTF-8.
std::string Summary(const std::string& path, const kz_host_result* result) {
    if (result == nullptr) return path + " not read\n";
    const kz_host_file_info& info = *kz_host_result_info(result);
    std::string out = path + "|" + std::to_string(info.open_status) + "|" + info.type_name + "|" +
                      (info.end_seen ? "true" : "false") + "\n";
    for (size_t i = 0; i < kz_host_result_count(result); ++i) {
        const kz_host_field& f = *kz_host_result_field(result, i);
        if (f.kind == KZ_HOST_ITEM_FAILURE) out += "X|" + std::to_string(f.tag);
        else if (f.kind == KZ_HOST_ITEM_OUTSIDE) out += "O|" + Hex(f.text, f.text_len);
        else out += "F|" + std::to_string(f.tag) + "|" + std::to_string(f.number) + "|" + f.ident + "|" +
                    (f.description != nullptr ? Hex(f.description, f.description_len) : "-") + "|" +
                    Hex(f.text, f.text_len);
        out += "\n";
    }
    return out;
}

// Each file read from the file and from its bytes in memory, by one reader.
std::array<std::string, 2> ReadAll(const Strings& files) {
    Reader r;
    std::array<std::string, 2> out;
    for (const std::string& path : files) {
        const std::string bytes = ReadWhole(path);
        kz_host_result* results[2] = {};
        kz_host_collect_file(r.reader, path.c_str(), nullptr, &results[0]);
        kz_host_collect_memory(r.reader, bytes.data(), bytes.size(), nullptr, &results[1]);
        for (int i = 0; i < 2; ++i) {
            out[i] += Summary(path, results[i]);
            kz_host_result_free(results[i]);
        }
    }
    return out;
}

// Generated tags whose bodies of 0 to 20,000 bytes (many of 8 to 17 KiB)
// start at every kind of offset from the start of the file, with padding,
// audio and sometimes an ID3v1 trailer: read by path, read from memory and
// read by path paging at every frame, they give the same fields.  First, a
// picture of 6,000, 12,000 (the one a file stream once read short) and
// 17,000 bytes between two text frames.
TEST(Kit, ReadsGeneratedFilesAlikeByPathAndFromMemory) {
    std::mt19937 random(24);
    const auto below = [&random](uint32_t n) { return static_cast<uint32_t>(random() % n); };
    const char* const texts[] = {"TIT2", "TPE1", "TALB", "TCON"};
    TempDir dir;
    Strings files;
    for (const size_t size : {6000, 12000, 17000}) {
        const Bytes picture = Raw({0}) + Latin1("image/jpeg") + Raw({0, 3}) + Latin1("c") + Raw({0}) + Bytes(size - 15, 0xAB);
        files.push_back(dir.Write(std::string("apic") + std::to_string(size) + ".mp3",
                                  Tag(3, Frame(3, "TIT2", Text("Title")) + Frame(3, "APIC", picture) +
                                             Frame(3, "TPE1", Text("Artist"))) + SilentMpegFrames(4)));
    }
    for (int n = 0; n < 300; ++n) {
        const int major = 3 + static_cast<int>(below(2));
        Bytes frames;
        for (uint32_t f = 0, count = 2 + below(7); f < count; ++f) {
            const uint32_t size = below(3) == 0 ? below(200) : below(2) == 0 ? 8192 + below(9216) : below(20000);
            Bytes filler(size, 0);
            for (uint8_t& byte : filler) byte = static_cast<uint8_t>('a' + below(26));
            switch (below(4)) {
                case 0: frames += Frame(major, texts[below(4)], Raw({0}) + filler); break;
                case 1: frames += Frame(major, "COMM", Text("eng") + Raw({0}) + filler); break;
                case 2: frames += Frame(major, "USLT", Text("eng") + Latin1("d") + Raw({0}) + filler); break;
                default: frames += Frame(major, "TXXX", Text("k") + Raw({0}) + filler); break;
            }
        }
        Bytes file = Tag(major, frames, {.padding = below(2) == 0 ? 0 : below(3000)}) + SilentMpegFrames(1 + below(8));
        if (below(3) == 0) file += Id3v1({.title = std::string("V") + std::to_string(n), .track = 1});
        files.push_back(dir.Write(std::to_string(n) + ".mp3", file));
    }
    const std::array<std::string, 2> reads = ReadAll(files);
    EXPECT_EQ(reads[0], reads[1]);
    Reader r;
    kz_host_read_options paged;
    kz_host_read_options_init(&paged);
    paged.stop_every = 1;
    std::string pagedByPath;
    for (const std::string& path : files) {
        kz_host_result* result = nullptr;
        kz_host_collect_file(r.reader, path.c_str(), &paged, &result);
        pagedByPath += Summary(path, result);
        kz_host_result_free(result);
    }
    EXPECT_EQ(pagedByPath, reads[1]);
}

#ifdef KZDUMP_PATH
const char* const kJsonSummary = R"(import json, sys
hex = lambda s: s.encode('utf-8', 'surrogatepass').hex()
for line in sys.stdin:
    f = json.loads(line)
    print('%s|%d|%s|%s' % (f['path'], f['status'], f['type'], 'true' if f['end'] else 'false'))
    for x in f['fields']:
        if 'failure' in x:
            print('X|%d' % x['failure'])
        elif 'outside' in x:
            print('O|' + hex(x['text']))
        else:
            print('F|%d|%d|%s|%s|%s' % (x['tag'], x['field'], x['id'],
                  hex(x['description']) if 'description' in x else '-', hex(x['text'])))
)";

// Every sample and real-world file gives what kzdump --json shows, read
// from the file or from memory, on two threads at once.  (The packed form is
// checked against the fields by fuzz/fuzz_kit.cpp.)
TEST(KzdumpAndKit, SamplesAndCorpusReadAlikeFromFilesMemoryAndTwoThreads) {
    const Strings files = SampleAndCorpusFiles();
    const std::string expected = Python(kJsonSummary, Shell(Quoted(Strings{KZDUMP_PATH, "--json"} + files)).out);
    ASSERT_FALSE(expected.empty());
    std::array<std::string, 2> reads[2];
    std::thread second([&] { reads[1] = ReadAll(files); });
    reads[0] = ReadAll(files);
    second.join();
    for (const auto& threadReads : reads) {
        for (const std::string& summary : threadReads) EXPECT_EQ(summary, expected);
    }
}
#endif

}  // namespace
