#pragma once

#include "soak/Publisher.hpp"
#include "soak/Totals.hpp"

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

namespace agent::orvi::remoting::test {

/// Lets publishers be killed and stopped, at random times.
class Trouble {
public:
    Trouble(std::vector<std::unique_ptr<Publisher>>& publishers, Totals& totals, std::uint64_t seed)
        : publishers(publishers)
        , totals(totals)
        , random(seed)
        , next(std::chrono::steady_clock::now() + std::chrono::seconds(1)) {}

    void step(std::chrono::steady_clock::time_point now) {
        if (now < next) {
            return;
        }
        // The first one is observed, and read from by the readers that stall: it is left alone. The
        // next one is stopped but not killed, for far less than the keepalive time: nothing may
        // fail. The last one is killed first, so that one is in every run.
        const std::size_t last = publishers.size() - 1;
        const std::size_t chosen = totals.kills == 0 ? last : 1 + random() % last;
        Publisher& publisher = *publishers[chosen];
        if (stopped != nullptr) {
            finish();
        } else if (chosen == 1) {
            publisher.signal(SIGSTOP);
            stopped = &publisher;
            ++totals.stops;
        } else {
            publisher.kill(random() % 16 != 0);
            publisher.replace();
            ++totals.kills;
        }
        next = now + std::chrono::milliseconds(200 + random() % 1000);
    }

    /// Let all of them go on.
    void finish() {
        if (stopped != nullptr) {
            stopped->signal(SIGCONT);
            stopped = nullptr;
        }
    }

private:
    std::vector<std::unique_ptr<Publisher>>& publishers;
    Totals& totals;
    std::mt19937_64 random;
    std::chrono::steady_clock::time_point next;
    Publisher* stopped = nullptr;
};

} // namespace agent::orvi::remoting::test
