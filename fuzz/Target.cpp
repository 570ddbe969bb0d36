#include "Target.hpp"

#include <cstdio>
#include <cstdlib>

namespace agent::orvi::fuzz {

void fail(std::string_view what) {
    // A target may have redirected the streams.
    std::fprintf(stderr, "\nDoes not hold: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

} // namespace agent::orvi::fuzz
