#include "remoting/discovery/Fixture.hpp"
#include "remoting/safety/NoMoreThreads.hpp"

#include "carrier/Carrier.hpp"
#include "discovery/TargetPeers.hpp"
#include "grpc/GrpcServer.hpp"
#include "grpc/Reactor.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <orvi/remoting/Importer.hpp>

#include <grpc/grpc.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using namespace details;

/// What needs a thread when none can be started.
class NoThreads : public DirectoryFixture {
protected:
    /// gRPC has threads of its own for as long as somebody uses it, and hangs without them.
    static void SetUpTestSuite() {
        grpc_init();
        const TemporaryDirectory place;
        EndpointOptions options;
        options.runtimeDirectory = place.path / "orvi";
        const Endpoint endpoint(options);
    }

    static void TearDownTestSuite() { grpc_shutdown(); }

    /// Expect the error of a thread that cannot be started, and nothing left behind.
    template <class Action>
    static void expectRefusal(const Action& action) {
        const auto before = openDescriptors();
        {
            const NoMoreThreads guard;
            try {
                action();
                ADD_FAILURE() << "It has started.";
            } catch (const std::system_error& error) {
                EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again) << error.what();
            }
        }
        EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }));
    }
};

TEST_F(NoThreads, RefuseAHousekeeper) {
    expectRefusal([] { const Housekeeper another; });
}

TEST_F(NoThreads, RefuseAReactor) {
    expectRefusal([] {
        Reactor::start(
            std::make_unique<grpc::CompletionQueue>(), 1, std::chrono::nanoseconds::zero());
    });
}

TEST_F(NoThreads, RefuseAServer) {
    expectRefusal([] {
        ServerSettings settings;
        settings.keepalive = {std::chrono::seconds(10), std::chrono::seconds(10)};
        const GrpcServer server(
            settings, [](StreamKind, const auto&, const auto&) { return nullptr; });
    });
}

TEST_F(NoThreads, RefuseAnEndpoint) {
    EndpointOptions options;
    options.runtimeDirectory = directory.path();
    expectRefusal([&] { const Endpoint endpoint(options); });
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
    const Endpoint endpoint(options);
}

TEST_F(NoThreads, RefuseAnImporter) {
    ImporterOptions options;
    options.runtimeDirectory = directory.path();
    expectRefusal([&] { const Importer importer(options); });
    const Importer importer(options);
}

TEST_F(NoThreads, LetATargetBeResolvedLater) {
    EventLog<std::string> resolved;
    EventLog<std::string> failed;
    std::optional<NoMoreThreads> guard(std::in_place);
    const TargetPeers peers(
        housekeeper, {"host:80"},
        {[](const TargetAddress&) {},
         [&](const std::string& target, const auto&) { resolved.add(target); },
         [&](const std::string&, const std::string& reason) { failed.add(reason); }},
        [](const HostPort&) {
            return std::vector<HostPort>{{"192.0.2.1", 80}};
        },
        {std::chrono::milliseconds(1), std::chrono::milliseconds(2)});
    const auto reasons = failed.waitFor(2);
    ASSERT_GE(reasons.size(), 2U);
    EXPECT_EQ(
        reasons.at(0), std::make_error_code(std::errc::resource_unavailable_try_again).message());
    guard.reset();
    EXPECT_TRUE(resolved.waitForEvent("host:80"));
}

} // namespace
} // namespace agent::orvi::remoting::test
