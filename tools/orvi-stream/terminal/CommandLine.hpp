#pragma once

namespace agent::orvi::tool {

/// Read the command line and do what it says.
///
/// @return the program's exit code.
/// @throws what the command throws, or `writeOutput` where the answer is a text.
int run(int count, const char* const* words);

} // namespace agent::orvi::tool
