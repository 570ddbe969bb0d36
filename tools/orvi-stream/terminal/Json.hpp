#pragma once

#include "streams/StreamDescription.hpp"

#include <nlohmann/json.hpp>

#include <string>

namespace agent::orvi::tool {

/// Keeps the order in which members were added.
using Json = nlohmann::ordered_json;

/// Describe a stream for programs.
Json asJson(const StreamDescription& stream, const std::string& address);

/// Write a value in one line. Text that is no UTF-8 is replaced.
std::string dump(const Json& value);

} // namespace agent::orvi::tool
