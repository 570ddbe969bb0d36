#include "MemoryDevice.hpp"

#include <benchmark/benchmark.h>
#include <boost/version.hpp>

#include <string>

/// Run what the other files registered, and record with what they were compiled.
int main(int argc, char** argv) {
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
    benchmark::AddCustomContext("buffer_size", std::to_string(agent::orvi::bench::bufferSize));
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
