#pragma once

#include "discovery/Descriptor.hpp"

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>

/// The files of endpoints in a runtime directory.
///
/// An endpoint has a lock, "NAME.lock", a socket, "NAME.sock", and before that a socket with a
/// passing name, "NAME.new". Names are never used twice. The lock is the first of them to appear,
/// and belongs to the process, not to its descriptors: it ends with the process even when a forked
/// child has inherited them. On the other hand it also ends when the process closes any descriptor
/// of the file; therefore nothing but the endpoint itself ever opens a lock of its own process.
///
/// An owner that has created and locked its lock checks that it is still in the directory; one who
/// clears away removes nothing but while it holds the lock. So neither ever needs to know of the
/// other one, and no lock is common to all, behind which a stopped process could hold up others.
namespace agent::orvi::remoting::details::endpointFiles {

inline constexpr std::string_view lockSuffix = ".lock";
inline constexpr std::string_view socketSuffix = ".sock";
inline constexpr std::string_view newSocketSuffix = ".new";

/// The most characters that an endpoint's id may have, so that the names of its files fit.
inline constexpr std::size_t longestEndpointId = 40;

/// Whether somebody stands behind the files of a name.
enum class Owner {
    alive, ///< A process holds the lock, or this one has said that the name is its own. Also: it
           ///< cannot be told.
    dead,  ///< The lock is there, and nobody holds it.
    none   ///< There is no lock.
};

/// Say whether a text can be an endpoint's id: letters, digits, "-" and "_", and not too many.
bool isEndpointId(std::string_view text) noexcept;

/// Return the endpoint's name of a file's name, or nothing when it is no file of an endpoint.
std::optional<std::string> nameOf(std::string_view fileName);

/// Return the endpoint's id in an endpoint's name.
std::string_view endpointIdOf(std::string_view name) noexcept;

/// Make a name that no other endpoint has.
std::string makeName(const std::string& endpointId);

/// Return the names that have files in a directory.
///
/// @throws std::system_error when it cannot be read.
std::set<std::string> namesIn(const Descriptor& directory);

/// Say who stands behind the files of a name. Disturbs nobody.
Owner ownerOf(int directory, const std::string& name);

/// Say whether there is a socket of this user's under that name.
///
/// @throws std::system_error when nobody can tell.
bool hasSocket(int directory, const std::string& name);

/// Remove the files of a name if its owner is dead.
///
/// @return whether this call has removed them.
bool removeIfDead(int directory, const std::string& name);

/// Say whether an open regular file is the one that has a name in a directory.
bool isFile(int directory, const std::string& fileName, int descriptor) noexcept;

/// A name that is this process's own while this object lives.
///
/// Thread safety: thread-compatible.
class OwnName {
public:
    explicit OwnName(const std::string& name);
    ~OwnName();
    OwnName(const OwnName&) = delete;
    OwnName& operator=(const OwnName&) = delete;

    const std::string& name() const noexcept { return own; }

private:
    std::string own;
};

/// Say whether a name is this process's own: not one that its parent had when it forked.
bool isOwn(const std::string& name);

} // namespace agent::orvi::remoting::details::endpointFiles
