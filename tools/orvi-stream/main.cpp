/// Publishes byte streams to other processes, and lists, reads and writes those of others.

#include "terminal/CommandLine.hpp"
#include "terminal/Failure.hpp"
#include "terminal/Signals.hpp"

#include <exception>

int main(int count, char** arguments) {
    using namespace agent::orvi::tool;
    try {
        holdSignals();
        return run(count, arguments);
    } catch (const std::exception& reason) {
        return report(reason);
    }
}
