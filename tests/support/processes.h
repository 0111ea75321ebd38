// Helpers for tests that run programs: a temporary directory, a shell
// command with its outputs and exit status, a python3 script, file lists.
#ifndef KZ_TESTS_PROCESSES_H
#define KZ_TESTS_PROCESSES_H

#include <filesystem>
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
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string Write(const std::string& name, const Bytes& bytes) const;
    std::string Write(const std::string& name, const std::string& text) const;
    std::filesystem::path path;
};

std::string ReadWhole(const std::filesystem::path& path);
// The words quoted for the shell, each after a space.
std::string Quoted(const Strings& words);
// Runs a shell command, its error output captured in a file.
RunResult Run(const std::string& command);
// Runs a python3 script on `input`; its standard output, after checking that
// it ran to its end.
std::string Python(const std::string& script, const std::string& input, const Strings& args = {});
// The regular files of a directory with this extension (empty: any but
// .md), sorted.
Strings FilesIn(const std::filesystem::path& directory, const std::string& extension);

}  // namespace kztest

#endif  // KZ_TESTS_PROCESSES_H
