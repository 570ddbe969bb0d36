// Uses 64 streams of other processes for some minutes, while publishers come and go, are stopped
// and killed, and readers stall and are killed. Every byte is checked, and every error must have
// its cause. Ends with what was done and how memory, descriptors and threads have developed; with
// exit code 1 when anything is not as it must be.

#include "soak/CheckedStream.hpp"
#include "soak/Observed.hpp"
#include "soak/Publisher.hpp"
#include "soak/Stall.hpp"
#include "soak/Totals.hpp"
#include "soak/Trouble.hpp"
#include "soak/Watchdog.hpp"
#include "soak/Worker.hpp"

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"

#include <orvi/remoting/Importer.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iomanip>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

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
constexpr Minutes shortestJudged{2};
constexpr std::chrono::seconds lengthOfARound{5};
constexpr std::chrono::milliseconds pace{100};
constexpr std::chrono::milliseconds quietTime{500};

/// All processes and threads of a run, which goes on in rounds. Between them nothing is connected,
/// under way or published but what the readers that stall use: what a process has more then than
/// after an earlier round has been left behind.
class Soak {
public:
    Soak(Minutes duration, std::uint64_t seed)
        : duration(duration)
        , stalled("stalled", readers, *publishers[0], totals, Stall::Ending::goesOn, seed)
        , killed("killed", readers, *publishers[0], totals, Stall::Ending::isKilled, ~seed)
        , workers(makeWorkers(seed))
        , trouble(publishers, totals, seed) {
        importer.waitUntilSettled(longTime);
        descriptors = descriptorsOfPublisher();
    }

    /// @return whether everything was as it must be.
    bool run() {
        const auto start = Clock::now();
        const auto end = start + std::chrono::duration_cast<Clock::duration>(duration);
        // Pools grow to what they need at first.
        const auto measured = start + std::chrono::duration_cast<Clock::duration>(duration / 2);
        while (Clock::now() < end && failures == 0) {
            round(std::min(end, Clock::now() + lengthOfARound));
            if (failures == 0 && Clock::now() >= measured) {
                sample();
            }
        }
        ::alarm(0);
        report(std::chrono::duration<double>(Clock::now() - start).count());
        if (failures == 0) {
            judge();
        }
        std::cout << (failures == 0 ? "passed" : "FAILED") << '\n';
        return failures == 0;
    }

private:
    std::vector<std::unique_ptr<Publisher>> makePublishers() const {
        std::vector<std::unique_ptr<Publisher>> made;
        for (std::size_t number = 0; number < publisherCount; ++number) {
            made.push_back(std::make_unique<Publisher>("open-endpoint" + where));
        }
        return made;
    }

    std::vector<std::unique_ptr<Worker>> makeWorkers(std::uint64_t seed) {
        std::vector<std::unique_ptr<Worker>> made;
        for (std::size_t number = 0; number < workerCount; ++number) {
            Worker& worker = *made.emplace_back(std::make_unique<Worker>(seed + 1 + number));
            for (std::size_t index = 0; index < streamsPerWorker; ++index) {
                const std::string name = std::to_string(number) + "-" + std::to_string(index);
                worker.add(std::make_unique<CheckedStream>(
                    directory.path / ("file-" + name), name, *publishers[index % publisherCount],
                    totals, worker.randomness()));
            }
        }
        return made;
    }

    ImporterOptions importing() const {
        ImporterOptions options;
        options.runtimeDirectory = directory.path;
        return options;
    }

    std::ptrdiff_t descriptorsOfPublisher() const {
        return figuresOf(publishers[0]->id()).descriptors;
    }

    template <class Condition>
    bool all(const Condition& condition) const {
        return std::all_of(workers.begin(), workers.end(), condition);
    }

    template <class Action>
    void attempt(const Action& action) {
        try {
            action();
        } catch (const std::exception& error) {
            fail(error.what());
        }
    }

    void fail(const std::string& why) {
        std::cout << "FAILED: " << why << '\n';
        ++failures;
    }

    void tick() {
        watchdog.look();
        ::alarm(secondsOfAHang); // this thread has no other watchdog
        std::this_thread::sleep_for(pace);
    }

    void round(Clock::time_point end) {
        for (const auto& worker : workers) {
            worker->start();
        }
        attempt([&] {
            for (auto now = Clock::now();
                 now < end && all([](const auto& worker) { return !worker->hasFailed(); });
                 now = Clock::now()) {
                trouble.step(now);
                stalled.step(now);
                killed.step(now);
                tick();
            }
        });
        trouble.finish();
        attempt([&] { stalled.finish(); });
        attempt([&] { killed.finish(); });
        for (const auto& worker : workers) {
            worker->askToEnd();
        }
        while (!all([](const auto& worker) { return worker->isOver(); })) {
            tick();
        }
        for (const auto& worker : workers) {
            attempt([&] { worker->join(); });
        }
        if (failures == 0 && !eventually([&] { return descriptorsOfPublisher() == descriptors; })) {
            fail(
                "A publisher has " + std::to_string(descriptorsOfPublisher()) +
                " descriptors without readers that were killed, and had " +
                std::to_string(descriptors) + ".");
        }
    }

