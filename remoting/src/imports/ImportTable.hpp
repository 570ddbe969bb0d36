#pragma once

#include "imports/PeerLink.hpp"
#include "imports/RegistryListeners.hpp"
#include "imports/Wants.hpp"

#include <orvi/core/Invokable.hpp>
#include <orvi/remoting/Importer.hpp>

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

/// The services of other processes in this process's registry, and the links over which they are
/// heard of.
///
/// Thread safety: thread-safe.
class ImportTable final : public PeerLink::Receiver,
                          public std::enable_shared_from_this<ImportTable> {
public:
    /// Told of a link that has connected, with a null end, or that has ended. It must not wait.
    using LinkChanged = std::function<void(PeerLink& link, const StreamEnd* end)>;

    /// Told when somebody begins to look for something that peers may have. It must neither wait
    /// nor throw.
    using LookUpBegun = std::function<void()>;

    /// Look for what the registry's listeners look for.
    static std::shared_ptr<ImportTable> open(
        const cppmicroservices::BundleContext& context, std::shared_ptr<Executor> executor,
        LinkChanged linkChanged, const ImporterLimits& limits = {}, LookUpBegun lookUpBegun = {});

    /// Use `open`.
    ImportTable(
        cppmicroservices::BundleContext context, std::shared_ptr<Executor> executor,
        LinkChanged linkChanged, const ImporterLimits& limits);

    /// Import what a peer offers. Of several links to one endpoint, the first to connect is asked,
    /// and another one when that is lost.
    void connect(std::shared_ptr<Connection> connection, const std::string& address);

    /// Unregister everything, and end the connections with this end. Does not wait for that.
    void close(const StreamEnd& end) noexcept;

    /// Wait until there is nothing to be done for any peer.
    ///
    /// @return whether that was before the time limit.
    bool awaitIdle(Executor::SteadyTime timeLimit);

    /// Wait until what the peers offer is registered, where it is known what they offer.
    ///
    /// @param settled says whether it is; asked whenever changes have been made.
    /// @return whether that was before the time limit.
    bool awaitSettled(Executor::TimePoint timeLimit, const std::function<bool()>& settled);

    /// Have those who wait look again, because of something that this does not know.
    void lookAgain();

    /// Say whether every connected peer has offered what is looked for.
    bool isSettled();

    void greeted(PeerLink& link) override;
    void connected(PeerLink& link) override;
    void offered(PeerLink& link, std::shared_ptr<const v1::Offer> offer) override;
    void withdrawn(PeerLink& link, const v1::Withdrawal& withdrawal) override;
    void settled(PeerLink& link) override;
    void lost(PeerLink& link) noexcept override;

private:
    using Registration = cppmicroservices::ServiceRegistration<core::Invokable>;

    struct Import {
        std::string offer; // as it came
        cppmicroservices::AnyMap properties;
        Registration registration;
    };

    using Imports = std::map<std::uint64_t, Import>; // by the exporter's number

    struct Imported {
        Imports services;
        std::uint64_t bytes = 0; // of their offers
    };

    using Links = std::vector<std::shared_ptr<PeerLink>>;

    /// A change of the registry, and what runs it. Made beforehand, it needs no memory any more.
    struct Change {
        std::list<std::function<void()>> action;
        std::list<Executor::Task> runner;
    };

    void wantChanged(const Wants::Want& want, bool wanted) noexcept;
    void enqueueNews(PeerLink& link, std::function<void()> action);
    Change prepared(std::function<void()> action);
    void enqueue(Change change) noexcept;
    void runChanges();
    void forget(const std::shared_ptr<PeerLink>& link) noexcept;
    std::shared_ptr<PeerLink> nextLink(const std::shared_ptr<PeerLink>& last) noexcept;
    std::shared_ptr<PeerLink> nextAsked(const std::shared_ptr<PeerLink>& last) noexcept;
    void ask(const std::shared_ptr<PeerLink>& link);
    bool isAsked(const std::shared_ptr<PeerLink>& link);
    std::shared_ptr<PeerLink> remove(const std::shared_ptr<PeerLink>& link);
    void import(const std::shared_ptr<PeerLink>& link, const v1::Offer& offer);
    void checkRoom(const Imported& peer, const Import* replaced, const Import& import) const;
    Imports take(Imported& peer, Imports::iterator service);
    void drop(Imports services) noexcept;

    cppmicroservices::BundleContext context;
    const std::shared_ptr<Executor> executor;
    const LinkChanged linkChanged;
    const ImporterLimits limits;
    const std::string framework;
    std::shared_ptr<Wants> wants;
    std::shared_ptr<RegistryListeners> listeners;

    std::mutex mutex;
    std::condition_variable changed;
    bool closed = false;
    std::map<std::shared_ptr<PeerLink>, Change> links; // and what is to be done when they are lost
    std::map<std::string, Links>
        linksTo; // by endpoint, those that have greeted; the first is asked
    std::set<std::shared_ptr<PeerLink>> asked;
    std::map<const PeerLink*, Imported> imported; // of the changes, one at a time

    // Changes of the registry, one after another, since listeners run meanwhile.
    std::list<std::function<void()>> changes;
    bool changing = false;
    std::uint64_t pauses = 0; // how often there was nothing to change any more
};

} // namespace agent::orvi::remoting::details
