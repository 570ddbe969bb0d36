#include "remoting/safety/EndpointTest.hpp"

#include "remoting/discovery/Sockets.hpp"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <vector>

#include <malloc.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20;

/// Longer than an endpoint makes somebody else wait who asks for little.
constexpr std::chrono::seconds latest{5};

/// Return how much memory the process has in use, in bytes. What it could give back to the system
/// is given back before.
std::size_t memoryInUse() {
    ::malloc_trim(0);
    std::ifstream statistics("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    statistics >> all >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

/// An endpoint of which an importer wants more than it can use.
class FloodTest : public EndpointTest {
protected:
    ~FloodTest() override {
        EXPECT_TRUE(eventually([&] { return isServed(); }));
    }

    std::unique_ptr<RawStream> greeted(const std::string& method, std::uint64_t number = 0) const {
        auto stream = std::make_unique<RawStream>(connect(), method);
        stream->send(greeting(number));
        return stream;
    }
};

/// Opens streams over one connection and resets each of them at once.
class Opener {
public:
    Opener(const std::shared_ptr<grpc::Channel>& channel, std::string method)
        : stub(channel)
        , method(std::move(method)) {}

    ~Opener() {
        queue.Shutdown();
        next();
    }

    Opener(const Opener&) = delete;
    Opener& operator=(const Opener&) = delete;

    void openAndReset() {
        grpc::ClientContext context;
        grpc::Status status;
        const auto call = stub.PrepareCall(&context, method, &queue);
        call->StartCall(this);
        next(); // it has been sent
        context.TryCancel();
        call->Finish(&status, this);
        next();
    }

private:
    void next() {
        void* tag = nullptr;
        bool ok = false;
        queue.Next(&tag, &ok);
    }

    grpc::GenericStub stub;
    const std::string method;
    grpc::CompletionQueue queue;
};

/// Return how many streams are opened: what ORVI_TEST_OPENS says, else as many as take seconds.
int opens() {
    const char* const count = std::getenv("ORVI_TEST_OPENS");
    return count != nullptr ? std::stoi(count) : 100000;
}

TEST_F(FloodTest, OfStreamsThatAreResetAtOnceLeavesNothingBehind) {
    open();
    constexpr int kinds = 4;
    const Published published(std::string(100, 'p'));
    const std::uint64_t service = numberOf(published);
    const auto other = greeted("Call", service);
    for (const std::string& method :
         {std::string("/orvi.remoting.v1.Streams/Call"),
          std::string("/orvi.remoting.v1.Streams/Control"),
          std::string("/grpc.health.v1.Health/Watch"), std::string("/no.such.Service/Method")}) {
        Opener opener(connect(), method);
        for (int i = 0; i < 2000; ++i) { // what the first ones leave is there for the next ones
            opener.openAndReset();
        }
        const std::size_t memory = memoryInUse();
        const std::ptrdiff_t descriptors = openDescriptors();
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < opens() / kinds; ++i) {
            opener.openAndReset();
            if (i % 1000 == 0) {
                const auto start = std::chrono::steady_clock::now();
                EXPECT_EQ(call(*other, readRequest(1)).type, "");
                EXPECT_LT(std::chrono::steady_clock::now() - start, latest);
            }
        }
        EXPECT_TRUE(eventually([&] { return memoryInUse() < memory + 16 * mebibyte; })) << method;
        EXPECT_TRUE(eventually([&] { return openDescriptors() <= descriptors; })) << method;
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        std::cout << method << ": " << opens() / kinds << " opened in " << time.count()
                  << " s, memory from " << memory << " to " << memoryInUse() << " bytes\n";
    }
}

TEST_F(FloodTest, OfLookUpsIsNotReadOnceNobodyReadsWhatItLeadsTo) {
    open();
    const Published published("bytes");
    const auto control = greeted("Control");
    const std::size_t memory = memoryInUse();
    // Each round makes three pieces of news.
    const std::string look = want(1, published.filter()).SerializeAsString();
    const std::string lookNoMore = unwant(1).SerializeAsString();
    std::size_t rounds = 0;
    while (rounds < 300000 && control->trySend(look) && control->trySend(lookNoMore)) {
        ++rounds;
    }
    EXPECT_LT(rounds, 300000U);
    EXPECT_LT(memoryInUse(), memory + 64 * mebibyte);
    EXPECT_TRUE(isServed());
    for (std::size_t settled = 0; settled < rounds; ++settled) {
        ASSERT_TRUE(receiveA(*control, v1::Frame::kSettled).has_value()) << settled;
    }
}

TEST_F(FloodTest, OfLookUpsEndsQuickly) {
    open();
    const Published published("bytes");
    auto control = greeted("Control");
    constexpr std::uint64_t count = 65536; // the usual limit
    constexpr std::uint64_t together = 256;
    for (std::uint64_t number = 1; number <= count; ++number) {
        control->send(want(number, "(a=b)"));
        for (std::uint64_t settled = 0; number % together == 0 && settled < together; ++settled) {
            ASSERT_TRUE(receiveA(*control, v1::Frame::kSettled).has_value());
        }
    }
    const auto start = std::chrono::steady_clock::now();
    control.reset();
    RawStream other(connect(), "Control");
    other.send(greeting());
    do { // all must have been forgotten for this to be quick
        other.send(want(1, published.filter()));
        EXPECT_TRUE(receiveA(other, v1::Frame::kOffer).has_value());
        other.send(unwant(1));
        EXPECT_TRUE(receiveA(other, v1::Frame::kWithdrawal).has_value());
    } while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(500));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(FloodTest, OfAnswersThatNobodyReadsIsBounded) {
    options.limits.bytesInFlight = 16 * mebibyte;
    options.callOrder = CallOrder::concurrent;
    open();
    const auto uuid = streambuf::test::newUuid();
    const auto buffer = streambuf::makeDevice(
        uuid, [](std::int64_t count) { return std::string(static_cast<std::size_t>(count), 'x'); },
        {}, {}, {}, 1);
    std::uint64_t service = 0;
    {
        RawStream control(connect(), "Control");
        control.send(greeting());
        control.send(want(1, "(orvi.servicename=" + streambuf::test::serviceNameOf(uuid) + ")"));
        service = receiveA(control, v1::Frame::kOffer)->offer().service();
    }
    const std::size_t memory = memoryInUse();
    std::vector<std::unique_ptr<RawStream>> lazy;
    for (int i = 0; i < 64; ++i) {
        lazy.push_back(greeted("Call", service));
        lazy.back()->send(readRequest(8 * mebibyte));
    }
    const auto other = greeted("Call", service);
    EXPECT_TRUE(eventually([&] {
        return call(*other, readRequest(8 * mebibyte)).type ==
               "agent::orvi::remoting::LimitExceeded";
    }));
    EXPECT_LT(memoryInUse(), memory + 64 * mebibyte);
    EXPECT_EQ(call(*other, readRequest(0)), (Outcome{"", ""}));
    lazy.clear();
    EXPECT_TRUE(eventually(
        [&] { return call(*other, readRequest(16 * mebibyte)).text.size() == 16 * mebibyte; }));
}

TEST_F(FloodTest, OfConnectionsThatSayNothingIsGivenUp) {
    options.limits.connections = 8;
    open();
    const std::string path = endpoint->addresses().at(0).substr(std::string("unix:").size());
    std::vector<details::Descriptor> silent;
    for (int i = 0; i < 8; ++i) {
        silent.push_back(newLocalSocket());
        ASSERT_EQ(withPath(::connect, silent.back().get(), path), 0);
    }
    EXPECT_FALSE(isServed());
    for (const auto& socket : silent) {
        std::string end = readFrom(socket.get());
        while (end != "end" && end != "error" && end != "nothing") {
            end = readFrom(socket.get()); // its settings, to which nobody replies
        }
        EXPECT_NE(end, "nothing");
    }
}

TEST_F(FloodTest, OfGarbageClosesTheConnection) {
    open();
    const std::string path = endpoint->addresses().at(0).substr(std::string("unix:").size());
    for (const std::string& garbage :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string(1000, '\0'),
          std::string("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n") + std::string(1000, '\xff')}) {
        const auto socket = newLocalSocket();
        ASSERT_EQ(withPath(::connect, socket.get(), path), 0);
        EXPECT_TRUE(writeTo(socket.get(), garbage));
        std::string end = readFrom(socket.get());
        while (end != "end" && end != "error" && end != "nothing") {
            end = readFrom(socket.get());
        }
        EXPECT_NE(end, "nothing");
    }
}

} // namespace
} // namespace agent::orvi::remoting::test
