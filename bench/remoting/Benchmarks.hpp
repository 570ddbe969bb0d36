#pragma once

#include "remoting/ServerProcess.hpp"

namespace agent::orvi::bench {

/// The servers of all benchmarks, each in a process of its own.
struct Servers {
    ServerProcess orvi;
    ServerProcess socket;
    ServerProcess grpc;
    ServerProcess raw;

    explicit Servers(const std::filesystem::path& folder)
        : orvi("orvi", folder)
        , socket("socket", folder)
        , grpc("grpc", folder)
        , raw("raw", folder) {}
};

/// Register a benchmark for each way to move bytes and each number of bytes.
void registerExchanges(const Servers& servers);

/// Register benchmarks of connecting.
void registerConnects(const Servers& servers);

/// Register benchmarks of several threads that read.
void registerReaders(const Servers& servers);

} // namespace agent::orvi::bench
