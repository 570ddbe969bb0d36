#include "remoting/ServerProcess.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <stdexcept>
#include <system_error>

namespace agent::orvi::bench {
namespace {

std::system_error lastError(const char* what) {
    return {errno, std::generic_category(), what};
}

[[noreturn]] void runAsServer(const char* kind, const char* folder, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output, STDOUT_FILENO);
    execl("/proc/self/exe", "orvi_remoting_bench", "--serve", kind, folder, nullptr);
    _exit(127);
}

/// Read up to the end of the line, which a server that dies does not reach.
std::string readLine(int input) {
    std::string line;
    char next = 0;
    while (read(input, &next, 1) == 1) {
        if (next == '\n') {
            return line;
        }
        line.push_back(next);
    }
    throw std::runtime_error("A server of the benchmarks has ended before it could be reached.");
}

} // namespace

ServerProcess::ServerProcess(const std::string& kind, const std::filesystem::path& folder) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw lastError("Cannot make a pipe");
    }
    process = fork();
    if (process == 0) {
        runAsServer(kind.c_str(), folder.c_str(), ends[1]);
    }
    close(ends[1]);
    try {
        if (process < 0) {
            throw lastError("Cannot start a server");
        }
        serverAddress = {folder, readLine(ends[0])};
    } catch (...) {
        close(ends[0]);
        throw;
    }
    close(ends[0]);
}

ServerProcess::~ServerProcess() {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

void announce(const std::string& tlsAddress) {
    std::cout << tlsAddress << std::endl;
}

} // namespace agent::orvi::bench
