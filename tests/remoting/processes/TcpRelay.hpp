#pragma once

#include "discovery/Descriptor.hpp"

#include <atomic>
#include <cstdint>
#include <list>
#include <string>
#include <thread>

namespace agent::orvi::remoting::test {

/// The way between two processes that live: relays what connects to a port of the loopback device
/// to another one, until it is cut.
///
/// Thread safety: thread-safe.
class TcpRelay {
public:
    enum class Start { open, closed };

    /// @param target the port that is reached over this.
    /// @param start closed: those who connect wait until `open`.
    explicit TcpRelay(std::uint16_t target, Start start = Start::open);

    /// Cut all connections.
    ~TcpRelay();

    TcpRelay(const TcpRelay&) = delete;
    TcpRelay& operator=(const TcpRelay&) = delete;

    /// Return where to connect to, as "127.0.0.1:port".
    std::string address() const;

    /// Begin to relay.
    void open();

    /// Reset all connections at both of their ends, and refuse further ones. They have been when
    /// this returns.
    void cut();

private:
    struct Pair {
        details::Descriptor near;
        details::Descriptor far;
    };

    void run();
    void accept();

    const std::uint16_t target;
    details::Descriptor listening;
    details::Descriptor wake;
    std::uint16_t port = 0;
    std::atomic<bool> isOpen;
    std::atomic<bool> ending{false};
    std::list<Pair> pairs; // of the thread
    std::thread thread;
};

} // namespace agent::orvi::remoting::test
