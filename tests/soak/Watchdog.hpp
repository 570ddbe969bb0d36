#pragma once

#include "soak/Worker.hpp"

#include "remoting/discovery/Waiting.hpp"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

namespace agent::orvi::remoting::test {

/// Ends the program when a worker does nothing for too long.
class Watchdog {
public:
    explicit Watchdog(const std::vector<std::unique_ptr<Worker>>& workers)
        : workers(workers)
        , known(workers.size())
        , since(workers.size(), std::chrono::steady_clock::now()) {}

    void look() {
        const auto now = std::chrono::steady_clock::now();
        for (std::size_t index = 0; index < workers.size(); ++index) {
            const std::uint64_t steps = workers[index]->steps();
            if (steps != known[index] || workers[index]->isOver()) {
                known[index] = steps;
                since[index] = now;
            } else if (now - since[index] > longTime) {
                std::cerr << "FAILED: worker " << index << " hangs after " << steps << " steps."
                          << std::endl;
                std::_Exit(1); // there is no way to go on with a thread that hangs
            }
        }
    }

private:
    const std::vector<std::unique_ptr<Worker>>& workers;
    std::vector<std::uint64_t> known;
    std::vector<std::chrono::steady_clock::time_point> since;
};

} // namespace agent::orvi::remoting::test
