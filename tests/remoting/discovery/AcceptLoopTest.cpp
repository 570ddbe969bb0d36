#include "discovery/AcceptLoop.hpp"

#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/Sockets.hpp"

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <sys/resource.h>

namespace agent::orvi::remoting::details {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

/// Lets this process open no more descriptors for a while.
class NoDescriptorsLeft {
public:
    NoDescriptorsLeft() {
        ::getrlimit(RLIMIT_NOFILE, &previous);
        rlimit none = previous;
        none.rlim_cur = 0;
        ::setrlimit(RLIMIT_NOFILE, &none);
    }

    ~NoDescriptorsLeft() { ::setrlimit(RLIMIT_NOFILE, &previous); }

    NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
    NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;

private:
    rlimit previous{};
};

std::chrono::nanoseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

class AcceptLoopTest : public test::DirectoryFixture {
protected:
    Descriptor listeningSocket() const {
        Descriptor socket = test::newLocalSocket();
        EXPECT_EQ(test::withPath(::bind, socket.get(), address), 0);
        EXPECT_EQ(::listen(socket.get(), 100), 0);
        return socket;
    }

    void accepted(Descriptor socket) {
        sockets.add(std::make_shared<Descriptor>(std::move(socket)));
    }

    const std::string address = parent.path / "socket";
    test::EventLog<std::shared_ptr<Descriptor>> sockets;
};

TEST_F(AcceptLoopTest, PausesWhileThereAreNoDescriptorsAndGoesOnThen) {
    const AcceptLoop loop(
        housekeeper, listeningSocket(), [this](Descriptor socket) { accepted(std::move(socket)); });
    const Descriptor client = test::newLocalSocket();
    const auto processorTimeBefore = processorTime();
    std::optional<NoDescriptorsLeft> none(std::in_place);
    const int connected = test::withPath(::connect, client.get(), address);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(400);
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    const auto acceptedMeanwhile = sockets.all();
    none.reset(); // before anything else, since the checks of sanitizers need descriptors
    EXPECT_LT(processorTime() - processorTimeBefore, std::chrono::milliseconds(200));
    EXPECT_EQ(connected, 0);
    EXPECT_THAT(acceptedMeanwhile, IsEmpty());
    EXPECT_THAT(sockets.waitFor(1), SizeIs(1));
}

TEST_F(AcceptLoopTest, LetsNobodyConnectAfterItsEndEvenIfTheSocketIsStillOpenElsewhere) {
    Descriptor listening = listeningSocket();
    const Descriptor elsewhere(::dup(listening.get()));
    {
        const AcceptLoop loop(housekeeper, std::move(listening), [](Descriptor) {});
    }
    const Descriptor client = test::newLocalSocket();
    EXPECT_NE(test::withPath(::connect, client.get(), address), 0);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(AcceptLoopTest, WorksOnAfterItWasMoved) {
    AcceptLoop first(
        housekeeper, listeningSocket(), [this](Descriptor socket) { accepted(std::move(socket)); });
    const AcceptLoop second = std::move(first);
    const Descriptor client = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::connect, client.get(), address), 0);
    EXPECT_THAT(sockets.waitFor(1), SizeIs(1));
}

TEST_F(AcceptLoopTest, EndsTheOneThatItReplaces) {
    AcceptLoop loop(housekeeper, listeningSocket(), [](Descriptor) {});
    std::filesystem::rename(address, address + ".old");
    loop = AcceptLoop(
        housekeeper, listeningSocket(), [this](Descriptor socket) { accepted(std::move(socket)); });
    const Descriptor late = test::newLocalSocket();
    EXPECT_NE(test::withPath(::connect, late.get(), address + ".old"), 0);
    const Descriptor client = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::connect, client.get(), address), 0);
    EXPECT_THAT(sockets.waitFor(1), SizeIs(1));
}

TEST_F(AcceptLoopTest, CanEndAfterTheHousekeeper) {
    std::optional<AcceptLoop> loop(
        std::in_place, housekeeper, listeningSocket(),
        [this](Descriptor socket) { accepted(std::move(socket)); });
    housekeeper.stop();
    const Descriptor client = test::newLocalSocket();
    ASSERT_EQ(test::withPath(::connect, client.get(), address), 0);
    loop.reset();
    EXPECT_EQ(test::readFrom(client.get()), "error");
    EXPECT_THAT(sockets.all(), IsEmpty());
}

} // namespace
} // namespace agent::orvi::remoting::details
