#pragma once

#include "remoting/ServerProcess.hpp"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace agent::orvi::bench {

enum class Direction { read, write };

/// What one call moves.
struct Transfer {
    Direction direction = Direction::read;
    std::size_t size = 0;
};

/// A connection to a server process, over which one call after another moves the same number of
/// bytes. Every server reads from and writes to memory.
///
/// Thread safety: single-thread.
class Exchange {
public:
    /// Make one call and wait for its answer.
    ///
    /// @throws std::runtime_error when it did not move all bytes; whatever the connection throws.
    virtual void call() = 0;

    /// Return the bytes that the last read brought, from a run of `source()`.
    virtual std::string_view received() const = 0;

    /// Return how many calls have reached the server; where a call cannot but be one message,
    /// `calls`, which is how many were made.
    virtual std::size_t arrived(std::size_t calls) { return calls; }

    virtual ~Exchange() = default;
};

/// How a benchmark reaches its server.
using Connect = std::unique_ptr<Exchange> (*)(const ServerAddress& server, Transfer transfer);

/// A stream buffer connected over this library.
std::unique_ptr<Exchange> connectOrvi(const ServerAddress& server, Transfer transfer);
std::unique_ptr<Exchange> connectOrviTls(const ServerAddress& server, Transfer transfer);

/// A blocking Unix socket.
std::unique_ptr<Exchange> connectSocket(const ServerAddress& server, Transfer transfer);

/// A bidirectional stream with generated messages.
std::unique_ptr<Exchange> connectStream(const ServerAddress& server, Transfer transfer);
std::unique_ptr<Exchange> connectStreamTls(const ServerAddress& server, Transfer transfer);

/// One unary call with generated messages for each transfer.
std::unique_ptr<Exchange> connectUnary(const ServerAddress& server, Transfer transfer);

/// A bidirectional stream whose messages are the bytes alone.
std::unique_ptr<Exchange> connectRaw(const ServerAddress& server, Transfer transfer);

/// The servers; each says what it has to say through `announce` and serves for ever.
[[noreturn]] void serveOrvi(const ServerAddress& address);
[[noreturn]] void serveSocket(const ServerAddress& address);
[[noreturn]] void serveGrpc(const ServerAddress& address);
[[noreturn]] void serveRaw(const ServerAddress& address);

/// Throw unless all bytes have been moved.
inline void expectAll(bool all) {
    if (!all) {
        throw std::runtime_error("A call has not moved all bytes.");
    }
}

} // namespace agent::orvi::bench
