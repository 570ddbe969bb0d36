#include "remoting/processes/RemoteComponent.hpp"

#include "remoting/discovery/Waiting.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    return ends;
}

int toExitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace

RemoteComponent::RemoteComponent() {
    const auto toComponent = makePipe();
    const auto fromComponent = makePipe();
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, toComponent[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, fromComponent[1], STDOUT_FILENO);
    // Nothing that whoever runs the tests has left open.
    ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    std::string program = ORVI_COMPONENT_PROGRAM;
    std::array<char*, 2> arguments{program.data(), nullptr};
    const int error =
        ::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(toComponent[0]);
    ::close(fromComponent[1]);
    input = toComponent[1];
    output = fromComponent[0];
    if (error != 0) {
        process = -1;
        throw std::system_error(error, std::generic_category(), program);
    }
}

RemoteComponent::~RemoteComponent() {
    kill();
    ::close(input);
    ::close(output);
}

std::string RemoteComponent::ask(const std::string& command) {
    tell(command);
    return reply();
}

void RemoteComponent::tell(const std::string& command) {
    const std::string line = command + "\n";
    if (::write(input, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        throw std::system_error(errno, std::generic_category(), command);
    }
}

std::string RemoteComponent::reply() {
    const std::string line = readLine();
    const std::size_t afterWord = std::min(line.find(' '), line.size());
    const std::string rest = line.substr(std::min(afterWord + 1, line.size()));
    if (line.substr(0, afterWord) == "ok") {
        return rest;
    }
    const std::size_t afterType = std::min(rest.find(' '), rest.size());
    throw ComponentError(
        rest.substr(0, afterType), rest.substr(std::min(afterType + 1, rest.size())));
}

bool RemoteComponent::hasAnswered() const {
    pollfd answer{output, POLLIN, 0};
    return !pending.empty() || ::poll(&answer, 1, 0) > 0;
}

std::string RemoteComponent::readLine() {
    for (;;) {
        const std::size_t end = pending.find('\n');
        if (end != std::string::npos) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            return line;
        }
        pollfd answer{output, POLLIN, 0};
        const auto limit = std::chrono::milliseconds(longTime).count();
        if (::poll(&answer, 1, static_cast<int>(limit)) == 0) {
            throw std::runtime_error("The component does not answer.");
        }
        std::array<char, 4096> bytes{};
        const ssize_t size = ::read(output, bytes.data(), bytes.size());
        if (size <= 0) {
            throw std::runtime_error("The component has ended.");
        }
        pending.append(bytes.data(), static_cast<std::size_t>(size));
    }
}

void RemoteComponent::signal(int number) const {
    if (process > 0) {
        ::kill(process, number);
    }
}

void RemoteComponent::stop() const {
    signal(SIGSTOP);
    int status = 0;
    ::waitpid(process, &status, WUNTRACED);
}

void RemoteComponent::kill() {
    if (process > 0) {
        signal(SIGKILL);
        wait();
    }
}

int RemoteComponent::wait() {
    int status = 0;
    const bool ended = eventually([&] { return ::waitpid(process, &status, WNOHANG) == process; });
    if (!ended) {
        throw std::runtime_error("The component does not end.");
    }
    process = -1;
    return toExitCode(status);
}

} // namespace agent::orvi::remoting::test
