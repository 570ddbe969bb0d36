#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/faults/FailingCall.hpp"
#include "remoting/processes/ProcessTest.hpp"

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

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
    void read(FailingCall& failure) const {
        failure.armEverywhere();
        try {
            const Importer importer(importing());
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

const auto nameOf = [](const auto& error) { return std::string(::strerrorname_np(error.param)); };

INSTANTIATE_TEST_SUITE_P(Errors, ImporterSystemCalls, testing::Values(EMFILE, EINTR), nameOf);

} // namespace
} // namespace agent::orvi::remoting::test
