#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <ostream>
#include <string>

#include <malloc.h>
#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// What a process has of the machine.
struct ProcessFigures {
    std::ptrdiff_t descriptors = 0;
    std::ptrdiff_t threads = 0;
    std::int64_t memory = 0;     ///< Resident, in bytes.
    std::int64_t peakMemory = 0; ///< The most that was resident since `forgetPeakMemory`.

    friend std::ostream& operator<<(std::ostream& out, const ProcessFigures& figures) {
        return out << figures.descriptors << " descriptors, " << figures.threads << " threads, "
                   << figures.memory / 1024 << " KiB, at most " << figures.peakMemory / 1024
                   << " KiB";
    }
};

namespace detail {

inline std::ptrdiff_t entries(const std::string& directory) {
    return std::distance(
        std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
}

} // namespace detail

inline ProcessFigures figuresOf(pid_t process) {
    const std::string directory = "/proc/" + std::to_string(process);
    ProcessFigures figures;
    figures.descriptors = detail::entries(directory + "/fd");
    figures.threads = detail::entries(directory + "/task");
    std::ifstream status(directory + "/status");
    for (std::string key; status >> key;) {
        if (key == "VmRSS:" || key == "VmHWM:") {
            std::int64_t kibibytes = 0;
            status >> kibibytes;
            (key == "VmRSS:" ? figures.memory : figures.peakMemory) = kibibytes * 1024;
        }
        status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return figures;
}

/// Return how many bytes this process has allocated in blocks that have no mapping of their own
/// (see M_MMAP_THRESHOLD) and not freed; 0 where a sanitizer allocates.
inline std::uint64_t memoryInSmallBlocks() {
    return ::mallinfo2().uordblks;
}

/// Count the peak of a process's memory from now on.
inline void forgetPeakMemory(pid_t process) {
    std::ofstream("/proc/" + std::to_string(process) + "/clear_refs") << "5";
}

} // namespace agent::orvi::remoting::test
