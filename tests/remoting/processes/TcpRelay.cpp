#include "remoting/processes/TcpRelay.hpp"

#include "remoting/discovery/Sockets.hpp"

#include <netinet/tcp.h>
#include <sys/eventfd.h>

#include <array>
#include <stdexcept>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using details::Descriptor;

/// Have the other side see a reset and no end when it is closed.
void resetAtTheEnd(int socket) {
    const linger atOnce{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
}

bool passOn(int from, int to) {
    std::array<char, 65536> buffer{};
    const ssize_t size = ::read(from, buffer.data(), buffer.size());
    return size > 0 &&
           ::send(to, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL) == size;
}

} // namespace

TcpRelay::TcpRelay(std::uint16_t target, Start start)
    : target(target)
    , listening(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    , wake(::eventfd(0, EFD_CLOEXEC))
    , isOpen(start == Start::open) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listening.get(), plain, length) != 0 || ::listen(listening.get(), 16) != 0 ||
        ::getsockname(listening.get(), plain, &length) != 0) {
        throw std::runtime_error("A relay cannot listen.");
    }
    port = ntohs(address.sin_port);
    thread = std::thread([this] { run(); });
}

TcpRelay::~TcpRelay() {
    cut();
}

std::string TcpRelay::address() const {
    return "127.0.0.1:" + std::to_string(port);
}

void TcpRelay::open() {
    isOpen = true;
    ::eventfd_write(wake.get(), 1);
}

void TcpRelay::cut() {
    ending = true;
    ::eventfd_write(wake.get(), 1);
    if (thread.joinable()) {
        thread.join();
    }
}

void TcpRelay::run() {
    while (!ending) {
        std::vector<pollfd> polled{
            {wake.get(), POLLIN, 0}, {isOpen ? listening.get() : -1, POLLIN, 0}};
        for (const Pair& pair : pairs) {
            polled.push_back({pair.near.get(), POLLIN, 0});
            polled.push_back({pair.far.get(), POLLIN, 0});
        }
        ::poll(polled.data(), polled.size(), -1);
        if (polled[0].revents != 0) {
            eventfd_t ignored = 0;
            ::eventfd_read(wake.get(), &ignored);
        }
        std::size_t next = 2;
        for (auto pair = pairs.begin(); pair != pairs.end(); next += 2) {
            const bool goesOn =
                (polled[next].revents == 0 || passOn(pair->near.get(), pair->far.get())) &&
                (polled[next + 1].revents == 0 || passOn(pair->far.get(), pair->near.get()));
            pair = goesOn ? std::next(pair) : pairs.erase(pair);
        }
        if (polled[1].revents != 0) {
            accept();
        }
    }
    for (const Pair& pair : pairs) {
        resetAtTheEnd(pair.near.get());
        resetAtTheEnd(pair.far.get());
    }
    pairs.clear();
    listening = {};
}

void TcpRelay::accept() {
    Pair pair{
        Descriptor(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC)), connectTcp(target)};
    if (pair.near && pair.far) {
        pairs.push_back(std::move(pair));
    }
}

} // namespace agent::orvi::remoting::test
