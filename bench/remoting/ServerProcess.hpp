#pragma once

#include "ChildProcess.hpp"

#include <filesystem>
#include <string>

namespace agent::orvi::bench {

/// Where a server is found.
struct ServerAddress {
    std::filesystem::path folder; ///< For its sockets; it also has the certificates.
    std::string tls;              ///< "host:port" where it expects TLS, if it does.

    /// Return the path of a server's own socket.
    std::filesystem::path socket(const std::string& kind) const {
        return folder / (kind + ".sock");
    }
};

/// This program, run a second time as a server, which announces its address over TLS when it can be
/// reached. It ends with this object or with this process.
class ServerProcess {
public:
    /// Start a server and wait until it can be reached.
    ///
    /// @throws std::system_error, std::runtime_error when it cannot be started.
    ServerProcess(const std::string& kind, const std::filesystem::path& folder)
        : process({"--serve", kind, folder})
        , serverAddress{folder, process.readLine()} {}

    const ServerAddress& address() const noexcept { return serverAddress; }

private:
    ChildProcess process;
    ServerAddress serverAddress;
};

} // namespace agent::orvi::bench
