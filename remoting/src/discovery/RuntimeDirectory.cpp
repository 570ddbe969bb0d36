#include "discovery/RuntimeDirectory.hpp"

#include "discovery/SystemCall.hpp"

#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace agent::orvi::remoting::details {
namespace {

[[noreturn]] void refuse(int error, const std::filesystem::path& path, const std::string& reason) {
    throw std::system_error(
        error, std::generic_category(), "Runtime directory " + path.string() + reason);
}

/// Say whether an error means that there is nothing of use, and not that nobody can tell now.
bool meansUseless(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == EACCES ||
           error == ENAMETOOLONG;
}

/// Return "orvi" in $XDG_RUNTIME_DIR, or nothing where that is not set up for this user, as after a
/// change of the user.
std::filesystem::path inSessionDirectory() {
    const char* const value = std::getenv("XDG_RUNTIME_DIR");
    const std::filesystem::path session = value == nullptr ? "" : value;

    struct stat status {};

    if (!session.is_absolute()) {
        return {};
    }
    if (::stat(session.c_str(), &status) != 0) {
        // Somewhere else, this process would meet nobody.
        if (!meansUseless(errno)) {
            refuse(errno, session, "");
        }
        return {};
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid()) {
        return {};
    }
    return session / "orvi";
}

std::filesystem::path choose(const std::filesystem::path& configured) {
    if (!configured.empty()) {
        // A slash at the end would have a symbolic link followed.
        const auto path = std::filesystem::absolute(configured).lexically_normal();
        return path.has_filename() ? path : path.parent_path();
    }
    if (auto path = inSessionDirectory(); !path.empty()) {
        return path;
    }
    return "/tmp/orvi-" + std::to_string(::geteuid());
}

/// Check what was opened, not what has the name by now.
void checkPrivate(int directory, const std::filesystem::path& path) {
    struct stat status {};

    checked(::fstat(directory, &status), [&] { return "Runtime directory " + path.string(); });
    if (status.st_uid != ::geteuid()) {
        refuse(EPERM, path, " belongs to another user");
    }
    if ((status.st_mode & 077) != 0) {
        refuse(EPERM, path, " is open to other users; its mode should be 0700");
    }
}

} // namespace

RuntimeDirectory::RuntimeDirectory(const std::filesystem::path& configured)
    : location(choose(configured)) {
    make();
}

Descriptor RuntimeDirectory::open() const {
    Descriptor directory(::open(location.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory) {
        const int error = errno;
        const bool notDirectory = error == ENOTDIR || error == ELOOP;
        refuse(error, location, notDirectory ? " is no directory, or a symbolic link" : "");
    }
    checkPrivate(directory.get(), location);
    return directory;
}

Descriptor RuntimeDirectory::make() const {
    if (::mkdir(location.c_str(), 0700) != 0 && errno != EEXIST) {
        refuse(errno, location, "");
    }
    return open();
}

} // namespace agent::orvi::remoting::details
