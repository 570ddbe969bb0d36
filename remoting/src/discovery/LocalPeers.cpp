#include "discovery/LocalPeers.hpp"

#include "carrier/AwaitMemory.hpp"
#include "discovery/EndpointFiles.hpp"
#include "discovery/SystemCall.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::remoting::details {
namespace {

using namespace endpointFiles;

/// Sockets appear by being renamed. A lock that is created is of no interest: its owner is about to
/// lock it. One that is closed may have been closed by the end of its process.
constexpr std::uint32_t interest = IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CLOSE_WRITE |
                                   IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW |
                                   IN_EXCL_UNLINK;

constexpr std::uint32_t directoryLost = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

/// How long to wait before the directory is made again: whoever removes it may not be ready.
constexpr std::chrono::milliseconds untilMadeAgain{100};

/// How often to look whether the directory is still the one that is watched. The kernel says that
/// it was removed only once nothing of it is in use any more, and a socket keeps it in use for as
/// long as it is open, removed or not.
constexpr std::chrono::seconds directoryCheck{5};

/// The same after something was removed from it: who removes all of it is done soon.
constexpr std::chrono::milliseconds directoryCheckAfterRemoval{100};

/// How often to look where nothing can be watched, or where the last look failed.
constexpr std::chrono::seconds withoutWatch{1};

/// Say whether an error means that there is nothing, and not that nobody can tell now.
bool meansNothing(const std::system_error& error) {
    const int code = error.code().value();
    return code == ENOENT || code == ENOTDIR || code == ELOOP || code == EPERM || code == EACCES;
}

/// What some events together say.
struct Changes {
    std::set<std::string> names;
    bool removal = false;
    bool lost = false;     // the directory
    bool overflow = false; // some events are missing
};

void add(Changes& changes, const inotify_event& event, const char* name) {
    changes.overflow = changes.overflow || (event.mask & IN_Q_OVERFLOW) != 0;
    changes.lost = changes.lost || (event.mask & directoryLost) != 0;
    changes.removal = changes.removal || (event.mask & IN_DELETE) != 0;
    if (event.len == 0) {
        return;
    }
    const std::string_view file = name;
    if ((event.mask & IN_CLOSE_WRITE) != 0 ? file.ends_with(lockSuffix)
                                           : file.ends_with(socketSuffix)) {
        if (auto endpoint = nameOf(file)) {
            changes.names.insert(std::move(*endpoint));
        }
    }
}

/// The device and the number of an open directory.
using Identity = std::pair<dev_t, ino_t>;

Identity identityOf(const Descriptor& directory) {
    struct stat status {};

    checked(::fstat(directory.get(), &status), [] { return "Runtime directory"; });
    return {status.st_dev, status.st_ino};
}

/// Read the events that are there.
Changes readChanges(int inotify) {
    Changes changes;
    std::array<char, 16384> buffer;
    for (ssize_t size = 0; (size = ::read(inotify, buffer.data(), buffer.size())) > 0;) {
        const char* const end = buffer.data() + size;
        for (const char* place = buffer.data(); place < end;) {
            inotify_event event{};
            std::memcpy(&event, place, sizeof(event));
            try {
                add(changes, event, place + sizeof(event));
            } catch (const std::bad_alloc&) {
                changes.overflow = true;
            }
            place += sizeof(event) + event.len;
        }
    }
    return changes;
}

} // namespace

class LocalPeers::State : public std::enable_shared_from_this<State> {
public:
    State(
        boost::asio::io_context& context, RuntimeDirectory directory, Report found, Report gone,
        OwnEndpoints ownEndpoints)
        : context(context)
        , directory(std::move(directory))
        , found(std::move(found))
        , gone(std::move(gone))
        , ownEndpoints(ownEndpoints)
        , inotify(context)
        , timer(context) {}

    /// Do something later, unless this is closed then.
    template <class Action>
    void post(Action action) {
        boost::asio::post(context, [self = shared_from_this(), action = std::move(action)] {
            if (!self->closed) {
                action(*self);
            }
        });
    }

    /// Watch the directory if it can be watched, and look what there is.
    void follow() {
        const bool watched = watch();
        list();
        if (closed) {
            return;
        }
        if (watched) {
            awaitMemoryFor([this] { wait(); });
            checkDirectoryAfter(incomplete ? withoutWatch : directoryCheck);
        } else {
            followAfter(withoutWatch);
        }
    }

    void check(const std::string& name) {
        try {
            try {
                examine(directory.open().get(), name);
            } catch (const std::system_error& error) {
                if (meansNothing(error)) {
                    forget(name);
                } else {
                    lookAgain();
                }
            }
        } catch (const std::bad_alloc&) {
            lookAgain();
        }
    }

