#include "Target.hpp"

#include <cstdlib>
#include <iostream>

namespace agent::orvi::fuzz {

void fail(std::string_view what) {
    std::cerr << "\nDoes not hold: " << what << std::endl;
    std::abort();
}

} // namespace agent::orvi::fuzz
