/// Whole sessions with a peer that sends anything, at any time, and breaks off at any point: the
/// call streams and the control stream of an endpoint, and those of an importer. The carrier is a
/// script; there are no threads, so an input always does the same.
///
/// The properties are stated in the four headers of this folder. In short: nobody waits for what
/// never comes, an end of data is one that the other side has sent, every call is answered or ended
/// once, and what is over uses nothing.

#include "sessions/ExporterCalls.hpp"
#include "sessions/ExporterControl.hpp"
#include "sessions/ImporterCalls.hpp"
#include "sessions/ImporterControl.hpp"

#include "Target.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi::fuzz;
    Input input(bytes, size);
    switch (input.below(4)) {
    case 0:
        fuzzExporterCalls(input);
        break;
    case 1:
        fuzzExporterControl(input);
        break;
    case 2:
        fuzzImporterCalls(input);
        break;
    default:
        fuzzImporterControl(input);
    }
    return 0;
}
