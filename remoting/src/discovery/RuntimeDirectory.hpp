#pragma once

#include "discovery/Descriptor.hpp"

#include <filesystem>

namespace agent::orvi::remoting::details {

/// Where the processes of one user on this machine meet: a directory that nobody else can enter.
///
/// The directory is not kept open: one that is in use would be removed without anybody noticing.
/// Instead it is checked each time it is opened. A value.
///
/// Thread safety: thread-compatible.
class RuntimeDirectory {
public:
    /// Choose the directory and make it if it is missing: the configured one; else "orvi" in
    /// $XDG_RUNTIME_DIR, if that is an absolute path to a directory of this user's; else
    /// "/tmp/orvi-" and the user's number. Directories above it are not made.
    ///
    /// @throws std::system_error with the path in its text when it cannot be made, is a symbolic
    ///         link or anything else but a directory, belongs to another user, or is open to other
    ///         users in any way.
    explicit RuntimeDirectory(const std::filesystem::path& configured);

    /// Return the absolute path.
    const std::filesystem::path& path() const noexcept { return location; }

    /// Open the directory for what is done relative to it. The descriptor is closed on exec.
    ///
    /// @throws std::system_error as the constructor does, and when it is missing.
    Descriptor open() const;

    /// Make the directory again if it is missing, and open it.
    ///
    /// @throws std::system_error as the constructor does.
    Descriptor make() const;

private:
    std::filesystem::path location;
};

} // namespace agent::orvi::remoting::details
