#include "remoting/faults/FailingCall.hpp"
#include "remoting/safety/EndpointTest.hpp"

#include "discovery/EndpointFiles.hpp"
#include "discovery/RuntimeDirectory.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace agent::orvi::remoting::test {
namespace {

/// An endpoint some of whose system calls fail, on whatever thread they are made.
class EndpointSystemCalls : public EndpointTest, public testing::WithParamInterface<int> {
protected:
    EndpointSystemCalls() {
        options.listen = {"127.0.0.1:0"};
        options.plainLoopback = true;
        FailingCall none(0, 0);
        serve(none); // what the process makes once is there before anything fails
    }

    /// Open the endpoint, be served over both of its addresses, and close it.
    void serve(FailingCall& failure) {
        failure.armEverywhere();
        try {
            open();
            for (const std::string& address : endpoint->addresses()) {
                // A connection of which something fails may be closed: the next one is not.
                EXPECT_TRUE(eventually([&] { return isServedAt(address); })) << failure.where();
            }
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), failure.error()) << error.what();
        }
        endpoint.reset();
        failure.disarmEverywhere();
    }

    /// Expect no file in the directory that somebody else would not clear away.
    void expectNoFiles(const FailingCall& failure) const {
        const details::Descriptor directory =
            details::RuntimeDirectory(options.runtimeDirectory).open();
        for (const std::string& name : details::endpointFiles::namesIn(directory)) {
            EXPECT_TRUE(failure.happened()) << name;
            EXPECT_TRUE(details::endpointFiles::removeIfDead(directory.get(), name))
                << failure.where();
        }
        EXPECT_TRUE(std::filesystem::is_empty(options.runtimeDirectory)) << failure.where();
    }

    static bool isServedAt(const std::string& address) {
        const Published published("served");
        const auto channel = EndpointTest::connect(
            address.starts_with("unix:") ? address : "ipv4:" + address,
            grpc::InsecureChannelCredentials());
        const auto offer = offerOf(published, channel);
        if (!offer) {
            return false;
        }
        RawStream stream(channel, "Call");
        stream.send(greeting(offer->service()));
        return call(stream, readRequest(6)) == Outcome{"", "served"};
    }
};

TEST_P(EndpointSystemCalls, EachMayFailAndTheEndpointServesOrCannotBeOpened) {
    std::size_t failures = 0;
    // What Asio calls for itself is not counted.
    for (const char* const function :
         {"socket",        "bind",        "listen",     "accept4",  "getsockopt", "setsockopt",
          "getsockname",   "getpeername", "open",       "openat",   "fcntl",      "fstat",
          "fstatat",       "mkdir",       "fchmod",     "fchmodat", "renameat",   "unlinkat",
          "epoll_create1", "epoll_ctl",   "getaddrinfo"}) {
        failures += failEachCall(GetParam(), function, [&](FailingCall& failure) {
            const auto before = openDescriptors();
            serve(failure);
            EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; })) << failure.where();
            expectNoFiles(failure);
        });
    }
    EXPECT_GT(failures, 25U);
}

const auto nameOf = [](const auto& error) { return std::string(::strerrorname_np(error.param)); };

INSTANTIATE_TEST_SUITE_P(Errors, EndpointSystemCalls, testing::Values(EMFILE, EINTR), nameOf);

} // namespace
} // namespace agent::orvi::remoting::test