    void close() noexcept {
        closed = true;
        timer.cancel();
        unwatch();
    }

private:
    bool watch() {
        try {
            identity = identityOf(directory.make());
            Descriptor watching(
                checked(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC), [] { return "inotify"; }));
            checked(::inotify_add_watch(watching.get(), directory.path().c_str(), interest), [] {
                return "inotify";
            });
            boost::system::error_code error;
            inotify.assign(watching.get(), error);
            details::check(error, "inotify");
            watching.release();
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    void unwatch() noexcept {
        boost::system::error_code ignored;
        inotify.close(ignored);
    }

    void wait() {
        inotify.async_wait(
            boost::asio::posix::stream_descriptor::wait_read,
            [self = shared_from_this()](const boost::system::error_code& error) {
                if (!error && !self->closed) {
                    self->takeChanges();
                }
            });
    }

    void followAfter(std::chrono::milliseconds time) {
        doAfter(time, [](State& self) { self.follow(); });
    }

    void checkDirectoryAfter(std::chrono::milliseconds time) {
        doAfter(time, [](State& self) { self.checkDirectory(); });
    }

    /// Do this after a while, and nothing else that was to be done.
    template <class Action>
    void doAfter(std::chrono::milliseconds time, Action action) {
        awaitMemoryFor([&] {
            timer.expires_after(time);
            timer.async_wait(
                [self = shared_from_this(), action](const boost::system::error_code& error) {
                    if (!error && !self->closed) {
                        action(*self);
                    }
                });
        });
    }

    void checkDirectory() {
        if (!isSameDirectory()) {
            followAnew();
            return;
        }
        if (incomplete) {
            list();
        }
        if (!closed) {
            checkDirectoryAfter(incomplete ? withoutWatch : directoryCheck);
        }
    }

    /// Nobody could tell what there is: list everything a little later.
    void lookAgain() {
        incomplete = true;
        if (timer.expiry() > std::chrono::steady_clock::now() + withoutWatch) {
            checkDirectoryAfter(withoutWatch);
        }
    }

    bool isSameDirectory() const {
        try {
            return identityOf(directory.open()) == identity;
        } catch (const std::exception&) {
            return false;
        }
    }

    void followAnew() {
        unwatch();
        list();
        if (!closed) {
            followAfter(untilMadeAgain);
        }
    }

    void takeChanges() {
        const Changes changes = readChanges(inotify.native_handle());
        if (changes.lost) {
            followAnew();
            return;
        }
        if (changes.overflow) {
            list();
        } else {
            for (const std::string& name : changes.names) {
                check(name);
            }
        }
        if (closed) {
            return;
        }
        awaitMemoryFor([this] { wait(); });
        const auto soon = std::chrono::steady_clock::now() + directoryCheckAfterRemoval;
        if (changes.removal && timer.expiry() > soon) {
            checkDirectoryAfter(directoryCheckAfterRemoval);
        }
    }

    void list() {
        incomplete = false;
        std::set<std::string> names;
        try {
            names = known;
            names.merge(namesIn(directory.open()));
        } catch (const std::system_error& error) {
            // Where the directory cannot be used, those that are known have gone.
            if (!meansNothing(error)) {
                lookAgain();
                return;
            }
        } catch (const std::bad_alloc&) {
            lookAgain();
            return;
        }
        for (const std::string& name : names) {
            check(name);
        }
    }

    void examine(int opened, const std::string& name) {
        const bool leftOut = ownEndpoints == OwnEndpoints::leaveOut && isOwn(name);
        const Owner owner = ownerOf(opened, name);
        if (owner == Owner::dead) {
            removeIfDead(opened, name);
        }
        if (owner == Owner::alive && !leftOut && hasSocket(opened, name)) {
            remember(name);
        } else {
            forget(name);
        }
    }

    void remember(const std::string& name) {
        const std::filesystem::path path = pathOf(name);
        if (!closed && known.insert(name).second) {
            callBack(found, path);
        }
    }

    void forget(const std::string& name) {
        const std::filesystem::path path = pathOf(name);
        if (!closed && known.erase(name) != 0) {
            callBack(gone, path);
        }
    }

    std::filesystem::path pathOf(const std::string& name) const {
        return directory.path() / (name + std::string(socketSuffix));
    }

    boost::asio::io_context& context;
    const RuntimeDirectory directory;
    const Report found;
    const Report gone;
    const OwnEndpoints ownEndpoints;
    boost::asio::posix::stream_descriptor inotify;
    boost::asio::steady_timer timer;
    Identity identity; // of the directory that is watched
    std::set<std::string> known;
    bool incomplete = false; // the last look at the directory, or at something in it, has failed
    bool closed = false;
};

LocalPeers::LocalPeers(
    Housekeeper& housekeeper, const RuntimeDirectory& directory, Report found, Report gone,
    OwnEndpoints ownEndpoints)
    : state(
          housekeeper,
          std::make_shared<State>(
              housekeeper.context(), directory, std::move(found), std::move(gone), ownEndpoints)) {
    directory.make();
    state->post([](State& self) { self.follow(); });
}

LocalPeers::~LocalPeers() = default;

void LocalPeers::check(const std::filesystem::path& socket) {
    if (auto name = nameOf(socket.filename().string())) {
        state->post([name = std::move(*name)](State& self) { self.check(name); });
    }
}

} // namespace agent::orvi::remoting::details
