#include "remoting/processes/component/Processes.hpp"

#include "support/Sanitizers.hpp"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

#include <fcntl.h>
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
}

} // namespace agent::orvi::remoting::test
