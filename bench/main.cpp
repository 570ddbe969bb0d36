#include "ChildProcess.hpp"
#include "MemoryDevice.hpp"
#include "StreamCosts.hpp"

#include <benchmark/benchmark.h>
#include <boost/version.hpp>

#include <exception>
#include <iostream>
#include <string>

namespace {

using namespace agent::orvi::bench;

int run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
#ifdef __clang__
    benchmark::AddCustomContext("compiler", __VERSION__);
#else
    benchmark::AddCustomContext("compiler", "GCC " __VERSION__);
#endif
    benchmark::AddCustomContext("boost", BOOST_LIB_VERSION);
    benchmark::AddCustomContext("buffer_size", std::to_string(bufferSize));
    source(); // takes a while to make, which is nobody's time
    registerStreamCosts({"--streams"});
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

int measureStreams(const std::string& count) {
    endWithParent();
    announce(costsOfStreams(std::stoul(count)));
    return 0;
}

} // namespace

/// Run what the other files registered, and record with what they were compiled; or measure streams
/// in a process of their own: --streams COUNT.
int main(int argc, char** argv) {
    try {
        return argc == 3 && argv[1] == std::string("--streams") ? measureStreams(argv[2])
                                                                : run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
