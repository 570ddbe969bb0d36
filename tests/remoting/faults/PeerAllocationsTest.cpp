#include "allocations/FailingElsewhere.hpp"
#include "remoting/discovery/Fixture.hpp"

#include "discovery/LocalAddress.hpp"
#include "discovery/LocalPeers.hpp"
#include "discovery/TargetPeers.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using namespace details;
using orvi::test::FailingElsewhere;
using orvi::test::SparedThread;

/// Those who look for peers find no memory once, on whatever thread of theirs.
class PeerAllocations : public DirectoryFixture {
protected:
    /// @return how many allocations have failed.
    template <class Attempt>
    static std::size_t failEach(const Attempt& attempt) {
        for (std::size_t number = 1;; ++number) {
            SCOPED_TRACE(number);
            const FailingElsewhere failure(number);
            attempt();
            if (!failure.happened() || HasFailure()) {
                return number - 1;
            }
        }
    }

    static void add(EventLog<std::string>& log, const std::string& event) {
        const SparedThread here;
        log.add(event);
    }

    static void
    add(EventLog<std::string>& log, const char* sign, const std::filesystem::path& path) {
        const SparedThread here;
        log.add(sign + path.string());
    }
};

TEST_F(PeerAllocations, MayFailAndEndpointsAreFoundAndSeenToGo) {
    const auto listen = [&] {
        return std::make_unique<LocalListener>(housekeeper, directory, "own", [](int descriptor) {
            const Descriptor end(descriptor);
        });
    };
    const std::size_t failures = failEach([&] {
        EventLog<std::string> events;
        const LocalPeers peers(
            housekeeper, directory, [&](const auto& socket) { add(events, "+", socket); },
            [&](const auto& socket) { add(events, "-", socket); },
            LocalPeers::OwnEndpoints::report);
        for (int count = 0; count < 3; ++count) {
            auto listener = listen();
            const std::string path = listener->path();
            EXPECT_TRUE(events.waitForEvent("+" + path)) << count;
            listener.reset();
            EXPECT_TRUE(events.waitForEvent("-" + path)) << count;
        }
    });
    EXPECT_GT(failures, 20U);
}

TEST_F(PeerAllocations, MayFailAndTargetsAreResolvedInTheEnd) {
    constexpr TargetPeers::Backoff fast{std::chrono::milliseconds(1), std::chrono::milliseconds(2)};
    const std::vector<std::string> targets{"192.0.2.1:80", "with-a-long-name.example.test:80"};
    const std::size_t failures = failEach([&] {
        EventLog<std::string> resolved;
        EventLog<std::string> failed;
        const auto asked = std::make_shared<std::atomic<int>>(0);
        const auto resolver = [asked](const HostPort&) -> std::vector<HostPort> {
            if (++*asked == 1) {
                throw std::runtime_error("nobody knows the first time");
            }
            return {{"192.0.2.2", 80}};
        };
        const TargetPeers peers(
            housekeeper, targets,
            {[](const TargetAddress&) {},
             [&](const std::string& target, const auto&) { add(resolved, target); },
             [&](const std::string& target, const auto&) { add(failed, target); }},
            resolver, fast);
        for (const std::string& target : targets) {
            EXPECT_TRUE(resolved.waitForEvent(target)) << target;
        }
    });
    EXPECT_GT(failures, 10U);
}

TEST_F(PeerAllocations, AreNotMissedByATargetWhoseAddressesNobodyCanTake) {
    constexpr TargetPeers::Backoff fast{std::chrono::milliseconds(1), std::chrono::milliseconds(2)};
    EventLog<std::string> failed;
    int attempts = 0;
    EventLog<int> taken;
    const TargetPeers peers(
        housekeeper, {"192.0.2.1:80"},
        {[](const TargetAddress&) {},
         [&](const std::string&, const auto&) {
             if (++attempts < 3) {
                 throw std::bad_alloc();
             }
             taken.add(attempts);
         },
         [&](const std::string&, const std::string& reason) { add(failed, reason); }},
        {}, fast);
    EXPECT_EQ(taken.waitFor(1), std::vector<int>{3});
    EXPECT_EQ(failed.all(), std::vector<std::string>(2, std::bad_alloc().what()));
}

} // namespace
} // namespace agent::orvi::remoting::test
