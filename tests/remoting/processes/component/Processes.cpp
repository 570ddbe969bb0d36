#include "remoting/processes/component/Processes.hpp"

#include "remoting/processes/ProcessFigures.hpp"
#include "support/Sanitizers.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

bool isForkedChild = false;

pid_t forkOrThrow() {
    const pid_t child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    isForkedChild = isForkedChild || child == 0;
    return child;
}

std::string forkAndStay(const Command&) {
    const pid_t child = forkOrThrow();
    if (child == 0) {
        for (;;) {
            ::pause();
        }
    }
    return std::to_string(child);
}

std::string forkAndExit(const Command&) {
    const pid_t child = forkOrThrow();
    if (child == 0) {
        std::exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

std::string execute(const Command&) {
    std::array<int, 2> output{};
    if (::pipe2(output.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    const pid_t child = forkOrThrow();
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        // The shell's own descriptor of the directory is not counted: it names those that stay.
        ::execl(
            "/bin/sh", "sh", "-c",
            "n=0; for d in 3 4 5 6 7 8 9 $(seq 10 99); do [ -e /proc/$$/fd/$d ] && n=$((n+1)); "
            "done; echo $n",
            nullptr);
        ::_exit(127);
    }
    ::close(output[1]);
    std::array<char, 16> text{};
    const ssize_t size = ::read(output[0], text.data(), text.size() - 1);
    ::close(output[0]);
    ::waitpid(child, nullptr, 0);
    return {text.data(), size > 0 ? static_cast<std::size_t>(size - 1) : 0};
}

/// Close the connections of local sockets as a faulty endpoint would: without a word.
std::string cutLocalConnections(const Command&) {
    int cut = 0;
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        sockaddr_un own{};
        sockaddr_un peer{};
        socklen_t ownLength = sizeof(own);
        socklen_t peerLength = sizeof(peer);
        if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &ownLength) == 0 &&
            own.sun_family == AF_UNIX && ownLength > sizeof(own.sun_family) &&
            ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0) {
            ::shutdown(descriptor, SHUT_RDWR);
            ++cut;
        }
    }
    return std::to_string(cut);
}

} // namespace

#ifdef ORVI_ADDRESS_SANITIZER
// What only the stacks of the parent's threads refer to looks lost in a child.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
    return isForkedChild ? 1 : 0;
}
#endif

void addProcessVerbs(Verbs& verbs) {
    verbs["fork"] = forkAndStay;
    verbs["fork-and-exit"] = forkAndExit;
    verbs["execute"] = execute;
    verbs["memory"] = [](const Command&) { return std::to_string(memoryInSmallBlocks()); };
    verbs["cut-local-connections"] = cutLocalConnections;
}

} // namespace agent::orvi::remoting::test
