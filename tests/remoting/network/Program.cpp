#include "remoting/network/Program.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {

Program::Program(std::vector<std::string> command) {
    const std::vector<std::string> dyingWithTheTest{"setpriv", "--pdeathsig", "KILL"};
    command.insert(command.begin(), dyingWithTheTest.begin(), dyingWithTheTest.end());
    std::vector<char*> arguments;
    std::transform(
        command.begin(), command.end(), std::back_inserter(arguments),
        [](std::string& argument) { return argument.data(); });
    arguments.push_back(nullptr);
    std::array<int, 2> to{};
    std::array<int, 2> from{};
    if (::pipe2(to.data(), O_CLOEXEC) != 0 || ::pipe2(from.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, to[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, from[1], STDOUT_FILENO);
    const int error =
        ::posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(to[0]);
    ::close(from[1]);
    input = to[1];
    output = from[0];
    if (error != 0) {
        process = -1;
        throw std::system_error(error, std::generic_category(), command[0]);
    }
}

Program::~Program() {
    if (process > 0) {
        ::kill(process, SIGKILL);
        wait();
    }
    ::close(input);
    ::close(output);
}

void Program::write(const std::string& text) const {
    if (::write(input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::system_error(errno, std::generic_category(), "write");
    }
}

std::string Program::readLine() const {
    std::string line;
    char character = 0;
    while (::read(output, &character, 1) == 1 && character != '\n') {
        line += character;
    }
    return line;
}

std::string Program::readAll() const {
    std::string all;
    std::array<char, 65536> buffer{};
    for (ssize_t size = 0; (size = ::read(output, buffer.data(), buffer.size())) > 0;) {
        all.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return all;
}

int Program::wait() {
    int status = 0;
    ::waitpid(process, &status, 0);
    process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace agent::orvi::remoting::test
