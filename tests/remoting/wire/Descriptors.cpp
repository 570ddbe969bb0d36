#include "wire/Messages.hpp"

namespace agent::orvi::remoting::details::test {

// Made with the first message otherwise, where a test may watch its own allocations.
[[maybe_unused]] static const auto* const frameDescriptor = v1::Frame::descriptor();

} // namespace agent::orvi::remoting::details::test
