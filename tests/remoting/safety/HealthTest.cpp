#include "discovery/Descriptor.hpp"
#include "remoting/discovery/Sockets.hpp"
#include "remoting/safety/EndpointTest.hpp"

#include <grpcpp/create_channel_posix.h>

#include <cstddef>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

constexpr auto check = "/grpc.health.v1.Health/Check";
constexpr auto watch = "/grpc.health.v1.Health/Watch";
const std::string serving("\x08\x01", 2);
const std::string unknownService("\x08\x03", 2);

/// The standard health service, asked as any gRPC client does: a request has the service's name as
/// field 1, a response its status as field 1.
class HealthTest : public EndpointTest {
protected:
    using Watchers = std::vector<std::unique_ptr<RawStream>>;

    static std::string about(const std::string& name) {
        return "\x0a" + std::string(1, static_cast<char>(name.size())) + name;
    }

    std::unique_ptr<RawStream> ask(const std::string& method, const std::string& request) const {
        return ask(connect(), method, request);
    }

    static std::unique_ptr<RawStream>
    ask(const std::shared_ptr<grpc::Channel>& channel, const std::string& method,
        const std::string& request) {
        auto stream = std::make_unique<RawStream>(channel, method);
        stream->send(request);
        stream->halfClose();
        return stream;
    }

    /// Add watchers until one is refused.
    ///
    /// @return how that one has ended.
    static grpc::Status addAll(Watchers& watchers, const std::shared_ptr<grpc::Channel>& channel) {
        while (watchers.size() < 1000) {
            auto added = ask(channel, watch, "");
            if (added->receiveBytes() != serving) {
                return added->end();
            }
            watchers.push_back(std::move(added));
        }
        return grpc::Status::OK;
    }

    /// Say whether there comes to be room for as many as ever.
    bool hasRoomForAll() const {
        return eventually([&] {
            Watchers watchers;
            addAll(watchers, connect());
            return watchers.size() == most;
        });
    }

    static constexpr std::size_t most = 256;
};

TEST_F(HealthTest, SaysThatTheEndpointServes) {
    open();
    for (const std::string& request :
         {std::string(), about(""), about("orvi.remoting.v1.Streams")}) {
        const auto stream = ask(check, request);
        EXPECT_EQ(stream->receiveBytes(), serving);
        EXPECT_TRUE(stream->end().ok());
    }
}

TEST_F(HealthTest, IgnoresFieldsOfLaterVersions) {
    open();
    EXPECT_EQ(
        ask(check, "\x12\x03new" + about("no.such.Service"))->end().error_code(),
        grpc::StatusCode::NOT_FOUND);
    EXPECT_EQ(ask(check, about("") + "\x12\x03new")->receiveBytes(), serving);
}

TEST_F(HealthTest, DoesNotKnowOtherServices) {
    open();
    EXPECT_THAT(
        ask(check, about("no.such.Service"))->end(),
        endsWith(grpc::StatusCode::NOT_FOUND, "The endpoint has no such service."));
}

TEST_F(HealthTest, RefusesRequestsThatAreMalformed) {
    open();
    for (const std::string& request :
         {std::string("\xff"), std::string("\x0a\x7f"), std::string("\x0a\xff\xff\xff\xff\x0f"),
          std::string("\x12\x02x"), about(std::string(120, 'n')) + "\x0a"}) {
        EXPECT_THAT(
            ask(check, request)->end(),
            endsWith(grpc::StatusCode::INVALID_ARGUMENT, "The request is malformed."));
    }
}

TEST_F(HealthTest, DoesNotKnowOtherMethods) {
    open();
    for (const std::string& method :
         {std::string("/grpc.health.v1.Health/List"), std::string("/no.such.Service/Check"),
          std::string("/orvi.remoting.v1.Streams/Other")}) {
        EXPECT_THAT(
            ask(method, "")->end(),
            endsWith(grpc::StatusCode::UNIMPLEMENTED, "The endpoint has no such method."));
    }
}

TEST_F(HealthTest, TellsWatchersUntilTheEndpointCloses) {
    open();
    const auto known = ask(watch, about("orvi.remoting.v1.Streams"));
    const auto unknown = ask(watch, about("no.such.Service"));
    EXPECT_EQ(known->receiveBytes(), serving);
    EXPECT_EQ(unknown->receiveBytes(), unknownService);
    endpoint.reset();
    EXPECT_FALSE(known->end().ok());
    EXPECT_FALSE(unknown->end().ok());
}

TEST_F(HealthTest, IsRefusedToMoreThanItHasRoomFor) {
    open();
    Watchers watchers;
    EXPECT_THAT(
        addAll(watchers, connect()),
        endsWith(grpc::StatusCode::RESOURCE_EXHAUSTED, "There are too many health checks."));
    EXPECT_EQ(watchers.size(), most);
    EXPECT_TRUE(isServed());
}

TEST_F(HealthTest, ForgetsWatchersThatCancel) {
    open();
    const auto channel = connect();
    Watchers watchers;
    addAll(watchers, channel);
    watchers.clear();
    EXPECT_TRUE(hasRoomForAll());
}

TEST_F(HealthTest, ForgetsWatchersWhoseConnectionIsLost) {
    open();
    const std::string path = endpoint->addresses().at(0).substr(std::string("unix:").size());
    details::Descriptor socket = newLocalSocket();
    ASSERT_EQ(withPath(::connect, socket.get(), path), 0);
    const details::Descriptor same(::dup(socket.get()));
    ASSERT_EQ(::fcntl(socket.get(), F_SETFL, O_NONBLOCK), 0);
    const auto channel = grpc::CreateInsecureChannelFromFd("localhost", socket.release());
    Watchers watchers;
    addAll(watchers, channel);
    EXPECT_EQ(watchers.size(), most);
    ASSERT_EQ(::shutdown(same.get(), SHUT_RDWR), 0);
    EXPECT_TRUE(hasRoomForAll());
}

TEST_F(HealthTest, TellsAWatcherThatHasNotHalfClosed) {
    open();
    RawStream watcher(connect(), watch);
    watcher.send("");
    EXPECT_EQ(watcher.receiveBytes(), serving);
    endpoint.reset();
    EXPECT_FALSE(watcher.end().ok());
}

/// The service by which gRPC clients learn what a server speaks.
class ReflectionTest : public HealthTest {
protected:
    static constexpr auto method = "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo";
    const std::string listServices{"\x3a\x01*"}; // field 7
};

TEST_F(ReflectionTest, IsThereWhenItIsAskedFor) {
    options.reflection = true;
    open();
    const auto answer = ask(method, listServices)->receiveBytes();
    ASSERT_TRUE(answer.has_value());
    EXPECT_THAT(*answer, testing::HasSubstr("orvi.remoting.v1.Streams"));
    EXPECT_EQ(ask(check, "")->receiveBytes(), serving);
}

TEST_F(ReflectionTest, IsNotThereOtherwise) {
    open();
    EXPECT_EQ(ask(method, listServices)->end().error_code(), grpc::StatusCode::UNIMPLEMENTED);
}

TEST_F(ReflectionTest, IsNotThereForAnotherEndpointOfTheProcess) {
    EndpointOptions reflecting;
    reflecting.runtimeDirectory = directory.path / "reflecting";
    reflecting.reflection = true;
    const Endpoint first(reflecting);
    open();
    EXPECT_EQ(ask(method, listServices)->end().error_code(), grpc::StatusCode::UNIMPLEMENTED);
}

} // namespace
} // namespace agent::orvi::remoting::test
