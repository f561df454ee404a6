#include "common/progress.h"

#include <cstdio>

namespace demo {

namespace {
constexpr double kShowAfter = 1.0;    // seconds before the bar appears
constexpr double kRedrawEvery = 0.1;  // seconds between redraws
constexpr int kBarWidth = 32;
}  // namespace

Progress::Progress(std::string label, int64_t total, bool enabled)
    : label_(std::move(label)), total_(total > 0 ? total : 1), enabled_(enabled) {}

Progress::~Progress() { finish(); }

std::string Progress::render(const std::string& label, int64_t done, int64_t total,
                             double seconds) {
    if (total < 1) total = 1;
    if (done < 0) done = 0;
    if (done > total) done = total;
    const double fraction = static_cast<double>(done) / static_cast<double>(total);
    const int filled = static_cast<int>(fraction * kBarWidth);
    std::string bar = label + " [";
    for (int i = 0; i < kBarWidth; ++i) bar += i < filled ? '#' : '.';
    char tail[64];
    if (done > 0 && done < total) {
        const double left = seconds * (1.0 - fraction) / fraction;
        std::snprintf(tail, sizeof tail, "] %3d%%  %.1fs left", static_cast<int>(fraction * 100.0),
                      left);
    } else {
        std::snprintf(tail, sizeof tail, "] %3d%%  %.1fs", static_cast<int>(fraction * 100.0),
                      seconds);
    }
    return bar + tail;
}

void Progress::advance(int64_t units) {
    const int64_t done = done_.fetch_add(units, std::memory_order_relaxed) + units;
    if (!enabled_) return;
    const double now = clock_.seconds();
    if (now < kShowAfter || now - lastDraw_.load(std::memory_order_relaxed) < kRedrawEvery) return;
    // Whoever holds the lock draws; the others go back to work.
    std::unique_lock<std::mutex> lock(drawLock_, std::try_to_lock);
    if (!lock.owns_lock() || finished_) return;
    draw(done, false);
    lastDraw_.store(now, std::memory_order_relaxed);
}

void Progress::finish() {
    std::lock_guard<std::mutex> lock(drawLock_);
    if (finished_) return;
    finished_ = true;
    if (shown_) draw(total_, true);
}

void Progress::draw(int64_t done, bool final) {
    const std::string text = render(label_, done, total_, clock_.seconds());
    std::fprintf(stderr, "\r%s%s", text.c_str(), final ? "\n" : "");
    std::fflush(stderr);
    shown_ = true;
}

}  // namespace demo
