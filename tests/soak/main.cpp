// Uses 64 streams of other processes for some minutes, while publishers come and go, are stopped
// and killed, and a reader stalls. Every byte is checked. Ends with what was done and how memory,
// descriptors and threads have developed; with exit code 1 when anything is not as it must be.

#include "soak/CheckedStream.hpp"
#include "soak/Observed.hpp"
#include "soak/Publisher.hpp"
#include "soak/Stall.hpp"
#include "soak/Totals.hpp"
#include "soak/Trouble.hpp"
#include "soak/Watchdog.hpp"
#include "soak/Worker.hpp"

#include "remoting/discovery/TemporaryDirectory.hpp"

#include <orvi/remoting/Importer.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <malloc.h>
#include <unistd.h>

namespace {

using namespace agent::orvi::remoting;
using namespace agent::orvi::remoting::test;
using Clock = std::chrono::steady_clock;
using Minutes = std::chrono::duration<double, std::ratio<60>>;

constexpr std::size_t publisherCount = 4;
constexpr std::size_t workerCount = 8;
constexpr std::size_t streamsPerWorker = 8;
constexpr unsigned int secondsOfAHang = 120;

void print(const char* what, const Trend& trend) {
    std::cout << "  " << trend.slope() << " +- " << 2 * trend.error() << ' ' << what;
}

void print(const Observed& observed) {
    std::cout << std::left << std::setw(10) << observed.name << std::right << std::fixed
              << std::setprecision(2);
    print("KiB/minute", observed.memory);
    print("descriptors/minute", observed.descriptors);
    print("threads/minute", observed.threads);
    std::cout << "  (" << observed.memory.samples() << " samples)\n";
}

void print(const Totals& totals, double seconds) {
    std::cout << "time        " << std::fixed << std::setprecision(1) << seconds << " s\n"
              << "bytes       " << totals.bytesRead << " read, " << totals.bytesWritten
              << " written\n"
              << "calls       " << totals.calls << "\n"
              << "streams     " << totals.publications << " publications, " << totals.connections
              << " connections\n"
              << "faults      " << totals.kills << " publishers killed, " << totals.stops
              << " stopped for a while, " << totals.stalls << " stalls of a reader; "
              << totals.errors << " errors of calls survived\n";
}

int soak(Minutes duration, std::uint64_t seed) {
    const TemporaryDirectory directory;
    const std::string where = " directory=" + directory.path.string();
    Totals totals;
    ImporterOptions options;
    options.runtimeDirectory = directory.path;
    const Importer importer(options);
    std::vector<std::unique_ptr<Publisher>> publishers;
    for (std::size_t number = 0; number < publisherCount; ++number) {
        publishers.push_back(std::make_unique<Publisher>("open-endpoint" + where));
    }
    Stall stall(directory.path, "open-importer" + where, *publishers[0], totals);
    std::vector<std::unique_ptr<Worker>> workers;
    for (std::size_t number = 0; number < workerCount; ++number) {
        auto& worker = *workers.emplace_back(std::make_unique<Worker>(seed + 1 + number));
        for (std::size_t index = 0; index < streamsPerWorker; ++index) {
            const std::string name = std::to_string(number) + "-" + std::to_string(index);
            worker.add(std::make_unique<CheckedStream>(
                directory.path / ("file-" + name), name, *publishers[index % publisherCount],
                totals, worker.randomness()));
        }
    }

    const auto start = Clock::now();
    const auto end = start + std::chrono::duration_cast<Clock::duration>(duration);
    // Pools and allocators grow to what they need at first.
    const auto measured = start + std::chrono::duration_cast<Clock::duration>(duration / 2);
    std::array<Observed, 3> observed{
        Observed{"importer", ::getpid(), {}, {}, {}},
        Observed{"publisher", publishers[0]->id(), {}, {}, {}},
        Observed{"reader", stall.id(), {}, {}, {}}};
    Watchdog watchdog(workers);
    Trouble trouble(publishers, totals, seed);
    for (const auto& worker : workers) {
        worker->start();
    }
    const auto hasFailed = [&] {
        return std::any_of(
            workers.begin(), workers.end(), [](const auto& worker) { return worker->hasFailed(); });
    };
    constexpr std::chrono::milliseconds pace{100};
    auto nextSample = measured;
    for (auto now = start; now < end && !hasFailed(); now = Clock::now()) {
        watchdog.look();
        ::alarm(secondsOfAHang); // this thread has no other watchdog
        trouble.step(now);
        stall.step(now);
        if (now >= nextSample) {
            for (Observed& process : observed) {
                process.sample(Minutes(now - start).count());
            }
            nextSample = now + std::chrono::seconds(1);
        }
        std::this_thread::sleep_for(pace);
    }
    trouble.finish();
    for (const auto& worker : workers) {
        worker->askToEnd();
    }
    int failures = 0;
    const auto attempt = [&](const auto& action) {
        try {
            action();
        } catch (const std::exception& error) {
            std::cout << "FAILED: " << error.what() << '\n';
            ++failures;
        }
    };
    attempt([&] { stall.finish(); });
    const auto areOver = [&] {
        return std::all_of(
            workers.begin(), workers.end(), [](const auto& worker) { return worker->isOver(); });
    };
    for (; !areOver(); std::this_thread::sleep_for(pace)) {
        ::alarm(secondsOfAHang);
        watchdog.look();
    }
    ::alarm(0);
    for (const auto& worker : workers) {
        attempt([&] { worker->join(); });
    }

    print(totals, std::chrono::duration<double>(Clock::now() - start).count());
    const bool longEnough = duration >= Minutes(2);
    for (const Observed& process : observed) {
        print(process);
        if (longEnough && !process.isFlat()) {
            std::cout << "FAILED: " << process.name << " grows.\n";
            ++failures;
        }
    }
    if (!longEnough) {
        std::cout << "Too short a run to tell a slope from chance: it is not judged.\n";
    }
    if (totals.bytesRead == 0 || totals.bytesWritten == 0 || totals.kills == 0 ||
        totals.stalls == 0) {
        std::cout << "FAILED: something has not happened at all.\n";
        ++failures;
    }
    std::cout << (failures == 0 ? "passed" : "FAILED") << '\n';
    return failures == 0 ? 0 : 1;
}

/// Let memory that is freed go back to the system at once, here and in the other processes: what
/// grows then is what is in use.
void keepNoFreedMemory() {
    constexpr int arenas = 2;
    constexpr int threshold = 64 * 1024;
    ::mallopt(M_ARENA_MAX, arenas);
    ::mallopt(M_MMAP_THRESHOLD, threshold);
    ::mallopt(M_TRIM_THRESHOLD, threshold);
    ::setenv("MALLOC_ARENA_MAX", std::to_string(arenas).c_str(), 1);
    ::setenv("MALLOC_MMAP_THRESHOLD_", std::to_string(threshold).c_str(), 1);
    ::setenv("MALLOC_TRIM_THRESHOLD_", std::to_string(threshold).c_str(), 1);
}

} // namespace

int main(int count, char** arguments) {
    keepNoFreedMemory();
    std::signal(SIGPIPE, SIG_IGN); // a publisher that was killed reads nothing any more
    std::cout << std::unitbuf;
    try {
        const double minutes = count > 1 ? std::stod(arguments[1]) : 10;
        const std::uint64_t seed = count > 2 ? std::stoull(arguments[2]) : std::random_device()();
        std::cout << "seed " << seed << ", " << workerCount * streamsPerWorker << " streams, "
                  << minutes << " minutes\n";
        return soak(Minutes(minutes), seed);
    } catch (const std::exception& error) {
        std::cerr << "FAILED: " << error.what() << '\n';
        return 1;
    }
}
