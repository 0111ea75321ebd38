// The host guide and the README against what they describe: the guide's
// example files deliver what it says, its field table is the header's, and
// every C excerpt is a verbatim part of the example host.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "id3v2/frame_walker.h"
#include "kz_id3.h"
#include "processes.h"
#include "recording_host.h"

namespace {

using namespace kztest;

std::string Source(const std::string& path) { return ReadWhole(std::string(KZ_SAMPLES_DIR) + "/../" + path); }

// The cells of the rows of every table whose header row starts with `header`.
std::vector<Strings> Rows(const std::string& markdown, const std::string& header) {
    std::vector<Strings> rows;
    std::istringstream lines(markdown);
    bool inTable = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(header)) {
            inTable = static_cast<bool>(std::getline(lines, line));  // past the |---| row
            continue;
        }
        inTable = inTable && line.starts_with('|');
        if (!inTable) continue;
        Strings cells;
        std::istringstream split(line.substr(1));
        for (std::string cell; std::getline(split, cell, '|');) {
            const size_t first = cell.find_first_not_of(' ');
            const size_t last = cell.find_last_not_of(' ');
            cells.push_back(first == std::string::npos ? "" : cell.substr(first, last + 1 - first));
        }
        rows.push_back(cells);
    }
    return rows;
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

// A character as the guide shows it: UTF-8, a control character as \xNN
// (its examples stay in the Basic Multilingual Plane).
std::string Shown(unsigned c) {
    char hex[8];
    if (c < 0x20 || (c >= 0x7F && c <= 0x9F)) return {hex, size_t(std::snprintf(hex, sizeof hex, "\\x%02X", c))};
    if (c < 0x80) return {char(c)};
    if (c < 0x800) return {char(0xC0 | c >> 6), char(0x80 | (c & 0x3F))};
    return {char(0xE0 | c >> 12), char(0x80 | (c >> 6 & 0x3F)), char(0x80 | (c & 0x3F))};
}

// The fields of a read as the guide shows them, "IDENT: text".
Strings Fields(const Calls& calls) {
    Strings fields;
    std::string text;
    for (const std::string& call : calls) {
        unsigned tag = 0, c = 0;
        if (std::sscanf(call.c_str(), "begin F %u %u", &tag, &c) == 2) {
            fields.push_back(KzFieldIdent(c));
            text.clear();
        } else if (std::sscanf(call.c_str(), "char %x", &c) == 1) {
            text += Shown(c);
        } else if (call.starts_with("end F")) {
            fields.back() += text.empty() ? ":" : ": " + text;
        }
    }
    return fields;
}

TEST(HostGuide, ExampleFilesDeliverWhatTheGuideSays) {
    const std::vector<Strings> rows = Rows(Source("docs/host-guide.md"), "| Tag content | The host receives |");
    ASSERT_GE(rows.size(), 12u);
    for (const Strings& cells : rows) {
        Session s(FileFrom(Spans(cells[0]).at(0)));
        EXPECT_EQ(Fields(s.StartAndRead()), Spans(cells[1])) << cells[0];
    }
}

// Each row is KzFieldIdent and KzFieldLabel of its number, every number they
// name has a row, and its identifiers are the ones the module dispatches with
// that number.
TEST(HostGuide, FieldTableIsTheHeaders) {
    const std::vector<Strings> rows = Rows(Source("docs/host-guide.md"), "| Field | Identifier |");
    size_t row = 0;
    for (uint32_t number = 0; number <= KZ_FIELD_USER_DEFINED_BASE; ++number) {
        if (KzFieldIdent(number) == nullptr) continue;
        ASSERT_LT(row, rows.size()) << number;
        const Strings& cells = rows[row++];
        EXPECT_EQ(cells[0] + " " + cells[1] + " " + cells[2],
                  std::to_string(number) + " `" + KzFieldIdent(number) + "` " + KzFieldLabel(number));
        for (const std::string& id : Spans(cells[1] + cells[3])) {
            uint32_t frameId = 0;
            for (const char c : id) frameId = frameId << 8 | static_cast<uint8_t>(c);
            EXPECT_EQ(kz::FieldNumberOf(frameId), number) << id;
        }
    }
    EXPECT_EQ(row, rows.size());
}

TEST(HostGuide, CodeExcerptsAreTheExampleHosts) {
    const std::string example = Source("examples/minimal_host.c");
    const std::string readme = Source("README.md");
    const size_t section = readme.find("## How a host drives the module");
    ASSERT_NE(section, std::string::npos);
    int excerpts = 0;
    for (const std::string& text : {readme.substr(section, readme.find("\n## ", section) - section),
                                    Source("docs/host-guide.md")}) {
        for (size_t start = text.find("```c\n"); start != std::string::npos;
             start = text.find("```c\n", start + 1)) {
            const std::string excerpt = text.substr(start + 5, text.find("```", start + 5) - start - 5);
            EXPECT_NE(example.find(excerpt), std::string::npos) << excerpt;
            ++excerpts;
        }
    }
    EXPECT_GE(excerpts, 6);
}

}  // namespace
