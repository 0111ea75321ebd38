// The files to read: the paths of the command line and of path lists, with
// directories walked (by the host kit's walk) as the run goes.
#ifndef KZDUMP_JOB_SOURCE_H
#define KZDUMP_JOB_SOURCE_H

#include "kz_host.h"

#include <cstdio>
#include <string>
#include <vector>

namespace kzdump {

// A path, or an open list of paths (one a line, or NUL-separated).
struct Input {
    std::string path;
    FILE* list = nullptr;
};

// The paths a list holds from where it stands, blank lines left out, when it
// is a regular file: it is read through and put back where it stood.  False
// for a pipe or a terminal, which can be read only once.
bool CountPaths(FILE* list, char separator, size_t& count);

// A file to read, or a path that cannot be read, with the reason.
struct Job {
    std::string path;
    std::string error;
};

// Gives the jobs one by one, in order: each input in turn; with `recursive`,
// a directory gives the files under it in the order of the kit's walk,
// filtered by `extensions` (without the dot).
class JobSource {
public:
    JobSource(std::vector<Input> inputs, bool recursive, char listSeparator,
              std::vector<std::string> extensions);
    ~JobSource();
    JobSource(const JobSource&) = delete;
    JobSource& operator=(const JobSource&) = delete;

    // The next job; false when there is none left.
    bool Next(Job& job);
    // Jobs given so far.
    size_t Given() const { return given_; }

private:
    bool FromPath(std::string path, Job& job);
    bool FromWalk(Job& job);

    std::vector<Input> inputs_;
    size_t nextInput_ = 0;
    bool recursive_;
    char listSeparator_;
    std::vector<std::string> extensions_;
    std::vector<const char*> extensionPointers_;
    kz_host_walk* walk_ = nullptr;
    std::string walkRoot_;
    char* line_ = nullptr;
    size_t lineCapacity_ = 0;
    size_t given_ = 0;
};

}  // namespace kzdump

#endif  // KZDUMP_JOB_SOURCE_H
