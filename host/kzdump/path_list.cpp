#include "path_list.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

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
    std::vector<fs::path> entries;
    for (const fs::directory_entry& entry : it) entries.push_back(entry.path());
    std::sort(entries.begin(), entries.end(), [](const fs::path& a, const fs::path& b) {
        return a.filename().native() < b.filename().native();
    });
    for (const fs::path& entry : entries) {
        // Symbolic links to directories are not followed: no walk can loop.
        const fs::file_status status = fs::symlink_status(entry, ec);
        if (!ec && fs::is_directory(status)) {
            Walk(entry, jobs);
        } else if (ec || !fs::is_symlink(status) || !fs::is_directory(entry, ec)) {
            jobs.push_back(Job{entry.string(), {}});
        }
    }
}

}  // namespace

std::vector<Job> ListJobs(const std::vector<std::string>& arguments, bool recursive) {
    std::vector<Job> jobs;
    for (const std::string& argument : arguments) {
        std::error_code ec;
        if (!fs::is_directory(argument, ec)) {
            jobs.push_back(Job{argument, {}});
        } else if (recursive) {
            Walk(argument, jobs);
        } else {
            jobs.push_back(Job{argument, "is a directory (use -r to read the files under it)"});
        }
    }
    return jobs;
}

}  // namespace kzdump
