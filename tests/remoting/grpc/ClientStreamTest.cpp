#include "grpc/ClientConnection.hpp"

#include <gtest/gtest.h>

#include <grpcpp/completion_queue.h>

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <system_error>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

using namespace std::chrono_literals;

/// Much longer than anything takes here that is not stuck.
constexpr std::chrono::seconds streamPatience{20};

/// Hears of the end of a stream, and has no memory left to make anything of it.
class OverwhelmedEvents final : public StreamEvents {
public:
    void received(google::protobuf::io::ZeroCopyInputStream&, std::size_t) override {}

    void sent() override {}

    void ended(const StreamEnd&) override {
        heard.set_value();
        throw std::bad_alloc();
    }

    std::promise<void> heard;
};

class ClientStreamTest : public testing::Test {
protected:
    ClientStreamTest() {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
        peer = ends[1];
        connection = ClientConnection::local(reactor, ends[0], 0, {10s, 10s});
    }

    ~ClientStreamTest() override { reactor->stop(soon()); }

    /// Open streams whose ends nobody can take.
    void open(std::size_t count) {
        for (std::size_t index = 0; index < count; ++index) {
            overwhelmed.push_back(std::make_shared<OverwhelmedEvents>());
            const auto stream = connection->open(StreamKind::call, overwhelmed.back());
            stream->send({"frame", {}, false}); // without one there is nothing to be lost
            stream->receive();
        }
    }

    void expectThatAllStreamsHaveEnded() {
        for (const auto& events : overwhelmed) {
            EXPECT_EQ(
                events->heard.get_future().wait_for(streamPatience), std::future_status::ready);
        }
        EXPECT_TRUE(connection->awaitStreams(soon()));
    }

    static std::chrono::steady_clock::time_point soon() {
        return std::chrono::steady_clock::now() + streamPatience;
    }

    const std::shared_ptr<Reactor> reactor =
        Reactor::start(std::make_unique<grpc::CompletionQueue>(), 1, 0us);
    int peer = -1;
    std::shared_ptr<ClientConnection> connection;
    std::vector<std::shared_ptr<OverwhelmedEvents>> overwhelmed;
};

TEST_F(ClientStreamTest, EndsThoughItsReceiverCannotTakeTheLossOfTheConnection) {
    open(3);
    ::close(peer);
    expectThatAllStreamsHaveEnded();
}

TEST_F(ClientStreamTest, EndsThoughItsReceiverCannotTakeThatItWasCancelled) {
    open(3);
    connection->close({StreamEnd::Kind::cancelled, {}});
    expectThatAllStreamsHaveEnded();
    ::close(peer);
}

} // namespace
} // namespace agent::orvi::remoting::details
