#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// The standard input and output without a buffer of their own: whoever moves large pieces needs
/// none, and an error is known at once.
namespace agent::orvi::tool {

/// Write all of `data` to the standard output. Blocks until it has been taken.
///
/// @throws OutputClosed when the reader has gone.
/// @throws std::system_error when the output cannot be written.
void writeOutput(std::string_view data);

/// Read what the standard input has, blocking until it has something.
///
/// @return how many bytes were put at the start of `space`; 0 at the end of the input.
/// @throws std::system_error when the input cannot be read.
std::size_t readInput(std::span<char> space);

} // namespace agent::orvi::tool
