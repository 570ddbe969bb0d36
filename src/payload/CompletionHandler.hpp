#pragma once

#include "payload/GenericPayload.hpp"

#include <exception>
#include <functional>

namespace agent::orvi::core {

/// Where the outcome of one call goes: exactly one of the two sides is called, once, on any thread.
struct CompletionHandler {
    std::function<void(GenericPayload)> success;   ///< Receives the result.
    std::function<void(std::exception_ptr)> error; ///< Receives what went wrong instead.
};

} // namespace agent::orvi::core
