#include "remoting/processes/component/RelayedDevice.hpp"

#include "remoting/processes/RelayProtocol.hpp"
#include "support/RecordingDevice.hpp"

#include <array>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

using streambuf::test::Operation;
using streambuf::test::Operations;

class Connection {
public:
    explicit Connection(const std::string& path)
        : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            const int error = errno;
            ::close(socket);
            throw std::system_error(error, std::generic_category(), path);
        }
    }

    ~Connection() { ::close(socket); }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    relay::Reply call(Operation operation, std::array<std::int64_t, 3> numbers, std::string data) {
        const std::lock_guard lock(mutex);
        relay::Reply reply;
        if (!relay::send(socket, {static_cast<int>(operation), numbers, std::move(data)}) ||
            !relay::receive(socket, reply)) {
            throw std::runtime_error("the relay has gone");
        }
        if (reply.failed != 0) {
            throw std::runtime_error("the device has failed");
        }
        return reply;
    }

private:
    const int socket;
    std::mutex mutex;
};

} // namespace

Operations relayedDevice(const std::string& socketPath, std::shared_ptr<void>& source) {
    const auto device = std::make_shared<Connection>(socketPath);
    source = device;
    return {
        [device](std::int64_t count) { return device->call(Operation::read, {count}, {}).data; },
        [device](const std::string& data) {
            return device->call(Operation::write, {}, data).number;
        },
        [device](std::int64_t offset, int direction, int mode) -> std::streampos {
            return device->call(Operation::seekoff, {offset, direction, mode}, {}).number;
        },
        [device](std::streampos position, int mode) -> std::streampos {
            return device->call(Operation::seekpos, {std::streamoff(position), mode}, {}).number;
        },
        {}};
}

} // namespace agent::orvi::remoting::test
