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
    /// One filter that endpoints are asked with. A value.
    struct Want {
        std::uint64_t number;
        std::string filter;
    };

    /// Told of every filter that endpoints are asked with from now on, or no more, one at a time
    /// and in order. It must not wait.
    using Changed = std::function<void(const Want& want, bool wanted)>;

    explicit Wants(Changed changed)
        : changed(std::move(changed)) {}

    void Added(const std::vector<ListenerInfo>& listeners) override;
    void Removed(const std::vector<ListenerInfo>& listeners) override;

    /// Say whether somebody looks for a service with these properties.
    bool match(const cppmicroservices::AnyMap& properties) const;

    /// Call `visit` with every filter that endpoints are asked with and then `done`, while none
    /// comes or goes.
    void forEach(
        const std::function<void(const Want& want)>& visit,
        const std::function<void()>& done) const;

private:
    struct Wanted {
        std::size_t listeners;
        cppmicroservices::LDAPFilter filter;
        std::vector<std::string> asked;
    };

    struct Asked {
        std::uint64_t number;
        std::size_t users; // among those that are wanted
    };

    void add(const std::string& filter);
    void ask(const std::string& filter);
    void askNoMore(const std::string& filter);

    const Changed changed;

    mutable std::mutex mutex;
    std::uint64_t lastNumber = 0;
    std::unordered_map<ListenerInfo, std::string> filters;
    std::map<std::string, Wanted> wanted; // by the filter that somebody looks with
    std::map<std::string, Asked> asked;   // by the filter that endpoints are asked with
};

} // namespace agent::orvi::remoting::details