    /// Take the least that there is within some time: the transport ends some things later.
    void sample() {
        std::array<std::uint64_t, 3> least{};
        for (std::size_t index = 0; index < observed.size(); ++index) {
            least[index] = observed[index].smallBlocks();
        }
        for (auto waited = Clock::duration::zero(); waited < quietTime; waited += pace) {
            std::this_thread::sleep_for(pace);
            for (std::size_t index = 0; index < observed.size(); ++index) {
                least[index] = std::min(least[index], observed[index].smallBlocks());
            }
        }
        for (std::size_t index = 0; index < observed.size(); ++index) {
            observed[index].sample(totals, least[index]);
        }
    }

    void report(double seconds) const {
        std::cout << std::fixed << std::setprecision(1) //
                  << "time        " << seconds << " s\n"
                  << "bytes       " << totals.bytesRead << " read, " << totals.bytesWritten
                  << " written\n"
                  << "calls       " << totals.calls << "; " << totals.putBacks
                  << " times a character was put back\n"
                  << "streams     " << totals.publications << " publications, "
                  << totals.connections << " connections\n"
                  << "faults      " << totals.kills << " publishers killed, " << totals.stops
                  << " stopped for a while; " << totals.stalls << " stalls amid a read, "
                  << totals.readerKills << " readers killed\n"
                  << "errors      that had to come:";
        for (const auto& [type, count] : totals.provoked()) {
            std::cout << ' ' << count << ' ' << type << ';';
        }
        std::cout << " unexpected: " << totals.unexpected << '\n';
        if (duration < shortestJudged) {
            std::cout << "growth      not judged: too short a run to tell it from chance\n";
            return;
        }
        std::cout << "growth      +- two standard errors\n" << std::setprecision(3);
        for (const Observed& process : observed) {
            std::cout << process;
        }
    }

    void judge() {
        for (const Observed& process : observed) {
            for (const Growth& growth : process.growths) {
                if (duration >= shortestJudged && !growth.isFlat()) {
                    fail(std::string(process.name) + ": the " + growth.what + " grow.");
                }
            }
        }
        const auto provoked = totals.provoked();
        if (totals.bytesRead == 0 || totals.bytesWritten == 0 || totals.putBacks == 0 ||
            totals.kills == 0 || totals.stalls == 0 || totals.readerKills == 0 ||
            provoked.count("agent::orvi::remoting::PeerLost") == 0 ||
            provoked.count("agent::orvi::core::ServiceUnavailable") == 0) {
            fail("Something has not happened at all.");
        }
    }

    const Minutes duration;
    const TemporaryDirectory directory;
    const std::string where = " directory=" + directory.path.string();
    const std::string readers = "open-importer" + where;
    Totals totals;
    const Importer importer{importing()};
    std::vector<std::unique_ptr<Publisher>> publishers = makePublishers();
    Stall stalled;
    Stall killed;
    std::vector<std::unique_ptr<Worker>> workers;
    std::array<Observed, 3> observed{
        Observed{"importer", ::getpid(), memoryInSmallBlocks, totals.kills},
        Observed{
            "publisher", publishers[0]->id(),
            [this] { return std::stoull(publishers[0]->ask(1, "memory")); }, totals.readerKills},
        Observed{
            "reader", stalled.process().id(),
            [this] { return std::stoull(stalled.process().ask("memory")); }, totals.kills}};
    Watchdog watchdog{workers};
    Trouble trouble;
    std::ptrdiff_t descriptors = 0; ///< Of the publisher that is never killed, at first.
    int failures = 0;
};

/// Run this program anew, and those that it runs, with a memory allocator that lets what is freed
/// go at once, in threads as well, and gives larger blocks mappings of their own: what small blocks
/// take then is all in use, and hardly varies.
void useExactMemory(char** arguments) {
    const std::string tunables =
        "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=2:glibc.malloc.trim_threshold=65536"
        ":glibc.malloc.mmap_threshold=8192"; // the transport keeps larger ones, of changing size
    const char* const before = std::getenv("GLIBC_TUNABLES");
    if (before == nullptr || before != tunables) {
        ::setenv("GLIBC_TUNABLES", tunables.c_str(), 1);
        ::execv("/proc/self/exe", arguments);
        throw std::system_error(errno, std::generic_category(), "execv");
    }
}

} // namespace

int main(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN); // a publisher that was killed reads nothing any more
    std::cout << std::unitbuf;
    try {
        useExactMemory(arguments);
        const double minutes = count > 1 ? std::stod(arguments[1]) : 10;
        const std::uint64_t seed = count > 2 ? std::stoull(arguments[2]) : std::random_device()();
        std::cout << "seed " << seed << ", " << workerCount * streamsPerWorker << " streams, "
                  << minutes << " minutes\n";
        return Soak(Minutes(minutes), seed).run() ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "FAILED: " << error.what() << '\n';
        return 1;
    }
}
