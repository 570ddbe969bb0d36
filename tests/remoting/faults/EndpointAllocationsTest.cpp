#include "allocations/FailingElsewhere.hpp"
#include "remoting/safety/EndpointTest.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace agent::orvi::remoting::test {
namespace {

using orvi::test::FailingElsewhere;

/// An endpoint whose threads find no memory once.
class EndpointAllocations : public EndpointTest {
protected:
    EndpointAllocations() {
        open();
        EXPECT_TRUE(isServed()); // what the process makes once is there before anything fails
    }

    /// Do something with the endpoint while an allocation of its threads fails, the first, the
    /// second, ... and see that it serves the next one each time, and can be closed in the end.
    ///
    /// @return how many have failed.
    template <class Action>
    std::size_t failEach(const Action& action) {
        for (std::size_t number = 1;; ++number) {
            SCOPED_TRACE(number);
            bool failed = false;
            const auto channel = connect();
            EXPECT_TRUE(channel->WaitForConnected(std::chrono::system_clock::now() + longTime));
            {
                const FailingElsewhere failure(number);
                action(channel);
                failed = failure.happened();
            }
            EXPECT_TRUE(isServed());
            if (!failed || HasFailure()) {
                return number - 1;
            }
        }
    }

    const Published published{"some bytes"};
};

TEST_F(EndpointAllocations, MayFailWhileAStreamIsOpened) {
    const auto open = [](const auto& channel) {
        RawStream stream(channel, "Call");
        stream.send(greeting());
        call(stream, readRequest(1)); // of a service that is not there
    };
    EXPECT_GT(failEach(open), 5U);
}

TEST_F(EndpointAllocations, MayFailWhileAConnectionIsAccepted) {
    const auto open = [&](const auto&) {
        RawStream stream(connect(), "Call");
        stream.send(greeting());
        call(stream, readRequest(1));
    };
    EXPECT_GT(failEach(open), 5U);
}

TEST_F(EndpointAllocations, MayFailWhileAServiceIsOffered) {
    EXPECT_GT(failEach([&](const auto& channel) { offerOf(published, channel); }), 5U);
}

TEST_F(EndpointAllocations, MayFailWhileACallIsAnswered) {
    const std::uint64_t service = numberOf(published);
    const auto read = [&](const auto& channel) {
        RawStream stream(channel, "Call");
        stream.send(greeting(service));
        call(stream, readRequest(10));
    };
    EXPECT_GT(failEach(read), 5U);
}

} // namespace
} // namespace agent::orvi::remoting::test
