#include "commands/Commands.hpp"

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "support/Registry.hpp"
#include "terminal/Descriptors.hpp"

#include <streambuf/StreamBuffer.hpp>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::tool {
namespace test {
namespace {

/// What the standard output of the tested command does with what it is given.
std::function<void(std::string_view)> output;

} // namespace
} // namespace test

void writeOutput(std::string_view data) {
    test::output(data);
}

void demandInput() {}

namespace test {
namespace {

using namespace std::chrono_literals;

/// A named pipe, with a writer for as long as it is not closed.
class OpenPipe {
public:
    explicit OpenPipe(const std::filesystem::path& path) {
        if (::mkfifo(path.c_str(), 0600) != 0 ||
            (descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC)) < 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }

    ~OpenPipe() { close(); }

    OpenPipe(const OpenPipe&) = delete;
    OpenPipe& operator=(const OpenPipe&) = delete;

    bool write(const std::string& data) const {
        return ::write(descriptor, data.data(), data.size()) == static_cast<ssize_t>(data.size());
    }

    bool isEmpty() const {
        int size = -1;
        return ::ioctl(descriptor, FIONREAD, &size) == 0 && size == 0;
    }

    void close() {
        if (descriptor >= 0) {
            ::close(std::exchange(descriptor, -1));
        }
    }

private:
    int descriptor = -1;
};

TEST(PublishTest, EndsAlsoWhileAReadWaitsWhenItCannotTellItsUuids) {
    const remoting::test::TemporaryDirectory directory;
    OpenPipe pipe(directory.path / "pipe");
    PublishOptions options;
    options.network.runtimeDirectory = directory.path;
    options.files = {directory.path / "pipe"};
    options.uuids = {streambuf::test::newUuid()};
    std::future<std::string> reading;
    output = [&](std::string_view) {
        reading = std::async(std::launch::async, [uuid = options.uuids.front()] {
            auto device = streambuf::makeDevice(uuid, streambuf::noCloseFunction());
            std::string data(10, '\0');
            data.resize(static_cast<std::size_t>(device.sgetn(data.data(), 10)));
            return data;
        });
        // Once it has been taken from the pipe, the read waits for more.
        EXPECT_TRUE(pipe.write("abc"));
        EXPECT_TRUE(remoting::test::eventually([&] { return pipe.isEmpty(); }));
        throw std::system_error(ENOSPC, std::generic_category(), "the output");
    };
    auto publishing = std::async(std::launch::async, [&] { return publish(options); });
    EXPECT_EQ(publishing.wait_for(30s), std::future_status::ready);
    pipe.close(); // which ends it in any case
    try {
        publishing.get();
        ADD_FAILURE() << "the output takes nothing";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_space_on_device);
    }
    EXPECT_EQ(reading.get(), "abc");
}

} // namespace
} // namespace test
} // namespace agent::orvi::tool
