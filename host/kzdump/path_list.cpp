#include "path_list.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <sys/stat.h>

namespace kzdump {

namespace {

bool IsDirectory(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string Join(const std::string& directory, const char* name) {
    return directory.ends_with('/') ? directory + name : directory + "/" + name;
}

}  // namespace

bool CountPaths(FILE* list, char separator, size_t& count) {
    struct stat status;
    const long start = std::ftell(list);
    if (start < 0 || ::fstat(::fileno(list), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    count = 0;
    bool inPath = false;
    char buffer[64 * 1024];
    for (size_t length; (length = std::fread(buffer, 1, sizeof buffer, list)) > 0;) {
        for (size_t i = 0; i < length; ++i) {
            const bool between = buffer[i] == separator;
            if (!between && !inPath) ++count;
            inPath = !between;
        }
    }
    const bool read = !std::ferror(list);
    return std::fseek(list, start, SEEK_SET) == 0 && read;
}

JobSource::JobSource(std::vector<Input> inputs, bool recursive, char listSeparator,
                     std::vector<std::string> extensions)
    : inputs_(std::move(inputs)),
      recursive_(recursive),
      listSeparator_(listSeparator),
      extensions_(std::move(extensions)) {}

JobSource::~JobSource() { std::free(line_); }

bool JobSource::Next(Job& job) {
    job.error.clear();
    while (!finished_) {
        if (!walkError_.empty()) {
            job.path.swap(walkErrorPath_);
            job.error.swap(walkError_);
            walkError_.clear();
            ++given_;
            return true;
        }
        if (FromWalk(job)) return true;
        if (nextInput_ == inputs_.size()) {
            finished_ = true;
            break;
        }
        Input& input = inputs_[nextInput_];
        if (input.list == nullptr) {
            ++nextInput_;
            if (FromPath(std::move(input.path), job)) return true;
            continue;
        }
        const ssize_t length = ::getdelim(&line_, &lineCapacity_, listSeparator_, input.list);
        if (length < 0) {
            ++nextInput_;
            continue;
        }
        std::string path(line_, static_cast<size_t>(length));
        if (!path.empty() && path.back() == listSeparator_) path.pop_back();
        // Blank lines are no paths.
        if (!path.empty() && FromPath(std::move(path), job)) return true;
    }
    return false;
}

// A path given by the user: a job, or with -r a directory to walk.
bool JobSource::FromPath(std::string path, Job& job) {
    // Without -r a directory is refused when it is opened, like any file
    // that cannot be read.
    if (recursive_ && IsDirectory(path)) {
        Enter(std::move(path));
        return false;
    }
    job.path = std::move(path);
    ++given_;
    return true;
}

bool JobSource::FromWalk(Job& job) {
    while (!walk_.empty()) {
        Directory& directory = walk_.back();
        if (directory.next == directory.entries.size()) {
            walk_.pop_back();
            continue;
        }
        auto& [name, isDirectory] = directory.entries[directory.next++];
        std::string path = Join(directory.path, name.c_str());
        if (isDirectory) {
            Enter(std::move(path));
            if (!walkError_.empty()) return false;
            continue;
        }
        job.path = std::move(path);
        ++given_;
        return true;
    }
    return false;
}

// Lists a directory, sorted; its entries carry their type from the listing
// where the file system gives it, so most need no stat.
void JobSource::Enter(std::string path) {
    DIR* stream = ::opendir(path.c_str());
    if (stream == nullptr) {
        walkError_ = std::string("cannot read the directory: ") + std::strerror(errno);
        walkErrorPath_ = std::move(path);
        return;
    }
    Directory directory;
    while (const dirent* entry = ::readdir(stream)) {
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        bool isDirectory = entry->d_type == DT_DIR;
        if (entry->d_type == DT_UNKNOWN) {
            struct stat status;
            isDirectory = ::lstat(Join(path, name).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        } else if (entry->d_type == DT_LNK && IsDirectory(Join(path, name))) {
            // Symbolic links to directories are not followed: no walk can loop.
            continue;
        }
        if (isDirectory || Wanted(name)) directory.entries.emplace_back(name, isDirectory);
    }
    ::closedir(stream);
    std::sort(directory.entries.begin(), directory.entries.end());
    directory.path = std::move(path);
    walk_.push_back(std::move(directory));
}

bool JobSource::Wanted(const std::string& name) const {
    if (extensions_.empty()) return true;
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos) return false;
    std::string extension = name.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return std::find(extensions_.begin(), extensions_.end(), extension) != extensions_.end();
}

}  // namespace kzdump
