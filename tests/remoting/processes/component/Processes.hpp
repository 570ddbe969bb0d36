#pragma once

#include "remoting/processes/component/Verbs.hpp"

#include <string>

namespace agent::orvi::remoting::test {

/// What a component does with children of its own and says of itself.
///
/// Adds: "memory", which answers with what it has in small blocks; "fork", which answers with the
/// number of a child that has everything open that the component has, and lives until it is killed;
/// "fork-and-exit", whose child ends with all destructors and answers with its exit code;
/// "execute", which runs a program that lists the descriptors it has got beyond the standard three,
/// and answers with their number.
void addProcessVerbs(Verbs& verbs);

} // namespace agent::orvi::remoting::test
