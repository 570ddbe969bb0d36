#include "streambuf/StreamBuffer.hpp"

#include "support/Registry.hpp"

#include <orvi/core/InvocationErrors.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using core::GenericPayload;
using core::ServiceUnavailable;

constexpr int callers = 8;

/// A device whose operations must not run once it is gone. Its operations use it without owning
/// it, so that a sanitizer sees a late one, and so does the count of calls.
class MortalDevice {
public:
    explicit MortalDevice(std::atomic<std::int64_t>& callsRun)
        : callsRun(callsRun) {}

    ~MortalDevice() { bytes.fill('\0'); }

    MortalDevice(const MortalDevice&) = delete;
    MortalDevice& operator=(const MortalDevice&) = delete;

    StreamBuffer publish(const boost::uuids::uuid& uuid) {
        return makeDevice(
            uuid,
            [this](std::int64_t count) {
                ++callsRun;
                return std::string(
                    bytes.data(),
                    std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(count)));
            },
            [this](const std::string& data) {
                ++callsRun;
                return static_cast<std::int64_t>(bytes[0] == 'x' ? data.size() : 0);
            },
            [this](std::int64_t, int, int) -> std::streampos {
                ++callsRun;
                return bytes[1];
            },
            [this](std::streampos, int) -> std::streampos {
                ++callsRun;
                return bytes[2];
            },
            16);
    }

private:
    std::atomic<std::int64_t>& callsRun;
    std::array<char, 64> bytes = [] {
        std::array<char, 64> filled;
        filled.fill('x');
        return filled;
    }();
};

/// Use a stream buffer until its publisher is gone.
void useUntilUnavailable(std::streambuf& buffer, const std::function<void()>& afterFirstUse) {
    bool first = true;
    for (;;) {
        try {
            std::array<char, 40> characters{};
            buffer.sgetn(characters.data(), characters.size());
            buffer.sputn(characters.data(), characters.size());
            buffer.pubseekoff(1, std::ios_base::beg, std::ios_base::in);
            buffer.pubseekpos(1, std::ios_base::in);
        } catch (const ServiceUnavailable&) {
            return;
        }
        if (std::exchange(first, false)) {
            afterFirstUse();
        }
    }
}

/// Invoke a service until it is gone.
void invokeUntilUnavailable(core::Invokable& service, const std::function<void()>& afterFirstUse) {
    bool first = true;
    for (;;) {
        try {
            test::invokeAtOnce(service, "read", GenericPayload::fromValues(std::int64_t{3}));
        } catch (const ServiceUnavailable&) {
            return;
        }
        if (std::exchange(first, false)) {
            afterFirstUse();
        }
    }
}

TEST(StreamWithdrawalTest, NoOperationRunsOnceThePublishersStreamBufferIsDestroyed) {
    for (int round = 0; round < 10; ++round) {
        const boost::uuids::uuid uuid = test::newUuid();
        std::atomic<std::int64_t> callsRun = 0;
        auto device = std::make_optional<MortalDevice>(callsRun);
        auto publisher = std::make_optional(device->publish(uuid));
        std::vector<StreamBuffer> connected;
        for (int caller = 0; caller < callers; ++caller) {
            connected.push_back(makeDevice(uuid, noCloseFunction()));
        }
        const auto service = test::invokableOf(uuid);

        std::latch allInside(callers);
        const auto arrive = [&] { allInside.count_down(); };
        std::vector<std::jthread> threads;
        for (int caller = 0; caller < callers; ++caller) {
            threads.emplace_back([&, caller] {
                if (caller % 2 == 0) {
                    useUntilUnavailable(connected[static_cast<std::size_t>(caller)], arrive);
                } else {
                    invokeUntilUnavailable(*service, arrive);
                }
            });
        }
        allInside.wait();
        publisher.reset();
        const std::int64_t callsRunBefore = callsRun;
        device.reset();
        threads.clear();
        EXPECT_EQ(callsRun, callsRunBefore);
        EXPECT_GE(callsRunBefore, callers);
        EXPECT_THROW(connected[1].sgetc(), ServiceUnavailable);
        EXPECT_EQ(callsRun, callsRunBefore);
    }
}

