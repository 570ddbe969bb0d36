#include "soak/Publisher.hpp"

#include <csignal>
#include <utility>

namespace agent::orvi::remoting::test {

Publisher::Publisher(std::string endpoint)
    : endpoint(std::move(endpoint)) {
    replace();
}

std::string Publisher::ask(std::uint64_t generation, const std::string& command) {
    const std::lock_guard lock(mutex);
    try {
        if (generation == processes) {
            return component->ask(command);
        }
    } catch (const ComponentError&) {
        throw; // it lives
    } catch (const std::runtime_error&) {
        if (!wasKilled(generation)) {
            throw;
        }
    }
    throw PublisherKilled("The publisher has been killed.");
}

void Publisher::kill(bool spareConnecting) {
    std::unique_lock lock(connections, std::defer_lock);
    if (spareConnecting) {
        lock.lock();
    }
    killed = processes.load(); // before anybody can notice
    signal(SIGKILL);
}

void Publisher::replace() {
    const std::lock_guard lock(mutex);
    component.reset();
    component = std::make_unique<RemoteComponent>();
    component->ask(endpoint);
    ++processes;
}

} // namespace agent::orvi::remoting::test
