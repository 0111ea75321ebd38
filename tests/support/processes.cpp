#include "processes.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kztest {

namespace fs = std::filesystem;

TempDir::TempDir() {
    std::string pattern = (fs::temp_directory_path() / "kz-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    fs::remove_all(path, ec);
}

std::string TempDir::Write(const std::string& name, const Bytes& bytes) const {
    const fs::path file = path / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return file.string();
}

std::string TempDir::Write(const std::string& name, const std::string& text) const {
    return Write(name, Latin1(text));
}

std::string ReadWhole(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

std::string Quoted(const Strings& words) {
    std::string out;
    for (const std::string& word : words) {
        out += " '";
        for (const char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
        out += "'";
    }
    return out;
}

RunResult Run(const std::string& command) {
    TempDir capture;
    const std::string err = (capture.path / "err").string();
    RunResult result;
    FILE* pipe = popen((command + " 2>" + Quoted({err})).c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << "cannot start " << command;
        return result;
    }
    char buffer[65536];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.out.append(buffer, n);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.err = ReadWhole(err);
    return result;
}

std::string Python(const std::string& script, const std::string& input, const Strings& args) {
    TempDir dir;
    const RunResult run = Run("PYTHONIOENCODING=utf-8:surrogateescape python3" +
                              Quoted(Strings{dir.Write("script.py", script)} + args) + " <" +
                              Quoted({dir.Write("in", input)}));
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
}

Strings FilesIn(const fs::path& directory, const std::string& extension) {
    Strings files;
    std::error_code ec;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory, ec)) {
        const std::string ext = entry.path().extension().string();
        if (entry.is_regular_file() && (extension.empty() ? ext != ".md" : ext == extension))
            files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace kztest
