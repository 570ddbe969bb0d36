#include "remoting/safety/DeafPeer.hpp"

#include "remoting/discovery/Sockets.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/safety/RawStream.hpp"

#include "discovery/SystemCall.hpp"

#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include <linux/sockios.h>
#include <sys/ioctl.h>

namespace agent::orvi::remoting::test {
namespace {

// What HTTP/2 calls these.
constexpr char dataFrameType = 0;
constexpr char headersType = 1;
constexpr char settingsType = 4;
constexpr char windowUpdateType = 8;
constexpr char endOfHeaders = 4;
constexpr std::uint64_t initialWindowSize = 4;
constexpr std::uint64_t largestWindow = 0x7fffffff;
constexpr std::uint64_t usualWindow = 65535;

/// Write a number in network byte order.
std::string number(std::uint64_t value, std::size_t bytes) {
    std::string text;
    for (std::size_t i = bytes; i > 0; --i) {
        text += static_cast<char>(value >> (8 * (i - 1)));
    }
    return text;
}

std::string http2Frame(char type, char flags, std::uint64_t stream, const std::string& content) {
    return number(content.size(), 3) + type + flags + number(stream, 4) + content;
}

/// Write a header that is not to be remembered.
std::string header(const std::string& name, const std::string& value) {
    return number(0, 1) + number(name.size(), 1) + name + number(value.size(), 1) + value;
}

std::string message(const v1::Frame& frame) {
    const std::string bytes = frame.SerializeAsString();
    return http2Frame(dataFrameType, 0, 1, number(0, 1) + number(bytes.size(), 4) + bytes);
}

std::string conversation(std::uint64_t service, std::int64_t count) {
    return "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" +
           http2Frame(settingsType, 0, 0, number(initialWindowSize, 2) + number(largestWindow, 4)) +
           http2Frame(windowUpdateType, 0, 0, number(largestWindow - usualWindow, 4)) +
           http2Frame(
               headersType, endOfHeaders, 1,
               header(":method", "POST") + header(":scheme", "http") +
                   header(":path", "/orvi.remoting.v1.Streams/Call") +
                   header(":authority", "localhost") + header("te", "trailers") +
                   header("content-type", "application/grpc")) +
           message(greeting(service)) + message(readRequest(count));
}

using Name = std::pair<std::uint32_t, std::uint16_t>;

/// Return the address of one side of a connection, zeros for what is none over TCP.
template <class Call>
Name nameOf(Call call, int descriptor) {
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    const bool known = call(descriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    return known && address.sin_family == AF_INET ? Name{address.sin_addr.s_addr, address.sin_port}
                                                  : Name{};
}

/// Return how much this process has to send on the other side of a connection.
int unsentTo(int connection) {
    const Name peer = nameOf(::getsockname, connection);
    int unsent = 0;
    for (int other = 0; other < 1024; ++other) {
        if (nameOf(::getpeername, other) == peer && ::ioctl(other, SIOCOUTQ, &unsent) == 0) {
            return unsent;
        }
    }
    return 0;
}

} // namespace

DeafPeer::DeafPeer(
    const std::string& host, std::uint16_t port, std::uint64_t service, std::int64_t count)
    : connection(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const auto text = [] { return "Deaf peer"; };
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, host.c_str(), &address.sin_addr);
    details::checked(
        ::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
        text);
    details::checked(writeTo(connection.get(), conversation(service, count)) ? 0 : -1, text);
}

bool DeafPeer::awaitFullConnection() const {
    constexpr int looks = 10;
    int last = 0;
    int same = 0;
    return eventually([&] {
        const int unsent = unsentTo(connection.get());
        same = unsent > 0 && unsent == last ? same + 1 : 0;
        last = unsent;
        return same == looks;
    });
}

} // namespace agent::orvi::remoting::test
