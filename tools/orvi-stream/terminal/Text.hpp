#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace agent::orvi::tool {

/// Replace what is not printable in a text that others made up, so that it cannot give commands to
/// a terminal.
std::string printable(std::string_view text);

/// Write a number of bytes as a person reads it: "512 B", "1.5 MiB".
std::string readableSize(double bytes);

/// Write a time in full seconds as a person reads it: "0:07", "1:02:03".
std::string readableTime(std::chrono::seconds time);

} // namespace agent::orvi::tool
