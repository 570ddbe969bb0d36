#pragma once

#include "exports/ExportedService.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ListenerToken.h>
#include <cppmicroservices/ServiceReference.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace cppmicroservices {
class ServiceEvent;
}

namespace agent::orvi::remoting::details {

/// Hears of the services that it looks for. Called under the table's lock: it only takes note.
class Audience {
public:
    virtual void offered(std::uint64_t service) = 0;

    /// @param unwanted the service is still there, but no look-up matches it any more.
    virtual void withdrawn(std::uint64_t service, bool unwanted) = 0;

protected:
    ~Audience() = default;
};

/// The services that an endpoint offers, and who looks for which. Look-ups by a service's name,
/// which are nearly all, cost the same however many services there are.
///
/// Thread safety: thread-safe.
class ExportTable : public std::enable_shared_from_this<ExportTable> {
public:
    /// Follow what the registry holds.
    ///
    /// @param endpointId part of the name that each service gets, unique among all endpoints.
    static std::shared_ptr<ExportTable> open(
        const cppmicroservices::BundleContext& context, const std::string& endpointId,
        std::weak_ptr<Executor> executor);

    /// Use `open`.
    ExportTable(
        cppmicroservices::BundleContext context, std::string endpointId,
        std::weak_ptr<Executor> executor);

    /// Follow no more, withdraw everything from every audience.
    void close() noexcept;

    /// Return the service with that number, null when there is none.
    std::shared_ptr<const ExportedService> find(std::uint64_t number) const;
    std::shared_ptr<ExportedService> find(std::uint64_t number);

    /// From now on the audience hears of services that match. It has heard of those that there are
    /// when this returns.
    ///
    /// @throws std::invalid_argument when the filter is malformed or the number is in use.
    void want(Audience& audience, std::uint64_t number, const std::string& filter);

    /// The audience hears of those services no more, except where another of its filters matches.
    /// It is told that they are withdrawn.
    ///
    /// @return whether the number was in use.
    bool unwant(Audience& audience, std::uint64_t number);

    /// The audience hears nothing any more.
    void leave(Audience& audience) noexcept;

private:
    struct Want {
        Audience* audience;
        cppmicroservices::LDAPFilter filter;
        std::optional<std::string> name; // of the only service that can match
    };

    struct Listener {
        std::map<std::uint64_t, std::shared_ptr<const Want>> wants;
        std::unordered_map<std::uint64_t, std::size_t> offered; // by how many wants
    };

    class Adding;
    using Services = std::unordered_map<std::uint64_t, std::shared_ptr<ExportedService>>;
    using Wants = std::unordered_set<std::shared_ptr<const Want>>;

    void follow();
    void list(bool replace);
    void listMissed();
    void serviceChanged(const cppmicroservices::ServiceEvent& event);
    void
    add(const cppmicroservices::ServiceReferenceBase& reference, bool replace,
        const Adding& looking);
    std::shared_ptr<ExportedService> describe(
        const cppmicroservices::ServiceReferenceBase& reference, std::uint64_t number,
        const std::shared_ptr<core::Invokable>& service) const;
    void remove(const cppmicroservices::ServiceReferenceBase& reference);
    void insert(const std::shared_ptr<ExportedService>& service);
    [[nodiscard]] Services::node_type erase(std::uint64_t number);
    void shareTurns(ExportedService& service);
    Wants wantsFor(const ExportedService& service) const;
    void offer(const Want& want, const ExportedService& service);
    void unoffer(const Want& want, Listener& listener, const ExportedService& service);
    void forget(const std::shared_ptr<const Want>& want);

    cppmicroservices::BundleContext context;
    const std::string endpointId;
    const std::weak_ptr<Executor> executor;
    cppmicroservices::ListenerToken token;

    mutable std::mutex mutex;
    bool closed = false;
    bool missed = false; // a service, for want of memory
    std::size_t adding = 0;
    std::uint64_t removals = 0;                                     // while something is added
    std::unordered_map<std::uint64_t, std::uint64_t> goneMeanwhile; // by which removal
    Services services;
    std::unordered_map<std::uint64_t, std::weak_ptr<ServiceTurns>> turns;
    std::size_t turnsAfterSweep = 0;
    std::unordered_multimap<std::string, std::uint64_t> numbersByName;
    std::map<Audience*, Listener> listeners;
    std::unordered_map<std::string, Wants> wantsByName;
    Wants otherWants;
};

} // namespace agent::orvi::remoting::details
