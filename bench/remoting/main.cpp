#include "MemoryDevice.hpp"
#include "StreamCosts.hpp"
#include "remoting/Benchmarks.hpp"
#include "remoting/Certificates.hpp"
#include "remoting/Exchanges.hpp"
#include "remoting/RemoteStreamCosts.hpp"
#include "remoting/TemporaryFolder.hpp"

#include <benchmark/benchmark.h>
#include <google/protobuf/stubs/common.h>
#include <grpcpp/grpcpp.h>

#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <string_view>

namespace {

using namespace agent::orvi::bench;

constexpr std::string_view streamsPrefix = "streams-";

int serve(const std::string& kind, const std::string& folder) {
    static const std::map<std::string, void (*)(const ServerAddress&)> servers{
        {"orvi", serveOrvi}, {"socket", serveSocket}, {"grpc", serveGrpc}, {"raw", serveRaw}};
    endWithParent();
    source(); // takes a while to make
    if (kind.starts_with(streamsPrefix)) {
        serveStreams(folder, std::stoul(kind.substr(streamsPrefix.size())));
    }
    servers.at(kind)({folder, {}});
    return 0;
}

int measureStreams(const std::string& count) {
    endWithParent();
    announce(costsOfRemoteStreams(std::stoul(count)));
    return 0;
}

void describeBuild() {
#ifdef __clang__
    benchmark::AddCustomContext("compiler", __VERSION__);
#else
    benchmark::AddCustomContext("compiler", "GCC " __VERSION__);
#endif
    benchmark::AddCustomContext("grpc", grpc::Version());
    benchmark::AddCustomContext(
        "protobuf", google::protobuf::internal::VersionString(GOOGLE_PROTOBUF_VERSION));
}

int run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    describeBuild();
    const TemporaryFolder folder;
    makeCertificates(folder.path);
    const Servers servers(folder.path);
    registerExchanges(servers);
    registerConnects(servers);
    registerReaders(servers);
    registerStreamCosts({"--streams"});
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace

/// Run the benchmarks; or be a server of theirs, --serve KIND FOLDER; or measure streams in a
/// process of their own, --streams COUNT.
int main(int argc, char** argv) {
    try {
        const std::string task = argc > 1 ? argv[1] : "";
        if (task == "--serve" && argc == 4) {
            return serve(argv[2], argv[3]);
        }
        return task == "--streams" && argc == 3 ? measureStreams(argv[2]) : run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
