#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What a fuzz target consists of: this function, which a fuzzer or a replay calls with one input
/// after another. It returns 0, always; a property that does not hold ends the program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

namespace agent::orvi::fuzz {

/// Say on the standard error what does not hold, and abort.
[[noreturn]] void fail(std::string_view what);

/// End the program unless a property holds.
inline void require(bool holds, std::string_view what) {
    if (!holds) {
        fail(what);
    }
}

} // namespace agent::orvi::fuzz
