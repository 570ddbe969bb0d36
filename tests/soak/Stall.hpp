#pragma once

#include "remoting/processes/RemoteComponent.hpp"
#include "soak/Publisher.hpp"
#include "soak/Totals.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace agent::orvi::remoting::test {

/// A process that reads much at once and is stopped in the middle of it, again and again, while all
/// others go on. It goes on then, or is killed and has a successor.
///
/// Thread safety: single-thread; the main thread's.
class Stall {
public:
    enum class Ending { goesOn, isKilled };

    /// @param name what is published for it.
    /// @param importer the settings of its importer.
    /// @param publisher one that is never killed.
    Stall(
        std::string name, std::string importer, Publisher& publisher, Totals& totals, Ending ending,
        std::uint64_t seed);

    /// Begin a read and stop, or end that, as the time has come.
    ///
    /// @throws BrokenPromise when something else was read than there is.
    void step(std::chrono::steady_clock::time_point now);

    /// End what is under way. One that is killed has no process then.
    void finish();

    RemoteComponent& process() noexcept { return *reader; }

private:
    void start();
    void begin();
    void end();
    std::string ask(const std::string& verb);

    const std::string name;
    const std::string importer;
    Publisher& publisher;
    Totals& totals;
    const Ending ending;
    std::mt19937_64 random;
    std::string uuid;
    std::string expected;
    std::optional<RemoteComponent> reader;
    bool stopped = false;
    std::chrono::steady_clock::time_point until;
};

} // namespace agent::orvi::remoting::test
