/// Publishes byte streams to other processes, and lists, reads and writes those of others.

#include "terminal/CommandLine.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"
#include "terminal/Signals.hpp"

#include <exception>

namespace {

/// Runs before the libraries' own initialisation, in which gRPC would take the number of a closed
/// standard input and keep it.
[[gnu::section(".preinit_array"), gnu::used]] void (*const beforeLibraries)() noexcept =
    &agent::orvi::tool::occupyClosedDescriptors;

} // namespace

int main(int count, char** arguments) {
    using namespace agent::orvi::tool;
    try {
        holdSignals();
        return run(count, arguments);
    } catch (const std::exception& reason) {
        return report(reason);
    }
}
