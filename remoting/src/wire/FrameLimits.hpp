#pragma once

#include <cstddef>
#include <cstdint>

/// The numbers that both sides must agree on; docs/protocol.md lists them.
namespace agent::orvi::remoting::details {

constexpr std::uint32_t protocolMajor = 1;
constexpr std::uint32_t protocolMinor = 0;

/// Bytes of an encoded frame, its data included.
constexpr std::size_t maximumFrameSize = std::size_t{128} * 1024;

/// Bytes of the filter of a look-up.
constexpr std::size_t maximumFilterSize = std::size_t{4} * 1024;

/// Bytes of each name in a greeting: an importer keeps those of an endpoint with each of its
/// services.
constexpr std::size_t maximumPeerName = 256;

/// Slots of one request or answer.
constexpr std::size_t maximumSlots = 64;

/// Bytes of an error's text; what is longer is cut.
constexpr std::size_t maximumErrorText = std::size_t{64} * 1024;

/// Bytes of the name of an error's type; what is longer is cut.
constexpr std::size_t maximumErrorType = std::size_t{4} * 1024;

/// Bytes of the text with which a stream ends; what is longer is cut. It travels in three times as
/// many at most, and gRPC drops a stream's whole end when it has more than 8192.
constexpr std::size_t maximumEndText = 1024;

/// Lists and maps inside of each other in the value of a service property.
constexpr int maximumNesting = 16;

/// Messages inside of each other; an offer with the deepest values has fewer.
constexpr int maximumMessageDepth = 64;

} // namespace agent::orvi::remoting::details
