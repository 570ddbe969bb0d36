#pragma once

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceListenerHook.h>

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <vector>

namespace agent::orvi::remoting::details {

/// The listeners and trackers of a framework, for those who want to hear of all of them.
///
/// A framework has one, which it keeps until it stops. Importers come and go; a hook of theirs must
/// not, because an installed CppMicroServices 3.8 calls a null pointer when a hook is unregistered
/// while another thread adds or removes a listener.
///
/// Thread safety: thread-safe.
class RegistryListeners final : public cppmicroservices::ServiceListenerHook {
public:
    /// Return those of a framework.
    static std::shared_ptr<RegistryListeners> of(cppmicroservices::BundleContext context);

    /// Make them those of a framework that has none. What comes or goes meanwhile may be missed
    /// until `of` is called.
    static void begin(
        cppmicroservices::BundleContext context,
        const std::shared_ptr<RegistryListeners>& listeners);

    /// Tell a follower of all listeners there are and, as long as it exists, of those that come and
    /// go. One may be named twice, and one may be said to go that never came.
    void tell(const std::shared_ptr<ServiceListenerHook>& follower);

    /// Tell a follower no more. It is not being told of anything when this returns.
    void tellNoMore(const std::shared_ptr<ServiceListenerHook>& follower) noexcept;

    void Added(const std::vector<ListenerInfo>& listeners) override;
    void Removed(const std::vector<ListenerInfo>& listeners) override;

private:
    static std::shared_ptr<RegistryListeners> find(cppmicroservices::BundleContext context);

    void complete(
        cppmicroservices::BundleContext context, const std::shared_ptr<RegistryListeners>& self);
    std::exception_ptr tellAll(
        void (ServiceListenerHook::*event)(const std::vector<ListenerInfo>&),
        const std::vector<ListenerInfo>& listeners) noexcept;

    std::atomic<bool> isComplete = false;
    std::mutex mutex;
    std::unordered_set<ListenerInfo> known;
    std::vector<std::weak_ptr<ServiceListenerHook>> followers;
};

} // namespace agent::orvi::remoting::details
