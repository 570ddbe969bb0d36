#include "discovery/EndpointFiles.hpp"

#include "discovery/SystemCall.hpp"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <random>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::remoting::details::endpointFiles {
namespace {

bool consistsOf(std::string_view text, std::string_view characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string_view::npos;
}

bool isName(std::string_view text) {
    const auto firstDot = text.find('.');
    const auto lastDot = text.rfind('.');
    return firstDot != std::string_view::npos && firstDot != lastDot &&
           isEndpointId(text.substr(0, firstDot)) &&
           consistsOf(text.substr(firstDot + 1, lastDot - firstDot - 1), "0123456789") &&
           consistsOf(text.substr(lastDot + 1), "0123456789abcdef");
}

struct flock wholeFile() {
    struct flock lock {};

    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

Descriptor openLock(int directory, const std::string& name, int access) {
    return Descriptor(::openat(
        directory, (name + std::string(lockSuffix)).c_str(),
        access | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

void unlinkFile(int directory, const std::string& name, std::string_view suffix) {
    ::unlinkat(directory, (name + std::string(suffix)).c_str(), 0);
}

/// The names that are a process's own, with the process, since forked children have a copy.
struct OwnNames {
    static OwnNames& instance() {
        static OwnNames& names = *new OwnNames;
        return names;
    }

    std::mutex mutex;
    std::map<std::string, pid_t> processes;
};

} // namespace

bool isEndpointId(std::string_view text) noexcept {
    constexpr std::string_view characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    return text.size() <= longestEndpointId && consistsOf(text, characters);
}

std::optional<std::string> nameOf(std::string_view fileName) {
    for (const auto suffix : {lockSuffix, socketSuffix, newSocketSuffix}) {
        if (fileName.ends_with(suffix)) {
            fileName.remove_suffix(suffix.size());
            return isName(fileName) ? std::optional(std::string(fileName)) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::string_view endpointIdOf(std::string_view name) noexcept {
    return name.substr(0, name.find('.'));
}

std::string makeName(const std::string& endpointId) {
    std::random_device random;
    const std::uint64_t number = (std::uint64_t{random()} << 32) | random();
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016" PRIx64, number);
    return endpointId + "." + std::to_string(::getpid()) + "." + digits.data();
}

std::set<std::string> namesIn(const Descriptor& directory) {
    // The directory is opened again, since readers of one descriptor share their place in it.
    const auto text = [] { return "Runtime directory"; };
    Descriptor own(
        checked(::openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC), text));
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::fdopendir(own.get()), ::closedir);
    checked(entries ? 0 : -1, text);
    own.release();
    std::set<std::string> names;
    while (true) {
        errno = 0; // nothing else tells the end from an error
        const dirent* const entry = ::readdir(entries.get());
        if (entry == nullptr) {
            checked(errno == 0 ? 0 : -1, text);
            return names;
        }
        if (auto name = nameOf(entry->d_name)) {
            names.insert(std::move(*name));
        }
    }
}

Owner ownerOf(int directory, const std::string& name) {
    if (isOwn(name)) {
        return Owner::alive;
    }
    const Descriptor file = openLock(directory, name, O_RDONLY);
    if (!file) {
        // Whoever has no descriptors left must not take others for dead.
        return errno == ENOENT || errno == ELOOP ? Owner::none : Owner::alive;
    }
    struct flock lock = wholeFile();
    const bool free = ::fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type == F_UNLCK;
    return free ? Owner::dead : Owner::alive;
}

bool hasSocket(int directory, const std::string& name) {
    struct stat status {};

    const std::string file = name + std::string(socketSuffix);
    if (::fstatat(directory, file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        checked(errno == ENOENT ? 0 : -1, [&] { return "Socket " + file; });
        return false;
    }
    return S_ISSOCK(status.st_mode) && status.st_uid == ::geteuid();
}

bool removeIfDead(int directory, const std::string& name) {
    if (isOwn(name)) {
        return false;
    }
    const Descriptor file = openLock(directory, name, O_RDWR);
    // A lock of the descriptor, not of the process: another thread that looks at the file and
    // closes it must not end this one.
    struct flock lock = wholeFile();
    if (!file || ::fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        return false;
    }
    const bool removed = isFile(directory, name + std::string(lockSuffix), file.get());
    if (removed) {
        unlinkFile(directory, name, socketSuffix);
        unlinkFile(directory, name, newSocketSuffix);
        unlinkFile(directory, name, lockSuffix);
    }
    // A child that is forked in this moment would keep the lock that is only closed.
    lock.l_type = F_UNLCK;
    ::fcntl(file.get(), F_OFD_SETLK, &lock);
    return removed;
}

bool isFile(int directory, const std::string& fileName, int descriptor) noexcept {
    struct stat opened {};

    struct stat named {};

    return ::fstat(descriptor, &opened) == 0 && S_ISREG(opened.st_mode) &&
           ::fstatat(directory, fileName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

OwnName::OwnName(const std::string& name)
    : own(name) {
    OwnNames& names = OwnNames::instance();
    const std::lock_guard lock(names.mutex);
    names.processes[own] = ::getpid();
}

OwnName::~OwnName() {
    OwnNames& names = OwnNames::instance();
    const std::lock_guard lock(names.mutex);
    names.processes.erase(own);
}

bool isOwn(const std::string& name) {
    OwnNames& names = OwnNames::instance();
    const std::lock_guard lock(names.mutex);
    const auto found = names.processes.find(name);
    return found != names.processes.end() && found->second == ::getpid();
}

} // namespace agent::orvi::remoting::details::endpointFiles
