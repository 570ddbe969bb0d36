#pragma once

#include <orvi/remoting/TlsFiles.hpp>

#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

/// What the user asked for, one structure for each command.
namespace agent::orvi::tool {

/// How many bytes go through the program at a time where nothing else is asked for.
inline constexpr std::uint64_t defaultTransferSize = std::uint64_t{1} << 20;

/// Which way to other processes is used. A value.
struct NetworkOptions {
    bool local = true;
    std::filesystem::path runtimeDirectory;
    std::optional<remoting::TlsFiles> tls;
    bool plainLoopback = false;
};

/// Where streams are looked for, and for how long. A value.
struct SearchOptions {
    NetworkOptions network;
    std::vector<std::string> targets;

    /// Zero: do not wait for streams that are not there yet.
    std::chrono::milliseconds timeout = std::chrono::seconds(20);
};

struct PublishOptions {
    NetworkOptions network;
    std::vector<std::string> listen;
    std::vector<std::string> files;        ///< "-" is the standard input.
    std::vector<boost::uuids::uuid> uuids; ///< One for each file.
    bool write = false;
    bool live = false;
    std::uint64_t bufferSize = 65536;
    std::vector<std::string> readOnlyPeers; ///< Patterns of identities.
    std::vector<std::string> allowedPeers;  ///< The same; empty: everybody.
};

struct ListOptions {
    SearchOptions search;
    bool watch = false;
    bool json = false;
};

struct StatOptions {
    SearchOptions search;
    boost::uuids::uuid uuid{};
    bool json = false;
};

struct CatOptions {
    SearchOptions search;
    boost::uuids::uuid uuid{};
    std::optional<std::uint64_t> offset;
    std::optional<std::uint64_t> count;
    std::optional<std::uint64_t> transferSize; ///< Bytes that one read asks for.
};

struct PutOptions {
    SearchOptions search;
    boost::uuids::uuid uuid{};
    std::optional<std::uint64_t> offset;
    std::uint64_t transferSize = defaultTransferSize; ///< Bytes that one write hands over at most.
};

} // namespace agent::orvi::tool
