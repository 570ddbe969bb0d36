#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace agent::orvi::bench {

/// This program, run once more with other arguments. It ends with this object or with the thread
/// that has made it.
class ChildProcess {
public:
    /// @throws std::system_error when it cannot be started.
    explicit ChildProcess(const std::vector<std::string>& arguments);
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Wait for the next line that it prints.
    ///
    /// @throws std::runtime_error when it ends before.
    std::string readLine();

    pid_t id() const noexcept { return process; }

private:
    pid_t process = -1;
    int output = -1;
};

/// What a process has measured, by name.
using Figures = std::map<std::string, double>;

/// Let a new process measure, whose memory nothing else has used.
///
/// @throws std::runtime_error when it does not.
Figures measuredByChild(const std::vector<std::string>& arguments);

/// Say in such a process what was measured.
void announce(const Figures& figures);

/// Say one line in a process that was started for that.
void announce(const std::string& line);

/// Let this process, as a child, end with its parent.
void endWithParent();

/// Return the bytes of memory that a process has in RAM.
///
/// @throws std::runtime_error when that cannot be found out.
double residentBytes(pid_t process);

} // namespace agent::orvi::bench
