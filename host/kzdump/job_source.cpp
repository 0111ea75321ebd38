#include "job_source.h"

#include "interrupt.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kzdump {

namespace {

bool IsDirectory(const std::string& path) {
    struct stat status;
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

constexpr size_t kListChunk = 64 * 1024;

}  // namespace

bool CountPaths(int list, char separator, size_t& count) {
    struct stat status;
    off_t at = ::lseek(list, 0, SEEK_CUR);
    if (at < 0 || ::fstat(list, &status) != 0 || !S_ISREG(status.st_mode)) return false;
    count = 0;
    bool inPath = false;
    char buffer[kListChunk];
    for (ssize_t length; (length = ::pread(list, buffer, sizeof buffer, at)) != 0; at += length) {
        if (length < 0) return false;
        for (ssize_t i = 0; i < length; ++i) {
            const bool between = buffer[i] == separator;
            if (!between && !inPath) ++count;
            inPath = !between;
        }
    }
    return true;
}

JobSource::JobSource(std::vector<Input> inputs, bool recursive, char listSeparator, WalkFilter filter)
    : inputs_(std::move(inputs)), recursive_(recursive), listSeparator_(listSeparator), filter_(std::move(filter)) {
    for (const std::string& extension : filter_.extensions) extensions_.push_back(extension.c_str());
    for (const std::string& pattern : filter_.excludes) excludes_.push_back(pattern.c_str());
}

JobSource::~JobSource() { kz_host_walk_free(walk_); }

bool JobSource::Counted() {
    ++given_;
    return true;
}

OpenDirectory::~OpenDirectory() { ::close(fd); }

bool JobSource::Next(Job& job) {
    job.error.clear();
    job.standardInput = false;
    job.directory.reset();
    job.nameAt = 0;
    while (StopSignal() == 0) {
        if (FromWalk(job)) return true;
        if (nextInput_ == inputs_.size()) return false;
        Input& input = inputs_[nextInput_];
        if (input.list < 0) {
            ++nextInput_;
            if (input.path == "-") {
                job.path.assign(1, '-');  // not = "-": GCC 12 warns falsely of overlap (-Wrestrict)
                job.standardInput = true;
                return Counted();
            }
            if (FromPath(std::move(input.path), job)) return true;
            continue;
        }
        std::string path;
        const int read = ReadLine(input.list, path);
        if (read == 1) {
            // Blank lines are no paths.
            if (!path.empty() && FromPath(std::move(path), job)) return true;
            continue;
        }
        if (read == -2) return false;
        ++nextInput_;
        listBuffer_.clear();
        listStart_ = 0;
        listEnded_ = false;
        if (read == -1) {
            job.path = input.path;
            job.error = std::string("cannot read the path list: ") + std::strerror(errno);
            return Counted();
        }
    }
    return false;
}

int JobSource::ReadLine(int list, std::string& line) {
    for (;;) {
        const size_t end = listBuffer_.find(listSeparator_, listStart_);
        if (end != std::string::npos || (listEnded_ && listStart_ < listBuffer_.size())) {
            const size_t stop = end != std::string::npos ? end : listBuffer_.size();
            line.assign(listBuffer_, listStart_, stop - listStart_);
            listStart_ = stop + 1;
            return 1;
        }
        if (listEnded_) return 0;
        listBuffer_.erase(0, listStart_);
        listStart_ = 0;
        // A pipe may keep the list waiting: a stop signal ends the wait.
        pollfd waits[2] = {{list, POLLIN, 0}, {StopWakeDescriptor(), POLLIN, 0}};
        if (::poll(waits, waits[1].fd < 0 ? 1 : 2, -1) < 0 && errno != EINTR) return -1;
        if (StopSignal() != 0) return -2;
        if ((waits[0].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
        const size_t size = listBuffer_.size();
        listBuffer_.resize(size + kListChunk);
        const ssize_t length = ::read(list, listBuffer_.data() + size, kListChunk);
        listBuffer_.resize(size + (length > 0 ? static_cast<size_t>(length) : 0));
        if (length == 0) listEnded_ = true;
        if (length < 0 && errno != EINTR && errno != EAGAIN) return -1;
    }
}

// A path given by the user: a job, or with -r a directory to walk.
bool JobSource::FromPath(std::string path, Job& job) {
    // Without -r a directory is refused when it is opened, like any file
    // that cannot be read.
    if (recursive_ && IsDirectory(path)) {
        kz_host_walk_options options;
        kz_host_walk_options_init(&options);
        options.extensions = extensions_.data();
        options.extension_count = extensions_.size();
        options.excludes = excludes_.data();
        options.exclude_count = excludes_.size();
        if (kz_host_walk_new(path.c_str(), &options, &walk_) == KZ_HOST_OK) {
            walkRoot_ = std::move(path);
            walkFiles_ = 0;
            return false;
        }
        job.error = kz_host_strerror(KZ_HOST_ERROR_NO_MEMORY);
    }
    job.path = std::move(path);
    return Counted();
}

bool JobSource::FromWalk(Job& job) {
    if (walk_ == nullptr) return false;
    const kz_host_walk_entry* entry = nullptr;
    const int status = kz_host_walk_next(walk_, &entry);
    if (status == KZ_HOST_OK) {
        job.path.assign(entry->path, entry->path_len);
        if (entry->error != 0) {
            job.error = std::string("cannot read the directory: ") + std::strerror(entry->error);
            return Counted();
        }
        ++walkFiles_;
        // One duplicate of the walk's descriptor per directory: the walk
        // closes its own when it moves on, maybe before a worker reads.
        job.nameAt = static_cast<size_t>(entry->name - entry->path);
        const std::string_view directory(entry->path, job.nameAt);
        if (walkDirectory_ == nullptr || directory != walkDirectoryPath_) {
            const int fd = ::fcntl(entry->directory, F_DUPFD_CLOEXEC, 0);
            walkDirectory_ = fd >= 0 ? std::make_shared<const OpenDirectory>(fd) : nullptr;
            walkDirectoryPath_.assign(directory);
        }
        job.directory = walkDirectory_;
        if (job.directory == nullptr) job.nameAt = 0;  // no descriptor left: the whole path
        return Counted();
    }
    kz_host_walk_free(walk_);
    walk_ = nullptr;
    walkDirectory_.reset();
    walkDirectoryPath_.clear();
    if (status == KZ_HOST_WALK_END) {
        if (walkFiles_ == 0) emptyWalks_.push_back(walkRoot_);
        return false;
    }
    job.path = walkRoot_;
    job.error = kz_host_strerror(status);
    return Counted();
}

}  // namespace kzdump
