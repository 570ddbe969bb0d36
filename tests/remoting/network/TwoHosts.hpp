#pragma once

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/network/Program.hpp"

#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {

/// This process on a host of its own, joined by a cable to another host. Both are network
/// namespaces of this machine, which end with this process.
///
/// For this process there is the other host's name, which has two addresses; nobody has the first.
class TwoHosts {
public:
    static constexpr auto otherName = "publisher.test";
    static constexpr auto deadAddress = "10.99.0.77";
    static constexpr auto otherAddress = "10.99.0.1";

    /// Move this thread, and those that it starts later, to its host.
    ///
    /// @throws std::system_error when namespaces are not allowed here.
    TwoHosts();

    /// Return a command that runs another one on the other host.
    std::vector<std::string> there(const std::vector<std::string>& command) const;

    /// Pull the cable out at the other host, or put it in again.
    void setLink(bool up) const;

private:
    void configure() const;

    TemporaryDirectory directory;
    std::unique_ptr<Program> other; // keeps its namespace
};

} // namespace agent::orvi::remoting::test
