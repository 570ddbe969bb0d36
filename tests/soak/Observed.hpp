#pragma once

#include "soak/Totals.hpp"
#include "soak/Trend.hpp"

#include "remoting/processes/ProcessFigures.hpp"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <iomanip>
#include <ostream>

#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// How something grows with what has been done.
struct Growth {
    const char* what;
    double mostPerKill;
    double mostPerConnection;
    Trend perKill{};
    Trend perConnection{};

    /// Say whether neither leaves anything behind, beyond what chance explains.
    bool isFlat() const {
        return !perKill.exceeds(mostPerKill) && !perConnection.exceeds(mostPerConnection);
    }

    friend std::ostream& operator<<(std::ostream& out, const Growth& growth) {
        return out << "  " << std::setw(11) << growth.what << ' ' << growth.perKill << " a kill, "
                   << growth.perConnection << " a connection";
    }
};

/// How a process that lives as long as the run has developed.
///
/// Bytes are those in small blocks, which tell what little things are left behind. What a process
/// has in all also has the transport's buffers, which come and go: more than that must be left to
/// show.
struct Observed {
    const char* name;
    pid_t process;
    std::function<std::uint64_t()> smallBlocks; ///< Returns its `memoryInSmallBlocks`.
    const std::atomic<std::uint64_t>& kills;    ///< Of processes that it is connected to.

    // Where nothing is left behind, the bytes of the importer vary by 50 to 250 a kill in most runs
    // of two minutes, and by up to 2 KiB in one that a failing look-up holds up; those of the
    // publisher and of the reader by up to some KiB. Such a run has been seen to fail with 4 KiB or
    // a descriptor left at the importer by each kill, and with 64 bytes by each connection. A
    // longer one finds smaller leaks.
    std::array<Growth, 4> growths{
        Growth{"bytes", 1024, 16}, Growth{"KiB in all", 64, 1}, Growth{"descriptors", 0.25, 0.01},
        Growth{"threads", 0.25, 0.01}};

    /// @param rest what it has in small blocks when nothing is under way any more.
    void sample(const Totals& totals, std::uint64_t rest) {
        const ProcessFigures figures = figuresOf(process);
        const std::array<double, 4> values{
            static_cast<double>(rest), static_cast<double>(figures.memory) / 1024,
            static_cast<double>(figures.descriptors), static_cast<double>(figures.threads)};
        for (std::size_t index = 0; index < values.size(); ++index) {
            growths[index].perKill.add(static_cast<double>(kills), values[index]);
            growths[index].perConnection.add(
                static_cast<double>(totals.connections), values[index]);
        }
    }

    friend std::ostream& operator<<(std::ostream& out, const Observed& observed) {
        out << observed.name << ", " << figuresOf(observed.process) << ":\n";
        for (const Growth& growth : observed.growths) {
            out << growth << '\n';
        }
        return out;
    }
};

} // namespace agent::orvi::remoting::test
