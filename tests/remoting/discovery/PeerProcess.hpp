#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// A process that runs PeerProgram.cpp, killed at the end if it still runs.
class PeerProcess {
public:
    explicit PeerProcess(std::vector<std::string> arguments);
    ~PeerProcess();

    PeerProcess(const PeerProcess&) = delete;
    PeerProcess& operator=(const PeerProcess&) = delete;

    pid_t id() const noexcept { return process; }

    /// Return the next line that it prints; empty at the end.
    std::string readLine();

    /// Let it go on: its input ends.
    void closeInput();

    /// Wait for its end.
    ///
    /// @return its exit code, or the negative number of the signal that ended it.
    int wait();

    /// End it by SIGKILL.
    void kill();

private:
    pid_t process = -1;
    int input = -1;
    int output = -1;
};

} // namespace agent::orvi::remoting::test
