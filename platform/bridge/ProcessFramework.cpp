#include "bridge/ProcessFramework.hpp"

#include "bridge/ProcessEnd.hpp"

#include <cppmicroservices/FrameworkFactory.h>

#include <foundation/cppmicroservices/getFramework.hpp>

#include <exception>
#include <stdexcept>
#include <utility>

namespace agent::orvi::core::detail {

using cppmicroservices::Framework;

ProcessFramework& ProcessFramework::ofProcess() {
    static ProcessFramework& framework = *new ProcessFramework(
        [] { return cppmicroservices::FrameworkFactory().NewFramework(); },
        InterfaceDirectory::ofProcess());
    return framework;
}

ProcessFramework::ProcessFramework(Factory factory, InterfaceDirectory& directory)
    : factory(std::move(factory))
    , directory(directory) {}

std::shared_ptr<Framework> ProcessFramework::get() {
    std::unique_lock lock(mutex);
    awaitStart(lock);
    if (starter) {
        return framework; // a bundle of the framework asks while this very thread starts it
    }
    if (!framework) {
        start(lock, std::make_shared<Framework>(factory()));
    } else if (
        bridge->hasStopped() && framework->GetState() == cppmicroservices::Bundle::STATE_ACTIVE) {
        start(lock, framework); // the host has stopped it and started it again
    }
    return framework;
}

void ProcessFramework::set(std::shared_ptr<Framework> candidate) {
    if (!candidate || !*candidate) {
        throw std::invalid_argument("The process-wide framework must not be null.");
    }
    std::unique_lock lock(mutex);
    awaitStart(lock);
    if (framework) {
        if (*framework == *candidate) {
            return;
        }
        throw std::logic_error("Another process-wide framework is in use already.");
    }
    start(lock, std::move(candidate));
}

void ProcessFramework::seeMissedProviders() {
    std::shared_ptr<Bridge> present;
    {
        const std::lock_guard lock(mutex);
        present = bridge;
    }
    if (present) {
        present->seeMissed();
    }
}

void ProcessFramework::awaitStart(std::unique_lock<std::mutex>& lock) {
    started.wait(lock, [this] { return !starter || starter == std::this_thread::get_id(); });
}

void ProcessFramework::start(
    std::unique_lock<std::mutex>& lock, std::shared_ptr<Framework> candidate) {
    const std::shared_ptr<Framework> previous = std::exchange(framework, candidate);
    starter = std::this_thread::get_id();
    lock.unlock();
    std::shared_ptr<Bridge> attached;
    std::exception_ptr error;
    try {
        candidate->Init();
        attached = Bridge::attach(*candidate, directory);
        candidate->Start();
    } catch (...) {
        error = std::current_exception();
        if (attached) {
            attached->stop();
        }
    }
    lock.lock();
    starter.reset();
    started.notify_all();
    if (error) {
        framework = previous;
        std::rethrow_exception(error);
    }
    bridge = std::move(attached);
}

} // namespace agent::orvi::core::detail

namespace foundation::cppmicroservices {

using agent::orvi::core::detail::ProcessFramework;

std::shared_ptr<::cppmicroservices::Framework> getFramework() {
    return ProcessFramework::ofProcess().get();
}

void setFramework(std::shared_ptr<::cppmicroservices::Framework> framework) {
    ProcessFramework::ofProcess().set(std::move(framework));
}

bool processIsEnding() noexcept {
    return agent::orvi::core::detail::ProcessEnd::hasBegun();
}

} // namespace foundation::cppmicroservices
