#include "terminal/Failure.hpp"

#include "terminal/Text.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>

#include <cstdio>

namespace agent::orvi::tool {
namespace {

template <class... Types>
bool isOneOf(const std::exception& reason) {
    return ((dynamic_cast<const Types*>(&reason) != nullptr) || ...);
}

ExitCode codeOf(const std::exception& reason) {
    if (const auto* failure = dynamic_cast<const CommandFailure*>(&reason)) {
        return failure->code();
    }
    if (isOneOf<OutputClosed>(reason)) {
        return ExitCode::done;
    }
    if (isOneOf<remoting::AccessDenied>(reason)) {
        return ExitCode::notAllowed;
    }
    if (isOneOf<remoting::PeerLost, remoting::TimeLimitExceeded, core::ServiceUnavailable>(
            reason)) {
        return ExitCode::peerLost;
    }
    return ExitCode::error;
}

} // namespace

const char* OutputClosed::what() const noexcept {
    return "The standard output is closed.";
}

int report(const std::exception& reason) noexcept {
    const ExitCode code = codeOf(reason);
    if (code != ExitCode::done) {
        warn(reason.what());
    }
    return code;
}

void warn(const std::string& text) noexcept {
    try {
        const std::string line = "orvi-stream: " + printable(text) + '\n';
        std::fputs(line.c_str(), stderr);
    } catch (const std::bad_alloc&) {
        std::fputs("orvi-stream: out of memory\n", stderr);
    }
}

} // namespace agent::orvi::tool