TEST(StreamWithdrawalTest, WaitsForTheOperationThatIsRunning) {
    const boost::uuids::uuid uuid = test::newUuid();
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> left = false;
    auto publisher = std::make_optional(makeDevice(
        uuid,
        [&, mayLeave = leave.get_future().share()](std::int64_t) {
            entered.set_value();
            mayLeave.wait();
            left = true;
            return std::string("late");
        },
        {}, {}, {}, 4));
    StreamBuffer connected = makeDevice(uuid, noCloseFunction());

    auto reading = std::async(std::launch::async, [&] { return connected.sgetc(); });
    entered.get_future().wait();
    auto ending = std::async(std::launch::async, [&] {
        publisher.reset();
        return left.load();
    });
    EXPECT_EQ(ending.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    leave.set_value();
    EXPECT_TRUE(ending.get()) << "the destructor returned while the operation was running";
    EXPECT_EQ(reading.get(), 'l') << "the call that was running is answered";
}

TEST(StreamWithdrawalTest, AnOperationMayDestroyItsOwnPublishersStreamBuffer) {
    const boost::uuids::uuid uuid = test::newUuid();
    std::optional<StreamBuffer> publisher;
    publisher.emplace(makeDevice(
        uuid,
        [&](std::int64_t) {
            publisher.reset();
            return std::string("last");
        },
        {}, {}, {}, 4));
    StreamBuffer connected = makeDevice(uuid, noCloseFunction());
    EXPECT_EQ(connected.sgetc(), 'l');
    EXPECT_FALSE(publisher.has_value());
    EXPECT_TRUE(test::invokablesOf(uuid).empty());
    std::array<char, 4> characters{};
    EXPECT_EQ(connected.sgetn(characters.data(), characters.size()), 4);
    EXPECT_THROW(connected.sgetc(), ServiceUnavailable);
}

TEST(StreamWithdrawalTest, AnOperationMayDestroyItUnderOtherCallers) {
    for (int round = 0; round < 10; ++round) {
        const boost::uuids::uuid uuid = test::newUuid();
        std::atomic<int> callsRun = 0;
        std::optional<StreamBuffer> publisher;
        publisher.emplace(makeDevice(
            uuid,
            [&](std::int64_t) {
                if (++callsRun == 50) {
                    publisher.reset();
                }
                return std::string("x");
            },
            {}, {}, {}, 4));
        const auto service = test::invokableOf(uuid);
        std::vector<std::jthread> threads;
        for (int caller = 0; caller < callers; ++caller) {
            threads.emplace_back([&] { invokeUntilUnavailable(*service, [] {}); });
        }
        threads.clear();
        EXPECT_GE(callsRun, 50);
        EXPECT_FALSE(publisher.has_value());
    }
}

TEST(StreamWithdrawalTest, ReplacingThePublishersStreamBufferWithdrawsTheOldDevice) {
    const boost::uuids::uuid uuid = test::newUuid();
    std::atomic<std::int64_t> callsRun = 0;
    auto device = std::make_optional<MortalDevice>(callsRun);
    StreamBuffer publisher = device->publish(uuid);
    const auto service = test::invokableOf(uuid);
    std::latch allInside(callers);
    std::vector<std::jthread> threads;
    for (int caller = 0; caller < callers; ++caller) {
        threads.emplace_back(
            [&] { invokeUntilUnavailable(*service, [&] { allInside.count_down(); }); });
    }
    allInside.wait();
    publisher = makeDevice(test::newUuid(), {}, {}, {}, {}, 1);
    device.reset();
    threads.clear();
    EXPECT_THROW(
        test::invokeAtOnce(*service, "read", GenericPayload::fromValues(std::int64_t{1})),
        ServiceUnavailable);
}

} // namespace
} // namespace agent::orvi::streambuf
