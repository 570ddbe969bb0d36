#pragma once

#include "remoting/processes/RemoteComponent.hpp"
#include "soak/Publisher.hpp"
#include "soak/Totals.hpp"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>

namespace agent::orvi::remoting::test {

/// A process that reads a big file and is stopped in the middle of it, again and again, while all
/// others go on.
///
/// Thread safety: single-thread; the main thread's.
class Stall {
public:
    Stall(
        const std::filesystem::path& directory, const std::string& importer, Publisher& publisher,
        Totals& totals);

    /// Go on: begin a read, stop, continue or look at what was read, as the time has come.
    ///
    /// @throws BrokenPromise when something else was read than there is.
    void step(std::chrono::steady_clock::time_point now);

    /// Let it read to the end.
    void finish();

    pid_t id() const noexcept { return reader.id(); }

private:
    static constexpr std::size_t size = 16 * 1024 * 1024;

    void begin();
    void end();

    Totals& totals;
    RemoteComponent reader;
    std::string expected;
    bool stopped = false;
    std::chrono::steady_clock::time_point until;
};

} // namespace agent::orvi::remoting::test
