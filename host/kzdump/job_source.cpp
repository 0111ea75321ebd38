#include "job_source.h"

#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

namespace kzdump {

namespace {

bool IsDirectory(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
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
      extensions_(std::move(extensions)) {
    for (const std::string& extension : extensions_) extensionPointers_.push_back(extension.c_str());
}

JobSource::~JobSource() {
    kz_host_walk_free(walk_);
    std::free(line_);
}

bool JobSource::Next(Job& job) {
    job.error.clear();
    for (;;) {
        if (FromWalk(job)) return true;
        if (nextInput_ == inputs_.size()) return false;
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
}

// A path given by the user: a job, or with -r a directory to walk.
bool JobSource::FromPath(std::string path, Job& job) {
    // Without -r a directory is refused when it is opened, like any file
    // that cannot be read.
    if (recursive_ && IsDirectory(path)) {
        kz_host_walk_options options;
        kz_host_walk_options_init(&options);
        options.extensions = extensionPointers_.data();
        options.extension_count = extensionPointers_.size();
        if (kz_host_walk_new(path.c_str(), &options, &walk_) == KZ_HOST_OK) {
            walkRoot_ = std::move(path);
            return false;
        }
        job.error = kz_host_strerror(KZ_HOST_ERROR_NO_MEMORY);
    }
    job.path = std::move(path);
    ++given_;
    return true;
}

bool JobSource::FromWalk(Job& job) {
    if (walk_ == nullptr) return false;
    const kz_host_walk_entry* entry = nullptr;
    const int status = kz_host_walk_next(walk_, &entry);
    if (status == KZ_HOST_WALK_END) {
        kz_host_walk_free(walk_);
        walk_ = nullptr;
        return false;
    }
    if (status != KZ_HOST_OK) {
        job.path = walkRoot_;
        job.error = kz_host_strerror(status);
        kz_host_walk_free(walk_);
        walk_ = nullptr;
        ++given_;
        return true;
    }
    job.path.assign(entry->path, entry->path_len);
    if (entry->error != 0) job.error = std::string("cannot read the directory: ") + std::strerror(entry->error);
    ++given_;
    return true;
}

}  // namespace kzdump
