#pragma once

#include <functional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {

/// What the name service of this process says of one name, instead of the system's.
///
/// Link NameService.cpp, which stands before a function of the C library. One for each name.
///
/// Thread safety: thread-safe.
class NameService {
public:
    /// Let a name be unknown.
    explicit NameService(std::string name);

    /// Leave the name to the system again.
    ~NameService();

    NameService(const NameService&) = delete;
    NameService& operator=(const NameService&) = delete;

    /// Let it have these numeric addresses.
    void set(const std::vector<std::string>& addresses);

    /// From now on, do something each time before the name is looked up, on the thread of whoever
    /// looks.
    void callWhenAsked(std::function<void()> callback);

private:
    const std::string name;
};

} // namespace agent::orvi::remoting::test
