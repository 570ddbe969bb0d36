#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include <sys/types.h>

namespace agent::orvi::remoting::test {

/// What a component has answered instead of doing what it was told.
class ComponentError : public std::runtime_error {
public:
    ComponentError(std::string type, const std::string& text)
        : std::runtime_error(text)
        , exceptionType(std::move(type)) {}

    /// Return the type of the exception that was thrown there.
    const std::string& type() const noexcept { return exceptionType; }

private:
    std::string exceptionType;
};

/// Another process that publishes and uses streams as it is told (component/main.cpp), killed at
/// the end if it still runs.
///
/// Thread safety: single-thread. Make it on the main thread: it ends with the thread that made it.
class RemoteComponent {
public:
    RemoteComponent();
    ~RemoteComponent();

    RemoteComponent(const RemoteComponent&) = delete;
    RemoteComponent& operator=(const RemoteComponent&) = delete;

    pid_t id() const noexcept { return process; }

    /// Tell it to do something, and wait until it has.
    ///
    /// @return what it answers.
    /// @throws ComponentError with what was thrown there.
    /// @throws std::runtime_error when it has ended, or does not answer within a minute.
    std::string ask(const std::string& command);

    /// Tell it to do something; `reply` waits for that.
    void tell(const std::string& command);
    std::string reply();

    /// Say whether `reply` would not wait.
    bool hasAnswered() const;

    void signal(int number) const;

    /// Stop it by SIGSTOP. When this returns all of its threads stand still, until it gets SIGCONT.
    void stop() const;

    /// End it by SIGKILL. When this returns it is gone.
    void kill();

    /// Wait for its end.
    ///
    /// @return its exit code, or the negative number of the signal that ended it.
    /// @throws std::runtime_error when it has not ended within a minute.
    int wait();

private:
    std::string readLine();

    pid_t process = -1;
    int input = -1;
    int output = -1;
    std::string pending;
};

} // namespace agent::orvi::remoting::test
