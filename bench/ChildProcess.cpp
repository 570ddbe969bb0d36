#include "ChildProcess.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace agent::orvi::bench {
namespace {

std::string nameOfProgram() {
    std::array<char, 4096> name{};
    const ssize_t size = readlink("/proc/self/exe", name.data(), name.size());
    if (size < 0) {
        throw std::system_error(errno, std::generic_category(), "/proc/self/exe");
    }
    return {name.data(), static_cast<std::size_t>(size)};
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    std::string program = nameOfProgram();
    std::vector<std::string> texts = arguments;
    std::vector<char*> pointers{program.data()};
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);

    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "Cannot make a pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    const int error =
        posix_spawn(&process, program.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    output = ends[0];
    if (error != 0) {
        close(output);
        throw std::system_error(error, std::generic_category(), "Cannot start " + program);
    }
}

ChildProcess::~ChildProcess() {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    close(output);
}

std::string ChildProcess::readLine() {
    std::string line;
    char next = 0;
    while (read(output, &next, 1) == 1) {
        if (next == '\n') {
            return line;
        }
        line.push_back(next);
    }
    throw std::runtime_error("A process of the benchmarks has ended too early.");
}

Figures measuredByChild(const std::vector<std::string>& arguments) {
    ChildProcess child(arguments);
    std::istringstream line(child.readLine());
    Figures figures;
    std::string name;
    while (line >> name) {
        line >> figures[name];
    }
    return figures;
}

void announce(const Figures& figures) {
    std::ostringstream line;
    line.precision(17);
    for (const auto& [name, value] : figures) {
        line << name << ' ' << value << ' ';
    }
    announce(line.str());
}

void announce(const std::string& line) {
    std::cout << line << std::endl;
}

void endWithParent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

double residentBytes(pid_t process) {
    // What statm says is some hundred KiB off, since processors count pages for themselves first.
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    std::string word;
    while (file >> word) {
        double kibibytes = 0;
        if (word == "Rss:" && file >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    throw std::runtime_error("The system does not say how much memory a process has.");
}

} // namespace agent::orvi::bench
