// A process of its own that publishes streams and uses those of others, as it is told line by line
// on its standard input. It answers each line with one that begins with "ok" or "error". SIGTERM
// ends it as a well-behaved host ends.

#include "remoting/processes/component/Connecting.hpp"
#include "remoting/processes/component/Processes.hpp"
#include "remoting/processes/component/Publishing.hpp"

#include <boost/core/demangle.hpp>

#include <array>
#include <csignal>
#include <cstddef>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using namespace agent::orvi::remoting::test;

/// Gives the lines of the standard input until that ends or SIGTERM comes.
class Input {
public:
    Input() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        termination = ::signalfd(-1, &signals, SFD_CLOEXEC);
    }

    ~Input() { ::close(termination); }

    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    bool next(std::string& line) {
        for (;;) {
            const std::size_t end = pending.find('\n');
            if (end != std::string::npos) {
                line = pending.substr(0, end);
                pending.erase(0, end + 1);
                return true;
            }
            if (!readMore()) {
                return false;
            }
        }
    }

private:
    bool readMore() {
        std::array<pollfd, 2> sources{
            pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{termination, POLLIN, 0}};
        ::poll(sources.data(), sources.size(), -1);
        if (sources[1].revents != 0) {
            return false;
        }
        std::array<char, 4096> bytes{};
        const ssize_t size = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (size <= 0) {
            return false;
        }
        pending.append(bytes.data(), static_cast<std::size_t>(size));
        return true;
    }

    int termination = -1;
    std::string pending;
};

std::string answer(const Verbs& verbs, const std::string& line) {
    try {
        const Command command(line);
        const auto verb = verbs.find(command.verb());
        if (verb == verbs.end()) {
            throw std::invalid_argument("there is nothing to do for \"" + line + "\"");
        }
        return "ok " + verb->second(command);
    } catch (const std::exception& error) {
        return "error " + boost::core::demangle(typeid(error).name()) + " " + error.what();
    }
}

} // namespace

int main() {
    // A test that is killed leaves nobody behind.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    Input input;
    // Static, as many a host has them: children that exit destroy them, too.
    static Publishing publishing;
    static Connecting connecting;
    Verbs verbs;
    publishing.addVerbs(verbs);
    connecting.addVerbs(verbs);
    addProcessVerbs(verbs);
    for (std::string line; input.next(line);) {
        std::cout << answer(verbs, line) << std::endl;
    }
    publishing.shutDown();
    connecting.shutDown();
    return 0;
}
