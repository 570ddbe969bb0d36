#pragma once

#include "streambuf/StreamBuffer.hpp"

#include <functional>
#include <stdexcept>
#include <string>
#include <typeinfo>

/// Operations that fail with a message that names them.
///
/// The factories never install them: an absent operation is an empty callable, so that a publisher
/// can say what exists. They serve whoever wants a device that explains its refusal.
///
/// Thread safety: thread-safe; a message never changes.
namespace agent::orvi::streambuf::details {

/// Build an operation that throws `std::runtime_error` whatever its arguments are.
///
/// @param tag gives the function type; its content is never looked at.
/// @param name the operation's name as the message shall spell it; may be empty.
/// @return a copyable closure callable with `Args...`, which never returns.
/// @throws std::bad_alloc when the message cannot be allocated.
template <class R, class... Args>
auto makeNoFunctionProvided(
    [[maybe_unused]] std::function<R(Args...)> tag, const std::string& name) {
    const std::string signature = typeid(R(Args...)).name();
    return [message = "This device does not provide a " + name + " method with signature " +
                      signature](Args...) -> R { throw std::runtime_error(message); };
}

/// Build a `read` that fails.
inline ReadFunction failingReadFunction() {
    return makeNoFunctionProvided(noReadFunction(), "read");
}

/// Build a `seekoff` that fails.
inline SeekOffFunction failingSeekOffFunction() {
    return makeNoFunctionProvided(noSeekOffFunction(), "seekoff");
}

/// Build a `seekpos` that fails.
inline SeekPosFunction failingSeekPosFunction() {
    return makeNoFunctionProvided(noSeekPosFunction(), "seekpos");
}

/// Build a `write` that fails.
inline WriteFunction failingWriteFunction() {
    return makeNoFunctionProvided(noWriteFunction(), "write");
}

} // namespace agent::orvi::streambuf::details
