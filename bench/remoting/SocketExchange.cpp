#include "ServedBytes.hpp"
#include "remoting/Exchanges.hpp"

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace agent::orvi::bench {
namespace {

constexpr const char* socketKind = "socket";

/// Asks for `count` bytes or says that `count` bytes follow.
struct Request {
    std::uint64_t writes = 0;
    std::uint64_t count = 0;
};

static_assert(sizeof(Request) == 16);

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_un addressOf(const ServerAddress& server) {
    const std::string path = server.socket(socketKind).string();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        fail(path.c_str());
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

int makeSocket() {
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        fail("Cannot make a socket");
    }
    return descriptor;
}

/// Send up to two pieces as if they were one.
bool sendAll(int connection, iovec first, iovec second) {
    std::array<iovec, 2> pieces{first, second};
    std::size_t missing = first.iov_len + second.iov_len;
    while (missing > 0) {
        const ssize_t sent = writev(connection, pieces.data(), 2);
        if (sent <= 0) {
            return false;
        }
        missing -= static_cast<std::size_t>(sent);
        auto done = static_cast<std::size_t>(sent);
        for (iovec& piece : pieces) {
            const std::size_t part = std::min(done, piece.iov_len);
            piece = {static_cast<char*>(piece.iov_base) + part, piece.iov_len - part};
            done -= part;
        }
    }
    return true;
}

bool sendAll(int connection, const void* data, std::size_t size) {
    return sendAll(connection, {const_cast<void*>(data), size}, {nullptr, 0});
}

bool receiveAll(int connection, void* data, std::size_t size) {
    auto* next = static_cast<char*>(data);
    while (size > 0) {
        const ssize_t got = recv(connection, next, size, 0);
        if (got <= 0) {
            return false;
        }
        next += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

void serveConnection(int connection) {
    ServedBytes bytes;
    std::vector<char> written;
    Request request;
    bool open = true;
    while (open && receiveAll(connection, &request, sizeof(request))) {
        if (request.writes != 0) {
            written.resize(request.count);
            open = receiveAll(connection, written.data(), written.size()) &&
                   sendAll(connection, &request.count, sizeof(request.count));
        } else {
            open = sendAll(connection, bytes.next(request.count), request.count);
        }
    }
    close(connection);
}

class SocketExchange final : public Exchange {
public:
    SocketExchange(const ServerAddress& server, Transfer transfer)
        : transfer(transfer)
        , connection(makeSocket())
        , bytes(transfer.size) {
        const sockaddr_un address = addressOf(server);
        if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
            0) {
            close(connection);
            fail("Cannot connect");
        }
    }

    ~SocketExchange() override { close(connection); }

    void call() override {
        Request request{transfer.direction == Direction::write ? 1U : 0U, transfer.size};
        if (transfer.direction == Direction::read) {
            expectAll(
                sendAll(connection, &request, sizeof(request)) &&
                receiveAll(connection, bytes.data(), bytes.size()));
            return;
        }
        std::uint64_t taken = 0;
        expectAll(
            sendAll(connection, {&request, sizeof(request)}, {bytes.data(), bytes.size()}) &&
            receiveAll(connection, &taken, sizeof(taken)) && taken == transfer.size);
    }

    std::string_view received() const override { return {bytes.data(), bytes.size()}; }

private:
    const Transfer transfer;
    const int connection;
    std::vector<char> bytes;
};

} // namespace

std::unique_ptr<Exchange> connectSocket(const ServerAddress& server, Transfer transfer) {
    return std::make_unique<SocketExchange>(server, transfer);
}

void serveSocket(const ServerAddress& address) {
    const int listener = makeSocket();
    const sockaddr_un name = addressOf(address);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&name), sizeof(name)) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        fail("Cannot listen");
    }
    announce("");
    for (;;) {
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            fail("Cannot accept a connection");
        }
        std::thread(serveConnection, connection).detach();
    }
}

} // namespace agent::orvi::bench
