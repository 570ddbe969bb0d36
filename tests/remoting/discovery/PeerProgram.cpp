// What the tests need other processes for. Prints what it has to say, one line each, and works
// until its input ends.

#include "discovery/EndpointFiles.hpp"
#include "discovery/Housekeeper.hpp"
#include "discovery/LocalAddress.hpp"
#include "discovery/LocalPeers.hpp"
#include "discovery/RuntimeDirectory.hpp"
#include "remoting/discovery/Sockets.hpp"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// LeakSanitizer would wait there for locks that threads of the parent may have had.
bool isForkedChild = false;

} // namespace

extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
    return isForkedChild ? 1 : 0;
}

namespace {

using namespace agent::orvi::remoting::details;
namespace test = agent::orvi::remoting::test;

using Arguments = std::vector<std::string>;

bool inputHasEnded(int milliseconds) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return ::poll(&input, 1, milliseconds) != 0;
}

void waitForEndOfInput() {
    while (!inputHasEnded(-1)) {
    }
}

void closeConnection(int descriptor) {
    ::close(descriptor);
}

/// An endpoint that lives until the process's end.
struct Endpoint {
    explicit Endpoint(const Arguments& arguments)
        : directory(arguments.at(0))
        , listener(housekeeper, directory, arguments.at(1), closeConnection) {
        std::cout << listener.path().string() << std::endl;
    }

    RuntimeDirectory directory;
    Housekeeper housekeeper;
    LocalListener listener;
};

/// DIRECTORY ID: print the path of a socket.
int listen(const Arguments& arguments) {
    const Endpoint endpoint(arguments);
    waitForEndOfInput();
    return 0;
}

/// The same, but with a child that inherits everything and outlives it; print its number.
int listenAndFork(const Arguments& arguments) {
    const Endpoint endpoint(arguments);
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
    }
    std::cout << child << std::endl;
    waitForEndOfInput();
    return 0;
}

