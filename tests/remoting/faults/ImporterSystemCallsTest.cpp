#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/faults/FailingCall.hpp"
#include "remoting/processes/ProcessTest.hpp"

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

/// An importer some of whose system calls fail, on whatever thread they are made.
class ImporterSystemCalls : public ProcessTest, public testing::WithParamInterface<int> {
protected:
    ImporterSystemCalls() {
        publisher.ask("open-endpoint" + where());
        uuid = publish(publisher, "device", "kind=memory size=100 buffer=16");
        FailingCall none(0, 0);
        read(none); // what the process makes once is there before anything fails
    }

    /// Open an importer, find the stream and read from it.
    void read(FailingCall& failure) const { read(failure, importing(), uuid); }

    static void
    read(FailingCall& failure, const ImporterOptions& options, const boost::uuids::uuid& uuid) {
        failure.armEverywhere();
        try {
            const Importer importer(options);
            StreamBuffer buffer = connect(uuid);
            EXPECT_EQ(buffer.pubseekpos(0, std::ios_base::in), std::streampos(0));
            EXPECT_EQ(take(buffer, 200), pattern(100)) << failure.where();
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code().value(), failure.error()) << error.what();
        }
        failure.disarmEverywhere();
    }

    boost::uuids::uuid uuid{};
};

TEST_P(ImporterSystemCalls, EachMayFailAndTheStreamIsReadOrTheImporterCannotBeOpened) {
    std::size_t failures = 0;
    // What Asio calls for itself is not counted.
    for (const char* const function :
         {"socket", "connect", "getsockopt", "setsockopt", "open", "openat", "fcntl", "fstat",
          "fstatat", "mkdir", "fdopendir", "readdir", "inotify_init1", "inotify_add_watch",
          "syscall", "poll"}) {
        failures += failEachCall(GetParam(), function, [&](FailingCall& failure) {
            const auto before = openDescriptors();
            read(failure);
            EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; })) << failure.where();
        });
    }
    EXPECT_GT(failures, 20U);
}

/// An importer of an endpoint that listens on TCP.
class TargetSystemCalls : public ImporterSystemCalls {
protected:
    /// Open another endpoint, and return how to reach it by these hosts.
    ///
    ImporterOptions importingFrom(const std::vector<std::string>& hosts) {
        const std::string endpoint = distant.ask("open-endpoint" + where() + " listen=127.0.0.1:0");
        uuid = publish(distant, "device", "kind=memory size=100 buffer=16");
        ImporterOptions options;
        options.local = false;
        options.plainLoopback = true;
        for (const std::string& host : hosts) {
            options.targets.push_back(host + endpoint.substr(endpoint.rfind(':')));
        }
        return options;
    }

    void failEach(const ImporterOptions& options) {
        FailingCall none(0, 0);
        read(none, options, uuid);
        std::size_t failures = 0;
        for (const char* const function : {"getaddrinfo", "fcntl", "open"}) {
            failures += failEachCall(GetParam(), function, [&](FailingCall& failure) {
                const auto before = openDescriptors();
                read(failure, options, uuid);
                EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }))
                    << failure.where();
            });
        }
        EXPECT_GE(failures, options.targets.size());
    }

    RemoteComponent distant;
};

TEST_P(TargetSystemCalls, EachMayFailAndTheStreamIsReadFromANumericTarget) {
    failEach(importingFrom({"127.0.0.1"}));
}

TEST_P(TargetSystemCalls, EachMayFailAndTheStreamIsReadFromANamedTarget) {
    failEach(importingFrom({"localhost"}));
}

const auto nameOf = [](const auto& error) { return std::string(::strerrorname_np(error.param)); };

INSTANTIATE_TEST_SUITE_P(Errors, ImporterSystemCalls, testing::Values(EMFILE, EINTR), nameOf);
INSTANTIATE_TEST_SUITE_P(Errors, TargetSystemCalls, testing::Values(EMFILE, EINTR), nameOf);

} // namespace
} // namespace agent::orvi::remoting::test
