#pragma once

#include "Input.hpp"

#include "remoting/carrier/ScriptedCarrier.hpp"

namespace agent::orvi::fuzz {

using remoting::details::test::ScriptedConnection;
using remoting::details::test::ScriptedExecutor;
using remoting::details::test::ScriptedStream;

/// Return a reason for which a stream may end by itself.
inline remoting::details::StreamEnd anyEnd(Input& input) {
    return {static_cast<remoting::details::StreamEnd::Kind>(input.below(8)), input.text(20)};
}

} // namespace agent::orvi::fuzz
