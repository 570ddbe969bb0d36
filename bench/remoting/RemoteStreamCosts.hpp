#pragma once

#include "ChildProcess.hpp"

#include <cstddef>
#include <filesystem>

namespace agent::orvi::bench {

/// Measure in this process what streams cost while another one publishes so many.
Figures costsOfRemoteStreams(std::size_t count);

/// Publish so many streams for it, and announce how many bytes of memory each takes.
[[noreturn]] void serveStreams(const std::filesystem::path& runtimeDirectory, std::size_t count);

} // namespace agent::orvi::bench
