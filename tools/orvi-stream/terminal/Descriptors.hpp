#pragma once

#include <cstddef>
#include <span>
#include <string_view>

/// The standard input and output without a buffer of their own: whoever moves large pieces needs
/// none, and an error is known at once.
namespace agent::orvi::tool {

/// Take the places of the standard descriptors that are closed, or end the program when that cannot
/// be done: a file that is opened later would get the number of one, and what the program tells
/// would be written into it.
///
/// Using such a descriptor fails as it did before. May be called before any constructor has run.
void occupyClosedDescriptors() noexcept;

/// Make sure that there is a standard input, which need not hold anything.
///
/// @throws CommandFailure when the program was started with a closed one.
void demandInput();

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
