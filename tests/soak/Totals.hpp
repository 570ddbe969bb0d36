#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace agent::orvi::remoting::test {

/// What a run has done so far. Thread-safe.
struct Totals {
    std::atomic<std::uint64_t> bytesRead{0};
    std::atomic<std::uint64_t> bytesWritten{0};
    std::atomic<std::uint64_t> calls{0}; ///< Of stream buffers' members.
    std::atomic<std::uint64_t> putBacks{0};
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> publications{0};
    std::atomic<std::uint64_t> kills{0};       ///< Of publishing processes.
    std::atomic<std::uint64_t> stops{0};       ///< Of publishing processes, for a while.
    std::atomic<std::uint64_t> stalls{0};      ///< Of readers, in the middle of a read.
    std::atomic<std::uint64_t> readerKills{0}; ///< Of reading processes that were stalled.

    std::atomic<std::uint64_t> unexpected{0}; ///< Errors without a cause: each ends the run.

    /// Count an error of the library that had to come.
    void addProvoked(const std::string& type) {
        const std::lock_guard lock(mutex);
        ++errors[type];
    }

    /// Return the errors that had to come, by type.
    std::map<std::string, std::uint64_t> provoked() const {
        const std::lock_guard lock(mutex);
        return errors;
    }

private:
    mutable std::mutex mutex;
    std::map<std::string, std::uint64_t> errors;
};

} // namespace agent::orvi::remoting::test
