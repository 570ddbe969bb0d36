#include "remoting/processes/DeviceRelay.hpp"

#include "remoting/processes/RelayProtocol.hpp"
#include "support/RecordingDevice.hpp"

#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

using streambuf::test::Operation;
using streambuf::test::Operations;

relay::Reply run(const Operations& device, const relay::Request& request) {
    const auto& numbers = request.numbers;
    const auto small = [&](std::size_t index) { return static_cast<int>(numbers.at(index)); };
    try {
        switch (static_cast<Operation>(request.operation)) {
        case Operation::read:
            return {0, 0, device.read(numbers[0])};
        case Operation::write:
            return {0, device.write(request.data), {}};
        case Operation::seekoff:
            return {0, std::streamoff(device.seekoff(numbers[0], small(1), small(2))), {}};
        default:
            return {0, std::streamoff(device.seekpos(numbers[0], small(1))), {}};
        }
    } catch (...) {
        return {1, 0, {}};
    }
}

} // namespace

DeviceRelay::DeviceRelay(Operations device, std::string socketPath)
    : device(std::move(device))
    , path(std::move(socketPath))
    , listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (::bind(listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listening, 1) != 0) {
        const int error = errno;
        ::close(listening);
        throw std::system_error(error, std::generic_category(), path);
    }
    thread = std::thread([this] { serve(); });
}

DeviceRelay::~DeviceRelay() {
    ::shutdown(listening, SHUT_RDWR); // for a thread that nobody has connected to
    thread.join();
    ::close(listening);
    ::unlink(path.c_str());
}

void DeviceRelay::serve() const {
    const int connection = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    relay::Request request;
    while (connection >= 0 && relay::receive(connection, request) &&
           relay::send(connection, run(device, request))) {
    }
    if (connection >= 0) {
        ::close(connection);
    }
}

} // namespace agent::orvi::remoting::test
