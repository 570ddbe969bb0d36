#include "remoting/network/TwoHosts.hpp"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <sched.h>
#include <sys/mount.h>

namespace agent::orvi::remoting::test {
namespace {

void check(int result, const char* what) {
    if (result != 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void run(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& word : command) {
        line += word + ' ';
    }
    if (std::system(line.c_str()) != 0) {
        throw std::runtime_error("This does not work: " + line);
    }
}

} // namespace

TwoHosts::TwoHosts() {
    check(::unshare(CLONE_NEWNET | CLONE_NEWNS), "Network namespaces cannot be made");
    other = std::make_unique<Program>(std::vector<std::string>{"unshare", "--net", "cat"});
    other->write("It is there.\n");
    if (other->readLine() != "It is there.") {
        throw std::runtime_error("Network namespaces cannot be made with unshare.");
    }
    configure();
}

std::vector<std::string> TwoHosts::there(const std::vector<std::string>& command) const {
    std::vector<std::string> result{
        "nsenter", "--net=/proc/" + std::to_string(other->id()) + "/ns/net"};
    result.insert(result.end(), command.begin(), command.end());
    return result;
}

void TwoHosts::setLink(bool up) const {
    run(there({"ip", "link", "set", "cable", up ? "up" : "down"}));
}

void TwoHosts::configure() const {
    run(
        {"ip", "link", "add", "cable", "type", "veth", "peer", "name", "cable", "netns",
         std::to_string(other->id())});
    run({"ip", "addr", "add", "10.99.0.2/24", "dev", "cable"});
    run({"ip", "link", "set", "lo", "up"});
    run({"ip", "link", "set", "cable", "up"});
    run(there({"ip", "addr", "add", std::string(otherAddress) + "/24", "dev", "cable"}));
    run(there({"ip", "link", "set", "lo", "up"}));
    setLink(true);
    const std::string hosts = directory.path / "hosts";
    std::ofstream(hosts) << "127.0.0.1 localhost\n"
                         << deadAddress << ' ' << otherName << '\n'
                         << otherAddress << ' ' << otherName << '\n';
    check(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
    check(::mount(hosts.c_str(), "/etc/hosts", nullptr, MS_BIND, nullptr), "mount /etc/hosts");
}

} // namespace agent::orvi::remoting::test
