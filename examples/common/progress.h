// A progress bar on stderr that appears only for work that lasts longer than
// a second, redrawn at most ten times a second, safe to advance from any
// thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace demo {

class Stopwatch {
public:
    Stopwatch() : start_(std::chrono::steady_clock::now()) {}
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

private:
    std::chrono::steady_clock::time_point start_;
};

class Progress {
public:
    // total: units of work; enabled false silences the bar (tests, --quiet).
    Progress(std::string label, int64_t total, bool enabled = true);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(int64_t units = 1);
    // Draws the full bar and ends its line, if the bar was ever shown.
    void finish();
    bool shown() const { return shown_; }

    // The text of the bar for `done` of `total` after `seconds`; public for tests.
    static std::string render(const std::string& label, int64_t done, int64_t total,
                              double seconds);

private:
    void draw(int64_t done, bool final);

    std::string label_;
    int64_t total_;
    bool enabled_;
    bool shown_ = false;
    bool finished_ = false;
    std::atomic<int64_t> done_{0};
    std::mutex drawLock_;
    std::atomic<double> lastDraw_{0.0};
    Stopwatch clock_;
};

}  // namespace demo
