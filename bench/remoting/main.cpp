#include "remoting/Benchmarks.hpp"
#include "remoting/Certificates.hpp"
#include "remoting/Exchange.hpp"
#include "remoting/ServedBytes.hpp"

#include <benchmark/benchmark.h>
#include <google/protobuf/stubs/common.h>
#include <grpcpp/grpcpp.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

namespace {

using namespace agent::orvi::bench;

/// A folder that is gone with this object.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "orvi-bench-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("Cannot make a temporary folder.");
        }
        path = name;
    }

    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path path;
};

int serve(const std::string& kind, const std::string& folder) {
    static const std::map<std::string, void (*)(const ServerAddress&)> servers{
        {"orvi", serveOrvi}, {"socket", serveSocket}, {"grpc", serveGrpc}, {"raw", serveRaw}};
    source(); // takes a while to make
    servers.at(kind)({folder, {}});
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
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace

/// Run the benchmarks, or be a server of theirs: --serve KIND FOLDER.
int main(int argc, char** argv) {
    try {
        return argc == 4 && argv[1] == std::string("--serve") ? serve(argv[2], argv[3])
                                                              : run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
