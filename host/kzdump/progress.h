// The progress line drawn on stderr during long runs: files done, files per
// second, their size, errors, and with a known total the time left.
#ifndef KZDUMP_PROGRESS_H
#define KZDUMP_PROGRESS_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace kzdump {

class ProgressLine {
public:
    using Clock = std::chrono::steady_clock;

    // `shown`: whether the line is drawn at all.  `sharesScreen`: standard
    // output goes to a terminal, where the line must be cleared before any
    // output too.
    ProgressLine(bool shown, bool sharesScreen, Clock::time_point start);

    bool Shown() const { return shown_; }
    // The number of files of the run, when known before it ends.
    void SetTotal(size_t total) { total_ = total; }

    // A file is done; any thread.
    void FileDone(uint64_t bytes, bool error) {
        done_.fetch_add(1, std::memory_order_relaxed);
        bytes_.fetch_add(bytes, std::memory_order_relaxed);
        if (error) errors_.fetch_add(1, std::memory_order_relaxed);
    }

    // Between files, by the one thread that writes at a time: draws the line
    // when it is due.
    void Tick();
    // Removes the line, before other text goes to the terminal and at the end.
    void Clear();
    void ClearForOutput() {
        if (sharesScreen_) Clear();
    }

private:
    const bool shown_;
    const bool sharesScreen_;
    const Clock::time_point start_;
    Clock::time_point due_;
    size_t total_ = 0;  // 0: unknown
    std::atomic<size_t> done_{0};
    std::atomic<uint64_t> bytes_{0};
    std::atomic<size_t> errors_{0};
    size_t drawnWidth_ = 0;  // columns the line now covers; 0: none drawn
};

// The text of the line: "1200 of 5000 files (24%), 410 files/s, 1.4 GB,
// 0 errors, 0:00:09 left"; without a total, no "of", percentage or time left.
std::string ProgressText(size_t done, size_t total, uint64_t bytes, size_t errors, double seconds);

}  // namespace kzdump

#endif  // KZDUMP_PROGRESS_H
