#pragma once

#include "remoting/ServerProcess.hpp"

#include <orvi/remoting/Importer.hpp>

#include <boost/uuid/uuid.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace agent::orvi::bench {

/// Return the name of the device whose buffers have that size.
constexpr boost::uuids::uuid uuidFor(std::size_t bufferSize) {
    return {{0xbe, 0x4c, static_cast<std::uint8_t>(std::bit_width(bufferSize))}};
}

/// How many further devices there are, to connect to one after another.
constexpr std::size_t connectableDevices = 64;

constexpr boost::uuids::uuid uuidOfConnectable(std::size_t device) {
    return {{0xbe, 0x4d, static_cast<std::uint8_t>(device)}};
}

inline std::filesystem::path runtimeDirectory(const ServerAddress& server) {
    return server.folder / "run";
}

inline remoting::ImporterOptions localOptions(const ServerAddress& server) {
    remoting::ImporterOptions options;
    options.runtimeDirectory = runtimeDirectory(server);
    return options;
}

} // namespace agent::orvi::bench
