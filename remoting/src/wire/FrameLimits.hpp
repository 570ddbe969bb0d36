#pragma once

#include <cstddef>
#include <cstdint>

/// The numbers that both sides must agree on; docs/protocol.md lists them.
namespace agent::orvi::remoting::details {

constexpr std::uint32_t protocolMajor = 1;
constexpr std::uint32_t protocolMinor = 0;

/// Bytes of an encoded frame, its data included.
constexpr std::size_t maximumFrameSize = std::size_t{128} * 1024;

/// Slots of one request or answer.
constexpr std::size_t maximumSlots = 64;

/// Bytes of an error's text; what is longer is cut.
constexpr std::size_t maximumErrorText = std::size_t{64} * 1024;

/// Bytes of the name of an error's type; what is longer is cut.
constexpr std::size_t maximumErrorType = std::size_t{4} * 1024;

/// Values inside of values of a service property, the property's own value included.
constexpr int maximumValueDepth = 16;

/// Messages inside of messages: an offer whose values are nested as deeply as they may be.
constexpr int maximumMessageDepth = 64;

} // namespace agent::orvi::remoting::details
