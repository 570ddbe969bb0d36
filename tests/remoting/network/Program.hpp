#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// A program that runs beside the test, and does not outlive it.
class Program {
public:
    /// Start it, found along the search path.
    ///
    /// @throws std::system_error when that is not possible.
    explicit Program(std::vector<std::string> command);

    /// Kill it if it still runs.
    ~Program();

    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// Write to its standard input, which stays open.
    void write(const std::string& text) const;

    /// Read a line of its standard output, or as much as there is before the end.
    std::string readLine() const;

    /// Read the rest of its standard output.
    std::string readAll() const;

    /// Wait for its end.
    ///
    /// @return its exit code, or the negative number of the signal that has killed it.
    int wait();

    pid_t id() const noexcept { return process; }

private:
    pid_t process = -1;
    int input = -1;
    int output = -1;
};

} // namespace agent::orvi::remoting::test
