#include "streams/Neighbours.hpp"

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "support/Registry.hpp"

#include "terminal/Failure.hpp"

#include <cppmicroservices/ServiceListenerHook.h>

#include <gtest/gtest.h>

#include <chrono>
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

    void Removed(const std::vector<ListenerInfo>&) override {}

    bool isDone() const { return !stream; }

private:
    const std::string filter;
    std::optional<streambuf::StreamBuffer> stream;
    int lookUps = 0;
};

class NeighboursTest : public testing::TestWithParam<std::chrono::milliseconds> {
protected:
    remoting::test::TemporaryDirectory directory;
};

TEST_P(NeighboursTest, MissAStreamThatGoesWhileItIsConnectedTo) {
    const auto uuid = streambuf::test::newUuid();
    const auto withdrawal = std::make_shared<Withdrawal>(uuid);
    auto hook =
        streambuf::test::registryContext().RegisterService<cppmicroservices::ServiceListenerHook>(
            withdrawal);
    SearchOptions options;
    options.network.runtimeDirectory = directory.path;
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
    hook.Unregister();
}

INSTANTIATE_TEST_SUITE_P(Timeout, NeighboursTest, testing::Values(0ms, 100ms));

} // namespace
} // namespace agent::orvi::tool::test
