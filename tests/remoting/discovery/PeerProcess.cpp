#include "remoting/discovery/PeerProcess.hpp"

#include <algorithm>
#include <array>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {

PeerProcess::PeerProcess(std::vector<std::string> arguments) {
    std::array<int, 2> toPeer{};
    std::array<int, 2> fromPeer{};
    if (::pipe2(toPeer.data(), O_CLOEXEC) != 0 || ::pipe2(fromPeer.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, toPeer[0], STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, fromPeer[1], STDOUT_FILENO);
    arguments.insert(arguments.begin(), ORVI_PEER_PROGRAM);
    std::vector<char*> argumentPointers;
    std::transform(
        arguments.begin(), arguments.end(), std::back_inserter(argumentPointers),
        [](std::string& argument) { return argument.data(); });
    argumentPointers.push_back(nullptr);
    const int error = ::posix_spawn(
        &process, ORVI_PEER_PROGRAM, &actions, nullptr, argumentPointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(toPeer[0]);
    ::close(fromPeer[1]);
    input = toPeer[1];
    output = fromPeer[0];
    if (error != 0) {
        process = -1;
        throw std::system_error(error, std::generic_category(), ORVI_PEER_PROGRAM);
    }
}

PeerProcess::~PeerProcess() {
    if (process > 0) {
        kill();
    }
    closeInput();
    ::close(output);
}

std::string PeerProcess::readLine() {
    std::string line;
    char character = 0;
    while (::read(output, &character, 1) == 1 && character != '\n') {
        line += character;
    }
    return line;
}

void PeerProcess::closeInput() {
    if (input >= 0) {
        ::close(input);
        input = -1;
    }
}

int PeerProcess::wait() {
    int status = 0;
    ::waitpid(process, &status, 0);
    process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void PeerProcess::kill() {
    ::kill(process, SIGKILL);
    wait();
}

} // namespace agent::orvi::remoting::test
