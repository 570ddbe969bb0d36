#include "streams/Neighbours.hpp"

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "support/Registry.hpp"

#include "terminal/Failure.hpp"

#include <cppmicroservices/ServiceListenerHook.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::tool::test {
namespace {

using namespace std::chrono_literals;

/// Withdraws a stream as soon as it is looked for a second time.
class Withdrawal final : public cppmicroservices::ServiceListenerHook {
public:
    explicit Withdrawal(const boost::uuids::uuid& uuid)
        : filter("(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + ")")
        , stream(streambuf::makeDevice(
              uuid, [](std::int64_t) { return std::string(); }, {}, {}, {}, 100)) {}

    void Added(const std::vector<ListenerInfo>& listeners) override {
        for (const ListenerInfo& listener : listeners) {
            if (listener.GetFilter() == filter && ++lookUps == 2) {
                stream.reset();
            }
        }
    }

    void Removed(const std::vector<ListenerInfo>& listeners) override {
        for (const ListenerInfo& listener : listeners) {
            if (listener.GetFilter() == filter && !stream && !std::exchange(toldOfTheEnd, true)) {
                lookUpEnded.set_value();
            }
        }
    }

    bool isDone() const { return !stream; }

    /// Tells when one of the look-ups that miss the stream has ended.
    std::future<void> lookUpEnd() { return lookUpEnded.get_future(); }

private:
    const std::string filter;
    std::optional<streambuf::StreamBuffer> stream;
    int lookUps = 0;
    std::promise<void> lookUpEnded;
    bool toldOfTheEnd = false;
};

class NeighboursTest : public testing::Test {
protected:
    NeighboursTest()
        : hook(streambuf::test::registryContext()
                   .RegisterService<cppmicroservices::ServiceListenerHook>(withdrawal)) {
        options.network.runtimeDirectory = directory.path;
    }

    ~NeighboursTest() override { hook.Unregister(); }

    const boost::uuids::uuid uuid = streambuf::test::newUuid();
    const std::shared_ptr<Withdrawal> withdrawal = std::make_shared<Withdrawal>(uuid);
    remoting::test::TemporaryDirectory directory;
    SearchOptions options;

private:
    cppmicroservices::ServiceRegistration<cppmicroservices::ServiceListenerHook> hook;
};

class NeighboursTimeoutTest : public NeighboursTest,
                              public testing::WithParamInterface<std::chrono::milliseconds> {};

TEST_P(NeighboursTimeoutTest, MissesAStreamThatGoesWhileItIsConnectedTo) {
    options.timeout = GetParam();
    Neighbours neighbours(options);
    const auto begin = std::chrono::steady_clock::now();
    try {
        neighbours.connect(uuid);
        ADD_FAILURE() << "there is nothing to connect to";
    } catch (const CommandFailure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::noSuchStream) << failure.what();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, GetParam() + 5s);
    EXPECT_TRUE(withdrawal->isDone());
}

// The library gives up after 20 seconds.
INSTANTIATE_TEST_SUITE_P(Timeout, NeighboursTimeoutTest, testing::Values(0ms, 100ms, 20500ms));

TEST_F(NeighboursTest, FindAStreamThatComesBackOnceTheLibraryHasGivenUp) {
    options.timeout = 60s;
    Neighbours neighbours(options);
    auto comeback = std::async(std::launch::async, [&] {
        withdrawal->lookUpEnd().wait();
        return streambuf::makeDevice(
            uuid, [](std::int64_t) { return std::string("back"); }, {}, {}, {}, 4);
    });
    auto connected = neighbours.connect(uuid);
    EXPECT_TRUE(withdrawal->isDone());
    std::string text(4, '\0');
    EXPECT_EQ(connected.device.sgetn(text.data(), 4), 4);
    EXPECT_EQ(text, "back");
}

} // namespace
} // namespace agent::orvi::tool::test
