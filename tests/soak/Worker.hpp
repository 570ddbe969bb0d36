#pragma once

#include "soak/CheckedStream.hpp"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::test {

/// A thread that uses some streams, one after another, until it is told to end. It can be started
/// again then.
///
/// Thread safety: thread-compatible; what is const may be called while the thread runs.
class Worker {
public:
    explicit Worker(std::uint64_t seed)
        : random(seed) {}

    ~Worker() {
        askToEnd();
        if (thread.joinable()) {
            thread.join();
        }
    }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    CheckedStream::Random& randomness() noexcept { return random; }

    void add(std::unique_ptr<CheckedStream> stream) { streams.push_back(std::move(stream)); }

    void start() {
        ending = false;
        over = false;
        thread = std::thread([this] { run(); });
    }

    void askToEnd() noexcept { ending = true; }

    /// Wait for the end.
    ///
    /// @throws BrokenPromise when that has ended it.
    void join() {
        thread.join();
        if (failed) {
            std::rethrow_exception(failure);
        }
    }

    bool hasFailed() const noexcept { return failed; }

    /// Say whether it has come to its end, one way or the other.
    bool isOver() const noexcept { return over; }

    /// Return how many steps it has done: what does not grow hangs.
    std::uint64_t steps() const noexcept { return done; }

private:
    void run() {
        try {
            while (!ending) {
                streams[random() % streams.size()]->step(random);
                ++done;
            }
            for (const auto& stream : streams) {
                stream->finish();
                ++done;
            }
        } catch (...) {
            failure = std::current_exception();
            failed = true;
        }
        over = true;
    }

    CheckedStream::Random random;
    std::vector<std::unique_ptr<CheckedStream>> streams;
    std::atomic<bool> ending{false};
    std::atomic<bool> failed{false};
    std::atomic<bool> over{false};
    std::atomic<std::uint64_t> done{0};
    std::exception_ptr failure;
    std::thread thread;
};

} // namespace agent::orvi::remoting::test
