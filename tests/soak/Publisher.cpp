#include "soak/Publisher.hpp"

#include <csignal>
#include <utility>

namespace agent::orvi::remoting::test {

Publisher::Publisher(std::string endpoint)
    : endpoint(std::move(endpoint)) {
    replace();
}

std::string Publisher::ask(const std::string& command) {
    const std::lock_guard lock(mutex);
    return component->ask(command);
}

void Publisher::kill() {
    signal(SIGKILL);
}

void Publisher::replace() {
    const std::lock_guard lock(mutex);
    ++processes;
    component.reset();
    component = std::make_unique<RemoteComponent>();
    component->ask(endpoint);
}

} // namespace agent::orvi::remoting::test
