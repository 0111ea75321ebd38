// The files named on the command line, with directories expanded.
#ifndef KZDUMP_PATH_LIST_H
#define KZDUMP_PATH_LIST_H

#include <string>
#include <vector>

namespace kzdump {

// A file to read, or an argument that cannot be read, with the reason.
struct Job {
    std::string path;
    std::string error;
};

// One job per argument; with `recursive`, a directory gives the files under
// it, names sorted byte-wise, each subdirectory entered where its name
// sorts.  Without it, every argument is a job as it is.
std::vector<Job> ListJobs(const std::vector<std::string>& arguments, bool recursive);

}  // namespace kzdump

#endif  // KZDUMP_PATH_LIST_H
