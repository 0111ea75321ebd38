#include "path_list.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace kzdump {

namespace fs = std::filesystem;

namespace {

void Walk(const fs::path& directory, std::vector<Job>& jobs) {
    std::error_code ec;
    fs::directory_iterator it(directory, ec);
    if (ec) {
        jobs.push_back(Job{directory.string(), "cannot read the directory: " + ec.message()});
        return;
    }
    // The entries carry their type from the directory listing: no stat each.
    // Each name is taken once, not at every comparison of the sort.
    std::vector<std::pair<std::string, fs::directory_entry>> entries;
    for (const fs::directory_entry& entry : it) {
        entries.emplace_back(entry.path().filename().native(), entry);
    }
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [name, entry] : entries) {
        // Symbolic links to directories are not followed: no walk can loop.
        if (entry.is_directory(ec) && !entry.is_symlink(ec)) {
            Walk(entry.path(), jobs);
        } else if (!entry.is_symlink(ec) || !entry.is_directory(ec)) {
            jobs.push_back(Job{entry.path().string(), {}});
        }
    }
}

}  // namespace

std::vector<Job> ListJobs(const std::vector<std::string>& arguments, bool recursive) {
    std::vector<Job> jobs;
    // Without -r a directory is refused when it is opened, like any file
    // that cannot be read.
    for (const std::string& argument : arguments) {
        std::error_code ec;
        if (recursive && fs::is_directory(argument, ec)) {
            Walk(argument, jobs);
        } else {
            jobs.push_back(Job{argument, {}});
        }
    }
    return jobs;
}

}  // namespace kzdump
