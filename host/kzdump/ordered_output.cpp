#include "ordered_output.h"

#include <cerrno>
#include <climits>
#include <cstdio>

#include <unistd.h>

namespace kzdump {

namespace {

// Output of a job that is not yet its turn is held up to this many bytes per
// worker thread, counted as the memory its buffers take; a worker that
// reaches it waits for its turn.  A few hundred files' worth: enough that a
// worker the system pauses for a moment does not stop the others.
constexpr size_t kHeldPerWorker = size_t{1} << 20;
// Buffers kept for reuse, per worker; those beyond are freed, so that a
// moment of much held output does not stay in memory.
constexpr size_t kSparesPerWorker = 4;

}  // namespace

OrderedOutput::OrderedOutput(size_t workers, ProgressLine& progress)
    : heldLimit_(workers * kHeldPerWorker), sparesLimit_(workers * kSparesPerWorker), progress_(progress) {}

void OrderedOutput::Progress(size_t index, std::string& out) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (index != next_ && out.size() < kHeldPerWorker) return;
    turn_.wait(lock, [&] { return index == next_; });
    Write(out);
}

void OrderedOutput::Finish(size_t index, std::string& out, std::string& err) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (index != next_) {
        Slot& slot = ready_[index];
        slot.out.swap(out);
        slot.err.swap(err);
        held_ += slot.Held();
        TakeSpare(out);
        TakeSpare(err);
        // Finished jobs waiting for their turn are bounded too.
        progress_.Tick();
        turn_.wait(lock, [&] { return held_ <= heldLimit_ || next_ > index; });
        return;
    }
    WriteJob(out, err);
    ++next_;
    for (auto slot = ready_.begin(); slot != ready_.end() && slot->first == next_; slot = ready_.erase(slot)) {
        held_ -= slot->second.Held();
        WriteJob(slot->second.out, slot->second.err);
        Recycle(slot->second.out);
        Recycle(slot->second.err);
        ++next_;
    }
    progress_.Tick();
    turn_.notify_all();
}

int OrderedOutput::Flush() {
    WriteAll(pending_);
    pending_.clear();
    return writeErrno_;
}

bool OrderedOutput::Failed() {
    std::lock_guard<std::mutex> lock(mutex_);
    return writeErrno_ != 0;
}

// A record that fits in PIPE_BUF goes out with the records before it in one
// write(2) of at most PIPE_BUF bytes, so that runs appending to one file
// never interleave inside a record; a larger record is written alone, as it
// comes.
void OrderedOutput::Write(std::string& out) {
    if (pending_.size() + out.size() > PIPE_BUF) Flush();
    if (out.size() > PIPE_BUF) {
        WriteAll(out);
    } else {
        pending_ += out;
    }
    out.clear();
}

void OrderedOutput::WriteAll(std::string_view bytes) {
    if (!bytes.empty()) progress_.ClearForOutput();
    while (!bytes.empty() && writeErrno_ == 0) {
        const ssize_t written = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) {
            writeErrno_ = errno;
            return;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

void OrderedOutput::WriteJob(std::string& out, std::string& err) {
    if (!err.empty()) {
        Flush();
        progress_.Clear();
        std::fwrite(err.data(), 1, err.size(), stderr);
        err.clear();
    }
    Write(out);
}

void OrderedOutput::Recycle(std::string& buffer) {
    if (spare_.size() < sparesLimit_) spare_.push_back(std::move(buffer));
}

void OrderedOutput::TakeSpare(std::string& buffer) {
    if (spare_.empty()) return;
    buffer.swap(spare_.back());
    spare_.pop_back();
    buffer.clear();
}

}  // namespace kzdump