/// The same, but with a child that ends at once, with all destructors; print its exit code.
int listenAndExitInChild(const Arguments& arguments) {
    static std::optional<Endpoint> endpoint;
    endpoint.emplace(arguments);
    const pid_t child = ::fork();
    if (child == 0) {
        isForkedChild = true;
        std::exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    std::cout << (WIFEXITED(status) ? WEXITSTATUS(status) : -1) << std::endl;
    waitForEndOfInput();
    endpoint.reset();
    return 0;
}

/// The same, but execute a program that prints how many descriptors it has inherited.
int listenAndExecute(const Arguments& arguments) {
    Endpoint endpoint(arguments);
    const LocalPeers peers(
        endpoint.housekeeper, endpoint.directory, [](const auto&) {}, [](const auto&) {});
    const LocalPeer peer = connectLocal(endpoint.listener.path());
    const pid_t child = ::fork();
    if (child == 0) {
        ::execl("/proc/self/exe", "peer", "descriptors", nullptr);
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(peer.descriptor);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

int countDescriptors(const Arguments&) {
    int count = 0;
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        count += ::fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
    }
    std::cout << count << std::endl;
    return 0;
}

/// DIRECTORY NAME: print who stands behind a name.
int askForOwner(const Arguments& arguments) {
    const Descriptor directory = RuntimeDirectory(arguments.at(0)).open();
    switch (endpointFiles::ownerOf(directory.get(), arguments.at(1))) {
    case endpointFiles::Owner::alive:
        std::cout << "alive" << std::endl;
        return 0;
    case endpointFiles::Owner::dead:
        std::cout << "dead" << std::endl;
        return 0;
    case endpointFiles::Owner::none:
        std::cout << "none" << std::endl;
        return 0;
    }
    return 1;
}

/// DIRECTORY ID: start endpoints, one after another, and see that nobody touches them.
int startAgainAndAgain(const Arguments& arguments) {
    const RuntimeDirectory directory(arguments.at(0));
    Housekeeper housekeeper;
    int count = 0;
    for (; !inputHasEnded(0); ++count) {
        const LocalListener listener(housekeeper, directory, arguments.at(1), closeConnection);
        const auto lock = directory.path() / (listener.name() + ".lock");
        for (int look = 0; look < 20; ++look) {
            if (!std::filesystem::exists(lock)) {
                std::cout << "lost " << lock.string() << std::endl;
                return 1;
            }
            ::close(connectLocal(listener.path()).descriptor);
        }
    }
    std::cout << count << std::endl;
    return 0;
}

/// DIRECTORY: look for dead endpoints and remove them, again and again.
int clearAgainAndAgain(const Arguments& arguments) {
    const RuntimeDirectory directory(arguments.at(0));
    int count = 0;
    while (!inputHasEnded(0)) {
        const Descriptor opened = directory.open();
        for (const std::string& name : endpointFiles::namesIn(opened)) {
            count += endpointFiles::removeIfDead(opened.get(), name) ? 1 : 0;
        }
    }
    std::cout << count << std::endl;
    return 0;
}

/// PATH USER: connect as another user, and print what is read.
int connectAs(const Arguments& arguments) {
    if (::setuid(static_cast<uid_t>(std::stoul(arguments.at(1)))) != 0) {
        return 1;
    }
    // connectLocal would refuse this by itself.
    const Descriptor socket = test::newLocalSocket();
    if (test::withPath(::connect, socket.get(), arguments.at(0)) != 0) {
        return 2;
    }
    std::cout << test::readFrom(socket.get()) << std::endl;
    return 0;
}

/// PATH USER: connect with another user's rights, though started by this one, and print what is
/// read, or why not.
int connectWithRightsOf(const Arguments& arguments) {
    if (::seteuid(static_cast<uid_t>(std::stoul(arguments.at(1)))) != 0) {
        return 1;
    }
    try {
        const Descriptor socket(connectLocal(arguments.at(0)).descriptor);
        std::cout << test::readFrom(socket.get()) << std::endl;
    } catch (const std::system_error& error) {
        std::cout << error.code().message() << std::endl;
    }
    return 0;
}

/// DIRECTORY ID USER: listen with another user's rights, though started by this one; print the path
/// of the socket and at the end how many connections there were.
int listenWithRightsOf(const Arguments& arguments) {
    if (::seteuid(static_cast<uid_t>(std::stoul(arguments.at(2)))) != 0) {
        return 1;
    }
    int count = 0;
    {
        Housekeeper housekeeper;
        const LocalListener listener(
            housekeeper, RuntimeDirectory(arguments.at(0)), arguments.at(1), [&](int descriptor) {
                ++count;
                closeConnection(descriptor);
            });
        std::cout << listener.path().string() << std::endl;
        waitForEndOfInput();
    }
    std::cout << count << std::endl;
    return 0;
}

/// DIRECTORY ID USER: listen as another user.
int listenAs(const Arguments& arguments) {
    if (::setuid(static_cast<uid_t>(std::stoul(arguments.at(2)))) != 0) {
        return 1;
    }
    return listen(arguments);
}

} // namespace

int main(int count, char** values) {
    const std::map<std::string, int (*)(const Arguments&)> actions{
        {"listen", listen},
        {"listen-as", listenAs},
        {"listen-and-fork", listenAndFork},
        {"listen-and-exit-in-child", listenAndExitInChild},
        {"listen-and-execute", listenAndExecute},
        {"descriptors", countDescriptors},
        {"owner", askForOwner},
        {"start-again-and-again", startAgainAndAgain},
        {"clear-again-and-again", clearAgainAndAgain},
        {"connect-as", connectAs},
        {"connect-with-rights-of", connectWithRightsOf},
        {"listen-with-rights-of", listenWithRightsOf}};
    const Arguments arguments(values + 1, values + count);
    return actions.at(arguments.at(0))({arguments.begin() + 1, arguments.end()});
}
