#include "progress.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

namespace kzdump {

namespace {

// Quick runs never flash a line; long ones see it change a few times a second.
constexpr auto kFirstDraw = std::chrono::milliseconds(500);
constexpr auto kRefresh = std::chrono::milliseconds(250);

// The width of the terminal on stderr; 0 when it is none.
size_t TerminalColumns() {
    struct winsize size {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

void AppendFormat(std::string& text, const char* format, auto... values) {
    char buffer[64];
    const int length = std::snprintf(buffer, sizeof buffer, format, values...);
    if (length > 0) text.append(buffer, std::min(static_cast<size_t>(length), sizeof buffer - 1));
}

// Decimal units, as du --si and pv show sizes.
void AppendSize(std::string& text, uint64_t bytes) {
    if (bytes < 1000) {
        AppendFormat(text, "%" PRIu64 " B", bytes);
        return;
    }
    static constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes) / 1000;
    size_t unit = 0;
    // 999.95 and up would print as "1000.0": the next unit's "1.0".
    while (value >= 999.95 && unit + 1 < std::size(kUnits)) {
        value /= 1000;
        ++unit;
    }
    AppendFormat(text, "%.1f %s", value, kUnits[unit]);
}

}  // namespace

ProgressLine::ProgressLine(bool shown, bool sharesScreen, Clock::time_point start)
    : shown_(shown), sharesScreen_(sharesScreen), start_(start), due_(start + kFirstDraw) {}

void ProgressLine::Tick() {
    if (!shown_) return;
    const Clock::time_point now = Clock::now();
    if (now < due_) return;
    due_ = now + kRefresh;
    const std::chrono::duration<double> elapsed = now - start_;
    std::string text = ProgressText(done_.load(std::memory_order_relaxed), total_,
                                    bytes_.load(std::memory_order_relaxed),
                                    errors_.load(std::memory_order_relaxed), elapsed.count());
    // A line as wide as the terminal would wrap, and \r would no longer
    // return to its start.
    if (const size_t columns = TerminalColumns(); columns > 1 && text.size() >= columns) {
        text.resize(columns - 1);
    }
    std::string line(1, '\r');
    line += text;
    if (text.size() < drawnWidth_) line.append(drawnWidth_ - text.size(), ' ');
    drawnWidth_ = std::max(drawnWidth_, text.size());
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void ProgressLine::Clear() {
    if (drawnWidth_ == 0) return;
    std::string blank(drawnWidth_ + 2, ' ');
    blank.front() = '\r';
    blank.back() = '\r';
    std::fwrite(blank.data(), 1, blank.size(), stderr);
    drawnWidth_ = 0;
}

std::string ProgressText(size_t done, size_t total, uint64_t bytes, size_t errors, double seconds) {
    std::string text = std::to_string(done);
    if (total != 0) {
        AppendFormat(text, " of %zu files (%zu%%)", total, done * 100 / total);
    } else {
        text += " files";
    }
    AppendFormat(text, ", %.0f files/s, ", seconds > 0 ? static_cast<double>(done) / seconds : 0.0);
    AppendSize(text, bytes);
    AppendFormat(text, ", %zu error%s", errors, errors == 1 ? "" : "s");
    if (total != 0 && done != 0 && done <= total) {
        // At the mean rate so far.
        const auto left = static_cast<uint64_t>(static_cast<double>(total - done) * seconds /
                                                static_cast<double>(done));
        AppendFormat(text, ", %" PRIu64 ":%02" PRIu64 ":%02" PRIu64 " left", left / 3600,
                     left / 60 % 60, left % 60);
    }
    return text;
}

}  // namespace kzdump
