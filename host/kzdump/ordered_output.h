// The outputs of the worker threads, written in job order.
#ifndef KZDUMP_ORDERED_OUTPUT_H
#define KZDUMP_ORDERED_OUTPUT_H

#include "progress.h"

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kzdump {

// Writes the outputs of the jobs in job order, whichever worker finishes
// first; the job whose turn it is writes as it goes.  Buffers of jobs that
// wait for their turn are recycled.  The progress line is drawn between
// files here, where every write is made, so it never mixes with them.
class OrderedOutput {
public:
    OrderedOutput(size_t workers, ProgressLine& progress);

    // Job `index` has written `out` so far.  When its turn has come, `out`
    // goes out now and comes back empty; otherwise it stays until it holds
    // the worker's share, and then the worker waits for its turn.
    void Progress(size_t index, std::string& out);

    // Job `index` is done: its output and error lines, which come back
    // empty (with recycled capacity).
    void Finish(size_t index, std::string& out, std::string& err);

    // Writes what is held; the errno of the first failed write, or 0.
    int Flush();

    // Text that goes before every job's output.
    void Put(std::string text) { Write(text); }

    // Once a write has failed, no more jobs are started.
    bool Failed();

private:
    struct Slot {
        std::string out;
        std::string err;
        size_t Held() const { return out.capacity() + err.capacity(); }
    };

    void Write(std::string& out);
    void WriteAll(std::string_view bytes);
    void WriteJob(std::string& out, std::string& err);
    void Recycle(std::string& buffer);
    void TakeSpare(std::string& buffer);

    std::mutex mutex_;
    std::condition_variable turn_;
    // Finished jobs that wait for their turn, by job number.
    std::map<size_t, Slot> ready_;
    std::vector<std::string> spare_;
    std::string pending_;
    int writeErrno_ = 0;
    size_t next_ = 0;
    size_t held_ = 0;
    const size_t heldLimit_;
    const size_t sparesLimit_;
    ProgressLine& progress_;
};

}  // namespace kzdump

#endif  // KZDUMP_ORDERED_OUTPUT_H
