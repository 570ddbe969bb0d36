#pragma once

#include "Exchange.hpp"
#include "remoting/ServerProcess.hpp"

#include <memory>

namespace agent::orvi::bench {

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

} // namespace agent::orvi::bench
