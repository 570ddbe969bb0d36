#pragma once

#include "commands/Options.hpp"

/// The commands of the program. Each blocks until it is done and throws what it cannot report by
/// its result.
namespace agent::orvi::tool {

/// Publish files until a signal comes.
///
/// @return the exit code for that signal.
/// @throws CommandFailure, std::system_error when publishing does not start.
int publish(const PublishOptions& options);

/// Print who publishes what.
///
/// @throws CommandFailure when not every endpoint could be asked; what the others have is printed.
void list(const ListOptions& options);

/// Print what is known about one stream.
///
/// @throws CommandFailure when it is not found; what the stream's operations throw.
void stat(const StatOptions& options);

/// Copy a stream to the standard output.
///
/// @throws CommandFailure when it is not found, cannot be read or ends before the size that it has;
///         what the stream's operations throw.
void cat(const CatOptions& options);

/// Copy the standard input to a stream.
///
/// @throws CommandFailure when the input is closed, or when the stream is not found, cannot be
///         written or does not take all bytes; what the stream's operations throw.
void put(const PutOptions& options);

} // namespace agent::orvi::tool
