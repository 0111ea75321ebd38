// The files to read: the paths of the command line and of path lists, with
// directories walked (by the host kit's walk) as the run goes.
#ifndef KZDUMP_JOB_SOURCE_H
#define KZDUMP_JOB_SOURCE_H

#include "kz_host.h"

#include <memory>
#include <string>
#include <vector>

namespace kzdump {

// A path, or an open list of paths (one a line, or NUL-separated).
struct Input {
    std::string path;
    int list = -1;  // the list's descriptor; -1: `path` is a path
};

// The paths a list that is a regular file holds from where it stands,
// blank lines left out; false for a pipe or when it cannot be read.
bool CountPaths(int list, char separator, size_t& count);

// A directory of a walk, open while jobs in it wait to be read.
struct OpenDirectory {
    explicit OpenDirectory(int descriptor) : fd(descriptor) {}
    ~OpenDirectory();
    OpenDirectory(const OpenDirectory&) = delete;
    OpenDirectory& operator=(const OpenDirectory&) = delete;
    const int fd;
};

// A file to read (standard input for "-" on the command line), or a path
// that cannot be read, with the reason.  A file of a walk is read by its
// name from its open directory, which spares the lookup of the whole path.
struct Job {
    std::string path;
    std::string error;
    bool standardInput = false;
    std::shared_ptr<const OpenDirectory> directory;
    size_t nameAt = 0;  // where the name within `directory` starts in `path`
};

// What the walks take and leave out (see kz_host_walk_options).
struct WalkFilter {
    std::vector<std::string> extensions;
    std::vector<std::string> excludes;
};

// Gives the jobs one by one, in order: each input in turn; with `recursive`,
// a directory gives the files under it in the order of the kit's walk, and
// a directory the walk cannot read gives a job with its error in its place.
class JobSource {
public:
    JobSource(std::vector<Input> inputs, bool recursive, char listSeparator, WalkFilter filter);
    ~JobSource();
    JobSource(const JobSource&) = delete;
    JobSource& operator=(const JobSource&) = delete;

    // The next job; false when there is none left or a stop signal came.
    bool Next(Job& job);
    // Jobs given so far.
    size_t Given() const { return given_; }
    // The directories whose walk found no file.
    const std::vector<std::string>& EmptyWalks() const { return emptyWalks_; }

private:
    bool FromPath(std::string path, Job& job);
    bool FromWalk(Job& job);
    // The next path of the list being read: 1, 0 at its end, -1 on an
    // error (errno set), -2 when a stop signal came.
    int ReadLine(int list, std::string& line);
    // Counts the job given.
    bool Counted();

    std::vector<Input> inputs_;
    size_t nextInput_ = 0;
    bool recursive_;
    char listSeparator_;
    WalkFilter filter_;
    // The kit's view of filter_.
    std::vector<const char*> extensions_;
    std::vector<const char*> excludes_;
    kz_host_walk* walk_ = nullptr;
    // The directory of the walk's last file, kept (a duplicate of the
    // walk's descriptor) for as long as jobs name it.
    std::shared_ptr<const OpenDirectory> walkDirectory_;
    std::string walkDirectoryPath_;
    std::string walkRoot_;
    size_t walkFiles_ = 0;
    std::vector<std::string> emptyWalks_;
    std::string listBuffer_;  // bytes of the list read and not yet given
    size_t listStart_ = 0;
    bool listEnded_ = false;
    size_t given_ = 0;
};

}  // namespace kzdump

#endif  // KZDUMP_JOB_SOURCE_H
