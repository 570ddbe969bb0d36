#include "discovery/LocalAddress.hpp"

#include "discovery/FreshFiles.hpp"
#include "discovery/SystemCall.hpp"

#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace agent::orvi::remoting::details {
namespace {

using namespace endpointFiles;

/// How often another name is tried when somebody clears the lock away before it is locked. Each
/// time takes another process in just that moment.
constexpr int bindAttempts = 100;

/// Make the address of a socket by way of its directory, however long that one's path is.
///
/// @throws std::system_error when the name is too long.
sockaddr_un addressOf(int directory, const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
    if (path.size() >= sizeof(address.sun_path) || name.find('\0') != std::string::npos) {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), "Socket " + name);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

template <class Call>
int withAddress(Call call, int socket, const sockaddr_un& address) {
    return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

/// Lock a file for this process. Unlike a lock of the descriptor, this one is not inherited.
bool lockForProcess(int file) {
    struct flock lock {};

    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return ::fcntl(file, F_SETLK, &lock) == 0;
}

std::optional<ucred> credentialsOf(int socket) {
    ucred credentials{};
    socklen_t length = sizeof(credentials);
    const bool known = ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) == 0;
    return known ? std::optional(credentials) : std::nullopt;
}

bool isOfThisUser(int socket) {
    const auto credentials = credentialsOf(socket);
    return credentials && credentials->uid == ::geteuid();
}

/// Which file something is, to know it again.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileIdentity&) const = default;
};

std::optional<FileIdentity> identityOf(int directory, const std::string& file) {
    struct stat status {};

    if (::fstatat(directory, file.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, status.st_ino};
}

} // namespace

class LocalListener::Impl {
public:
    Impl(Housekeeper& housekeeper, const RuntimeDirectory& directory)
        : housekeeper(housekeeper)
        , directory(directory) {}

    ~Impl() {
        const bool removed = !socketFile || removeSocket();
        accepting.reset();
        // Others clear away what is left, but only where there is a lock that nobody holds.
        if (lock && removed) {
            removeLock();
        }
    }

    void start(const std::string& endpointId, Accepted accepted) {
        const Descriptor opened = directory.make();
        takeLock(opened.get(), endpointId);
        Descriptor socket = bind(opened.get());
        accepting.emplace(
            housekeeper, std::move(socket), [accepted = std::move(accepted)](Descriptor peer) {
                if (isOfThisUser(peer.get())) {
                    accepted(peer.release());
                }
            });
        show(opened.get());
        fresh.emplace(
            housekeeper, directory, std::vector{fileName(lockSuffix), fileName(socketSuffix)});
    }

    std::string fileName(std::string_view suffix) const {
        return ownName->name() + std::string(suffix);
    }

    Housekeeper& housekeeper;
    std::filesystem::path path;
    std::optional<OwnName> ownName;

private:
    void takeLock(int opened, const std::string& endpointId) {
        for (int attempt = 0; attempt < bindAttempts; ++attempt) {
            // First of all, so that nobody in this process touches the file.
            ownName.emplace(makeName(endpointId));
            path = directory.path() / fileName(socketSuffix);
            const std::string file = fileName(lockSuffix);
            lock = Descriptor(checked(
                ::openat(
                    opened, file.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600),
                [&] { return "Lock " + (directory.path() / file).string(); }));
            // Before it was locked, it looked like what a dead process has left behind.
            if (lockForProcess(lock.get()) && isFile(opened, file, lock.get())) {
                return;
            }
            ::unlinkat(opened, file.c_str(), 0); // where it has not been cleared away
        }
        throw std::system_error(EAGAIN, std::generic_category(), "Lock beside " + path.string());
    }

    /// Make the socket under a name by which nobody looks for it, with nobody else's access from
    /// the first moment on, whatever the process's file mode mask.
    Descriptor bind(int opened) {
        const auto text = [this] { return "Socket " + path.string(); };
        Descriptor socket(
            checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), text));
        const std::string file = fileName(newSocketSuffix);
        checked(::fchmod(socket.get(), 0600), text);
        checked(withAddress(::bind, socket.get(), addressOf(opened, file)), text);
        socketFile = identityOf(opened, file);
        if (!socketFile) {
            const int error = errno;
            ::unlinkat(opened, file.c_str(), 0);
            throw std::system_error(error, std::generic_category(), text());
        }
        checked(::fchmodat(opened, file.c_str(), 0600, 0), text);
        checked(::listen(socket.get(), SOMAXCONN), text);
        return socket;
    }

    void show(int opened) {
        checked(
            ::renameat(
                opened, fileName(newSocketSuffix).c_str(), opened, fileName(socketSuffix).c_str()),
            [this] { return "Socket " + path.string(); });
    }

    /// @return whether there is none any more.
    bool removeSocket() noexcept {
        bool removed = false;
        withDirectory([&](int opened) {
            removed = true;
            for (const auto suffix : {socketSuffix, newSocketSuffix}) {
                const auto found = identityOf(opened, fileName(suffix));
                const bool failed = found ? found == socketFile &&
                                                ::unlinkat(opened, fileName(suffix).c_str(), 0) != 0
                                          : errno != ENOENT;
                removed = removed && !failed;
            }
        });
        return removed;
    }

    void removeLock() noexcept {
        withDirectory([this](int opened) {
            if (isFile(opened, fileName(lockSuffix), lock.get())) {
                ::unlinkat(opened, fileName(lockSuffix).c_str(), 0);
            }
        });
    }

    template <class Action>
    void withDirectory(Action action) noexcept {
        try {
            action(directory.open().get());
        } catch (const std::exception&) {
            // Without the directory, the files have gone already.
        }
    }

    const RuntimeDirectory directory;
    Descriptor lock;
    std::optional<FileIdentity> socketFile;
    std::optional<AcceptLoop> accepting;
    std::optional<FreshFiles> fresh;
};

LocalListener::LocalListener(
    Housekeeper& housekeeper, const RuntimeDirectory& directory, const std::string& endpointId,
    Accepted accepted)
    : impl(std::make_unique<Impl>(housekeeper, directory)) {
    if (!isEndpointId(endpointId)) {
        throw std::invalid_argument("No endpoint id: \"" + endpointId + "\"");
    }
    impl->start(endpointId, std::move(accepted));
}

LocalListener::~LocalListener() {
    if (!impl->housekeeper.isOfThisProcess()) {
        Housekeeper::leaveToParent(std::shared_ptr<Impl>(std::move(impl)));
    }
}

const std::filesystem::path& LocalListener::path() const noexcept {
    return impl->path;
}

const std::string& LocalListener::name() const noexcept {
    return impl->ownName->name();
}

LocalPeer connectLocal(const std::filesystem::path& path) {
    const auto text = [&] { return "Socket " + path.string(); };
    const std::filesystem::path parent = std::filesystem::absolute(path).parent_path();
    const Descriptor directory(
        checked(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), text));
    const sockaddr_un address = addressOf(directory.get(), path.filename().string());
    Descriptor socket(
        checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), text));
    int result = 0;
    do {
        result = withAddress(::connect, socket.get(), address);
    } while (result != 0 && errno == EINTR);
    checked(result, text);
    const auto listener = credentialsOf(socket.get());
    checked(listener ? 0 : -1, text);
    if (listener->uid != ::geteuid()) {
        throw std::system_error(EPERM, std::generic_category(), text() + " is another user's");
    }
    return {socket.release(), listener->pid};
}

pid_t peerProcess(int descriptor) {
    const auto credentials = credentialsOf(descriptor);
    return credentials ? credentials->pid : 0;
}

} // namespace agent::orvi::remoting::details
