#pragma once

#include <atomic>
#include <cstdint>

namespace agent::orvi::remoting::test {

/// What a run has done so far. Thread-safe.
struct Totals {
    std::atomic<std::uint64_t> bytesRead{0};
    std::atomic<std::uint64_t> bytesWritten{0};
    std::atomic<std::uint64_t> calls{0};
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> publications{0};
    std::atomic<std::uint64_t> errors{0}; ///< That ended a call and were survived.
    std::atomic<std::uint64_t> kills{0};  ///< Of publishing processes.
    std::atomic<std::uint64_t> stops{0};  ///< Of publishing processes, for a while.
    std::atomic<std::uint64_t> stalls{0}; ///< Of a reader, in the middle of a read.
};

} // namespace agent::orvi::remoting::test
