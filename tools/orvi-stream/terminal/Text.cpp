#include "terminal/Text.hpp"

#include <array>
#include <cstdio>

namespace agent::orvi::tool {
namespace {

template <class... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

} // namespace

std::string printable(std::string_view text) {
    constexpr unsigned char firstPrintable = 0x20;
    constexpr unsigned char erase = 0x7f;
    std::string result;
    bool inLongControl = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        // In UTF-8, the second set of control characters is 0xc2 and a byte below 0xa0.
        const bool beginsLongControl = byte == 0xc2 && next >= 0x80 && next < 0xa0;
        if (byte < firstPrintable || byte == erase || beginsLongControl || inLongControl) {
            result += formatted("\\x%02x", byte);
        } else {
            result += text[i];
        }
        inLongControl = beginsLongControl;
    }
    return result;
}

std::string readableSize(double bytes) {
    constexpr double step = 1024;
    constexpr std::array units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    while (bytes >= step && unit + 1 < units.size()) {
        bytes /= step;
        ++unit;
    }
    return formatted(unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units.at(unit));
}

std::string readableTime(std::chrono::seconds time) {
    const std::chrono::hh_mm_ss parts(time);
    const auto minutes = static_cast<int>(parts.minutes().count());
    const auto seconds = static_cast<int>(parts.seconds().count());
    if (parts.hours().count() == 0) {
        return formatted("%d:%02d", minutes, seconds);
    }
    return formatted(
        "%lld:%02d:%02d", static_cast<long long>(parts.hours().count()), minutes, seconds);
}

} // namespace agent::orvi::tool
