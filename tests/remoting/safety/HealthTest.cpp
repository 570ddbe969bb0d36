#include "remoting/safety/EndpointTest.hpp"

#include <vector>

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
    static std::string about(const std::string& name) {
        return "\x0a" + std::string(1, static_cast<char>(name.size())) + name;
    }

    std::unique_ptr<RawStream> ask(const std::string& method, const std::string& request) const {
        auto stream = std::make_unique<RawStream>(connect(), method);
        stream->send(request);
        stream->halfClose();
        return stream;
    }
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
    RawStream known(connect(), watch);
    known.send(about("orvi.remoting.v1.Streams"));
    RawStream unknown(connect(), watch);
    unknown.send(about("no.such.Service"));
    EXPECT_EQ(known.receiveBytes(), serving);
    EXPECT_EQ(unknown.receiveBytes(), unknownService);
    endpoint.reset();
    EXPECT_FALSE(known.end().ok());
    EXPECT_FALSE(unknown.end().ok());
}

TEST_F(HealthTest, IsRefusedToMoreThanItHasRoomFor) {
    open();
    const auto channel = connect();
    std::vector<std::unique_ptr<RawStream>> watchers;
    grpc::Status refused;
    while (refused.ok() && watchers.size() < 1000) {
        auto& added = watchers.emplace_back(std::make_unique<RawStream>(channel, watch));
        added->send("");
        if (added->receiveBytes() != serving) {
            refused = added->end();
        }
    }
    EXPECT_EQ(watchers.size(), 257U); // the last one was refused
    EXPECT_THAT(
        refused,
        endsWith(grpc::StatusCode::RESOURCE_EXHAUSTED, "There are too many health checks."));
    EXPECT_TRUE(isServed());
    watchers.clear();
    EXPECT_TRUE(eventually([&] { return ask(check, "")->receiveBytes() == serving; }));
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
