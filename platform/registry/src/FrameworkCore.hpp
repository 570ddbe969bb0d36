#pragma once

#include "ListenerIndex.hpp"
#include "ListenerList.hpp"
#include "ServiceIndex.hpp"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "cppmicroservices/ServiceEvent.h"
#include "cppmicroservices/ServiceListenerHook.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace cppmicroservices::detail {

class HookTracker;

/// What the copies of a bundle context share.
struct ContextData {
    explicit ContextData(std::weak_ptr<FrameworkCore> c)
        : core(std::move(c)) {}

    /// @throws IllegalStateException if @p context is null or no longer valid.
    static std::shared_ptr<FrameworkCore> check(std::shared_ptr<ContextData> const& context);

    std::weak_ptr<FrameworkCore> const core;
    std::atomic<bool> valid{true};
};

/// The framework: its state, its services and its listeners. Thread-safe; calls user code without
/// holding a lock.
class FrameworkCore : public std::enable_shared_from_this<FrameworkCore> {
public:
    using Listeners = std::vector<ListenerIndex::Entry>;

    FrameworkCore(FrameworkConfiguration const& configuration, std::ostream* logger);
    FrameworkCore(FrameworkCore const&) = delete;
    FrameworkCore& operator=(FrameworkCore const&) = delete;
    ~FrameworkCore();

    // State
    void setOwner(std::weak_ptr<FrameworkOwner> owner) { owner_ = std::move(owner); }

    std::shared_ptr<FrameworkOwner> owner() const { return owner_.lock(); }

    void init();
    void start();
    void stop();
    FrameworkEvent waitForStop(std::chrono::milliseconds timeout);
    /// Stops a framework whose last owner has gone, and waits for that.
    void stopAbandoned();
    Bundle::State state() const;
    std::chrono::steady_clock::time_point initialised() const;
    Any property(std::string const& key) const;
    AnyMap properties() const;

    AnyMap const& headers() const { return headers_; }

    int number() const { return number_; }

    Bundle bundle() { return Bundle(shared_from_this()); }

    BundleContext context() const;

    static BundleContext wrap(std::shared_ptr<ContextData> context) {
        return BundleContext(std::move(context));
    }

    // Services
    std::shared_ptr<Registration>
    registerService(InterfaceMapConstPtr const& service, ServiceProperties const& properties);
    std::vector<ServiceReferenceU>
    find(BundleContext const& context, std::string const& name, std::string const& filterText);
    ServiceReferenceU findFirst(BundleContext const& context, std::string const& name);

    ServiceIndex& services() { return services_; }

    // Listeners
    ListenerTokenId addServiceListener(
        std::shared_ptr<ContextData> context, ServiceListener listener,
        std::string const& filterText);
    ListenerTokenId addBundleListener(BundleListener listener);
    ListenerTokenId addFrameworkListener(FrameworkListener listener);
    void removeListener(ListenerTokenId id);

    /// The service listeners, to be changed by what tells hooks of it.
    ListenerIndex& serviceListeners() { return serviceListeners_; }

    static std::vector<ServiceListenerHook::ListenerInfo> infos(Listeners const& listeners);

    // Events
    void send(FrameworkEvent const& event);

    /// Sends the event that `make` returns, unless there is no memory to report it with.
    template <class Make>
    void sendIfPossible(Make const& make) noexcept {
        try {
            send(make());
        } catch (...) {
            // What it reports has happened all the same.
        }
    }

    /// Reports the exception that is being handled, with a service's number behind the message.
    void sendWarning(char const* message, long serviceId) noexcept;
    /// Returns the listeners that shall see an event of a service with its present properties.
    Listeners receivers(ServiceEvent const& event, ServiceRecord const& service);
    void deliver(Listeners const& listeners, ServiceEvent const& event);
    /// Delivers an event where there is no memory to choose the receivers with: to every listener
    /// whose filter may match, also if a hook would hide it.
    void deliverToEach(ServiceRecord const& service, ServiceEvent const& event) noexcept;

private:
    std::vector<ServiceIndex::Entry>
    candidates(std::string const& wanted, FilterExpression const* filter);

    void prepare();
    void unprepare();
    std::shared_ptr<HookTracker> hooks() const;
    void openHooks();
    void shutDown();
    void join();
    void runShutdownFunction() const;

    bool isStopped() const {
        return state_ == Bundle::STATE_INSTALLED || state_ == Bundle::STATE_RESOLVED;
    }

    void send(BundleEvent const& event);
    void log(std::string const& line);
    void deliver(ServiceListenerEntry const& entry, ServiceEvent const& event) noexcept;
    template <class Hook, class Call>
    void
    callHooks(std::vector<ServiceIndex::Entry> const& hooks, char const* failure, Call const& call);
    void hideFromReceivers(
        std::vector<ServiceIndex::Entry> const& hooks, ServiceEvent const& event,
        Listeners& listeners);

    int const number_;
    std::ostream* const logger_;
    bool const logs_;
    AnyMap const headers_;
    std::weak_ptr<FrameworkOwner> owner_;

    ServiceIndex services_;
    ListenerIndex serviceListeners_;
    ListenerList<BundleListener> bundleListeners_;
    ListenerList<FrameworkListener> frameworkListeners_;
    std::atomic<ListenerTokenId> lastListenerId_{0};

    std::mutex logMutex_;
    mutable std::mutex mutex_;
    std::condition_variable stopped_;
    Bundle::State state_ = Bundle::STATE_INSTALLED;
    std::uint64_t stops_ = 0;
    FrameworkEvent::Type stopResult_ = FrameworkEvent::FRAMEWORK_ERROR;
    std::thread stopper_;
    AnyMap properties_;
    std::shared_ptr<ContextData> context_;
    std::shared_ptr<HookTracker> hooks_;
    std::chrono::steady_clock::time_point initialised_;
};

/// What the bundles share: stops the framework when the last of them goes.
class FrameworkOwner {
public:
    explicit FrameworkOwner(std::shared_ptr<FrameworkCore> core)
        : core_(std::move(core)) {}

    FrameworkOwner(FrameworkOwner const&) = delete;
    FrameworkOwner& operator=(FrameworkOwner const&) = delete;

    ~FrameworkOwner() { core_->stopAbandoned(); }

private:
    std::shared_ptr<FrameworkCore> const core_;
};

} // namespace cppmicroservices::detail
