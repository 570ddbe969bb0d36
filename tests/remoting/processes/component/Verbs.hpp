#pragma once

#include "remoting/processes/component/Command.hpp"

#include <functional>
#include <map>
#include <string>

namespace agent::orvi::remoting::test {

/// What a component can be told, by the verb. Each returns the rest of the answer, or throws.
using Verbs = std::map<std::string, std::function<std::string(const Command& command)>>;

} // namespace agent::orvi::remoting::test
