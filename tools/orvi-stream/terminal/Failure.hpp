#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace agent::orvi::tool {

/// What the program tells its caller when it ends. A signal's number is added to `signalled`.
enum ExitCode : int {
    done = 0,
    error = 1,
    wrongUsage = 2,
    noSuchStream = 3,
    notAllowed = 4,
    peerLost = 5,
    signalled = 128
};

/// A command ends without having done what it was asked for.
class CommandFailure : public std::runtime_error {
public:
    CommandFailure(ExitCode code, const std::string& text)
        : std::runtime_error(text)
        , exitCode(code) {}

    ExitCode code() const noexcept { return exitCode; }

private:
    ExitCode exitCode;
};

/// The reader of the standard output wants no more.
class OutputClosed : public std::exception {
public:
    const char* what() const noexcept override;
};

/// Print why a command ended, unless that needs no words.
///
/// @return the exit code that says so.
int report(const std::exception& reason) noexcept;

/// Print a line about something that does not end the command, on the standard error.
///
/// The text may come from other processes: what a terminal would take as a command is made
/// visible.
void warn(const std::string& text) noexcept;

} // namespace agent::orvi::tool
