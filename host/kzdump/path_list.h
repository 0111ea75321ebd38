// The files to read: the paths of the command line and of path lists, with
// directories walked as the walk goes.
#ifndef KZDUMP_PATH_LIST_H
#define KZDUMP_PATH_LIST_H

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
// a directory gives the files under it, names sorted byte-wise, each
// subdirectory entered where its name sorts, only one listing per open
// directory held at a time.  `extensions` (lower case, without the dot),
// when not empty, keeps only the walked files that end with one of them.
class JobSource {
public:
    JobSource(std::vector<Input> inputs, bool recursive, char listSeparator,
              std::vector<std::string> extensions);
    ~JobSource();
    JobSource(const JobSource&) = delete;
    JobSource& operator=(const JobSource&) = delete;

    // The next job; false when there is none left.
    bool Next(Job& job);
    // Jobs given so far, and whether that is all of them.
    size_t Given() const { return given_; }
    bool Finished() const { return finished_; }

private:
    struct Directory {
        std::string path;
        std::vector<std::pair<std::string, bool>> entries;  // name, is a directory
        size_t next = 0;
    };
    bool FromPath(std::string path, Job& job);
    bool FromWalk(Job& job);
    void Enter(std::string path);
    bool Wanted(const std::string& name) const;

    std::vector<Input> inputs_;
    size_t nextInput_ = 0;
    bool recursive_;
    char listSeparator_;
    std::vector<std::string> extensions_;
    std::vector<Directory> walk_;
    std::string walkError_;
    std::string walkErrorPath_;
    char* line_ = nullptr;
    size_t lineCapacity_ = 0;
    size_t given_ = 0;
    bool finished_ = false;
};

}  // namespace kzdump

#endif  // KZDUMP_PATH_LIST_H
