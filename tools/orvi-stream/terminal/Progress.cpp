#include "terminal/Progress.hpp"

#include "terminal/Text.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <string>

#include <unistd.h>

namespace agent::orvi::tool {
namespace {

constexpr std::chrono::milliseconds betweenDrawings{250};
constexpr std::chrono::seconds rateWindow{5};

/// A time that is further away says nothing.
constexpr double longestRemainder = 100.0 * 3600;

std::atomic<bool> lineBegun = false;

std::string remainder(double bytes, double rate) {
    const double seconds = rate > 0 ? bytes / rate : longestRemainder;
    if (seconds >= longestRemainder) {
        return "";
    }
    return "  " + readableTime(std::chrono::seconds(std::llround(std::ceil(seconds)))) + " left";
}

} // namespace

Progress::Progress(std::optional<std::uint64_t> total, bool besideOutput)
    : total(total)
    , watched(::isatty(STDERR_FILENO) == 1 && !(besideOutput && ::isatty(STDOUT_FILENO) == 1)) {}

Progress::~Progress() {
    if (lineBegun) {
        draw(Clock::now(), true);
        leaveLine();
    }
}

void Progress::advance(std::uint64_t bytes) {
    moved += bytes;
    const auto now = Clock::now();
    if (!watched || now - drawn < betweenDrawings) {
        return;
    }
    drawn = now;
    recent.push_back({now, moved});
    while (recent.front().time < now - rateWindow) {
        recent.pop_front();
    }
    draw(now, false);
}

double Progress::rate(Clock::time_point now, bool overall) const {
    const Sample& from = overall || recent.size() < 2 ? start : recent.front();
    const double seconds = std::chrono::duration<double>(now - from.time).count();
    return seconds > 0 ? static_cast<double>(moved - from.moved) / seconds : 0;
}

void Progress::draw(Clock::time_point now, bool last) const {
    const auto bytes = static_cast<double>(moved);
    const double bytesPerSecond = rate(now, last);
    std::string line = "\r";
    line += readableSize(bytes);
    if (total) {
        const auto all = static_cast<double>(std::max(*total, moved));
        line += " of " + readableSize(all);
        if (all > 0) {
            line += "  " + std::to_string(static_cast<int>(100 * bytes / all)) + " %";
        }
    }
    line += "  ";
    line += readableSize(bytesPerSecond) + "/s";
    if (last) {
        const auto time = std::chrono::duration_cast<std::chrono::seconds>(now - start.time);
        line += "  in " + readableTime(time);
    } else if (total && *total > moved) {
        line += remainder(static_cast<double>(*total - moved), bytesPerSecond);
    }
    line += "\033[K";
    lineBegun = true;
    std::fputs(line.c_str(), stderr);
    std::fflush(stderr);
}

void Progress::leaveLine() noexcept {
    if (lineBegun.exchange(false)) {
        std::fputc('\n', stderr);
    }
}

} // namespace agent::orvi::tool
