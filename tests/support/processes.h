// Helpers for tests that run programs: a temporary directory, a shell
// command with its outputs and exit status, a python3 script, the sample
// and corpus files.
#ifndef KZ_TESTS_PROCESSES_H
#define KZ_TESTS_PROCESSES_H

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tag_builder.h"

namespace kztest {

using Strings = std::vector<std::string>;

// Concatenation (the recording host's Calls are the same type and define it).
Strings operator+(Strings a, const Strings& b);

struct RunResult {
    int status = -1;  // exit status; -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// A directory under the system's temporary directory, removed at the end.
struct TempDir {
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kz-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr) path = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    // Writes the file (its directories too); its path.
    std::string Write(const std::string& name, const Bytes& bytes) const {
        const std::filesystem::path file = path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return file.string();
    }
    std::string Write(const std::string& name, const std::string& text) const { return Write(name, Latin1(text)); }
    std::filesystem::path path;
};

inline std::string ReadWhole(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// The words quoted for the shell, each after a space.
inline std::string Quoted(const Strings& words) {
    std::string out;
    for (const std::string& word : words) {
        out += " '";
        for (const char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        out += "'";
    }
    return out;
}

// Runs a shell command, its error output captured in a file.
inline RunResult Shell(const std::string& command) {
    TempDir capture;
    RunResult result;
    FILE* pipe = popen((command + " 2>" + Quoted({(capture.path / "err").string()})).c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[65536];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.out.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.err = ReadWhole(capture.path / "err");
    return result;
}

// Runs a python3 script on `input`; its standard output, after checking that
// it ran to its end.
inline std::string Python(const std::string& script, const std::string& input) {
    TempDir dir;
    const RunResult run = Shell("PYTHONIOENCODING=utf-8:surrogateescape python3" + Quoted({dir.Write("script.py", script)}) +
                              " <" + Quoted({dir.Write("in", input)}));
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
}

// The samples (*.mp3) and every file of the real-world corpus, sorted.
inline Strings SampleAndCorpusFiles() {
    Strings files[2];
    for (int i = 0; i < 2; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(i == 0 ? KZ_SAMPLES_DIR : KZ_CORPUS_DIR)) {
            const std::string ext = entry.path().extension().string();
            if (entry.is_regular_file() && (i == 0 ? ext == ".mp3" : ext != ".md")) files[i].push_back(entry.path().string());
        }
        std::sort(files[i].begin(), files[i].end());
    }
    return files[0] + files[1];
}

}  // namespace kztest

#endif  // KZ_TESTS_PROCESSES_H
