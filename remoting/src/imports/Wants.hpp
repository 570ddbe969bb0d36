#pragma once

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceListenerHook.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace agent::orvi::remoting::details {

/// What the listeners and trackers of this process look for that other processes may have.
///
/// Thread safety: thread-safe.
class Wants final : public cppmicroservices::ServiceListenerHook {
public:
    /// One filter that somebody looks with. A value.
    struct Want {
        std::uint64_t number;
        std::string filter;
    };

    /// Told of every filter that comes or goes, one at a time and in order. It must not wait.
    using Changed = std::function<void(const Want& want, bool wanted)>;

    explicit Wants(Changed changed)
        : changed(std::move(changed)) {}

    void Added(const std::vector<ListenerInfo>& listeners) override;
    void Removed(const std::vector<ListenerInfo>& listeners) override;

    /// Say whether somebody looks for a service with these properties.
    bool match(const cppmicroservices::AnyMap& properties) const;

    /// Call `visit` with every filter and then `done`, while none comes or goes.
    void forEach(
        const std::function<void(const Want& want)>& visit,
        const std::function<void()>& done) const;

private:
    struct Wanted {
        std::uint64_t number;
        std::size_t listeners;
        cppmicroservices::LDAPFilter filter;
    };

    void add(const std::string& filter);

    const Changed changed;

    mutable std::mutex mutex;
    std::uint64_t lastNumber = 0;
    std::unordered_map<ListenerInfo, std::string> filters;
    std::map<std::string, Wanted> wanted; // by filter
};

} // namespace agent::orvi::remoting::details
