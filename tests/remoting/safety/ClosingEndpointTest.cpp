#include "remoting/safety/DeafPeer.hpp"
#include "remoting/safety/EndpointTest.hpp"
#include "remoting/safety/NameService.hpp"
#include "remoting/safety/NoMoreThreads.hpp"

#include "support/Sanitizers.hpp"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

/// What the closing of an endpoint may take, and a busy machine besides.
#if defined(ORVI_ADDRESS_SANITIZER) || defined(ORVI_THREAD_SANITIZER)
constexpr std::chrono::milliseconds endpointClosingTime{6000};
#else
constexpr std::chrono::milliseconds endpointClosingTime{3000};
#endif

/// More than the system keeps for a connection.
constexpr std::int64_t manyBytes = std::int64_t{64} << 20;

constexpr std::uint16_t endpointPort = 5005;

/// Return an address of the loopback device that no other process uses.
std::string ownAddress() {
    const pid_t process = ::getpid();
    return "127." + std::to_string(process >> 16) + "." + std::to_string((process >> 8) & 255) +
           "." + std::to_string(process & 255);
}

/// An endpoint whose peer takes nothing of what it has asked for.
class ClosingEndpointTest : public EndpointTest {
protected:
    ClosingEndpointTest() {
        options.local = false;
        options.plainLoopback = true;
        options.listen = {address + ":" + std::to_string(endpointPort)};
        open();
        EXPECT_TRUE(offerOf().has_value()); // what the process makes once is there then
        endpoint.reset();
        before = openDescriptors();
    }

    ~ClosingEndpointTest() override {
        endpoint.reset();
        peer.reset();
        // What was left behind ends once it can.
        EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }));
    }

    std::optional<v1::Offer> offerOf() const {
        return EndpointTest::offerOf(
            published, EndpointTest::connect(
                           "ipv4:" + address + ":" + std::to_string(endpointPort),
                           grpc::InsecureChannelCredentials()));
    }

    void connectDeafPeer() {
        const auto offer = offerOf();
        ASSERT_TRUE(offer.has_value());
        peer.emplace(address, endpointPort, offer->service(), manyBytes);
        ASSERT_TRUE(peer->awaitFullConnection());
    }

    template <class Action>
    static std::chrono::milliseconds timeOf(const Action& action) {
        const auto start = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
    }

    const std::string address = ownAddress();
    const Published published{std::string(manyBytes, 'x')};
    std::ptrdiff_t before = 0;
    std::optional<DeafPeer> peer;
};

TEST_F(ClosingEndpointTest, DoesNotWaitForAPeerThatTakesNothing) {
    open();
    connectDeafPeer();
    EXPECT_LT(timeOf([&] { endpoint->close(); }), endpointClosingTime);
}

TEST_F(ClosingEndpointTest, DoesNotWaitForThatWhenNoThreadCanBeStarted) {
    open();
    connectDeafPeer();
    const NoMoreThreads guard;
    ASSERT_FALSE(NoMoreThreads::areStarted());
    EXPECT_LT(timeOf([&] { endpoint->close(); }), endpointClosingTime);
}

TEST_F(ClosingEndpointTest, DoesNotWaitForThatWhenAnotherAddressCannotBeUsed) {
    options.listen.emplace_back("unknown.test:1");
    NameService names("unknown.test");
    std::optional<std::chrono::steady_clock::time_point> failed;
    names.callWhenAsked([&] {
        connectDeafPeer();
        failed = std::chrono::steady_clock::now();
    });
    EXPECT_THROW(open(), std::system_error);
    ASSERT_TRUE(failed.has_value());
    EXPECT_LT(std::chrono::steady_clock::now() - *failed, endpointClosingTime);
}

} // namespace
} // namespace agent::orvi::remoting::test
