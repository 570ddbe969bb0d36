#pragma once

#include "bridge/Bridge.hpp"

#include <cppmicroservices/Framework.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace agent::orvi::core::detail {

/// The framework that a process shares, with the bridge on it: a host's own or one made on first
/// use. See getFramework and setFramework.
///
/// Thread safety: thread-safe. No lock is held while a framework starts, since its bundles may ask
/// for it: they get it then; other threads wait until it has started.
class ProcessFramework {
public:
    using Factory = std::function<cppmicroservices::Framework()>;

    /// The one of this process. It is never destroyed: objects of static lifetime may outlive
    /// everything else.
    static ProcessFramework& ofProcess();

    /// @param factory makes the framework when no host gave one.
    ProcessFramework(Factory factory, InterfaceDirectory& directory);

    std::shared_ptr<cppmicroservices::Framework> get();
    void set(std::shared_ptr<cppmicroservices::Framework> candidate);

    /// See Bridge::seeMissed; does nothing while there is no framework.
    void seeMissedProviders();

private:
    void awaitStart(std::unique_lock<std::mutex>& lock);
    void start(
        std::unique_lock<std::mutex>& lock, std::shared_ptr<cppmicroservices::Framework> candidate);

    const Factory factory;
    InterfaceDirectory& directory;

    std::mutex mutex;
    std::condition_variable started;
    std::optional<std::thread::id> starter;
    std::shared_ptr<cppmicroservices::Framework> framework;
    std::shared_ptr<Bridge> bridge;
};

} // namespace agent::orvi::core::detail
