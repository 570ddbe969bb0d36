#include "imports/ImportTable.hpp"

#include "carrier/AwaitMemory.hpp"
#include "carrier/FailedEvents.hpp"
#include "carrier/FrameworkIdentity.hpp"
#include "imports/ImportedService.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/ServiceProperties.h>

#include <exception>
#include <new>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

/// What the importing registry says itself, whatever the exporter says.
bool isOfImporter(const std::string& key) {
    return key == cppmicroservices::Constants::OBJECTCLASS ||
           key == cppmicroservices::Constants::SERVICE_ID ||
           key == cppmicroservices::Constants::SERVICE_SCOPE;
}

/// Return what is the same for all links to one endpoint.
const std::string& nameOf(const PeerLink& link) {
    return link.endpoint().empty() ? link.address() : link.endpoint();
}

cppmicroservices::AnyMap propertiesOf(const PeerLink& link, const v1::Offer& offer) {
    cppmicroservices::AnyMap properties(
        cppmicroservices::AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    for (auto& [key, value] : decodeProperties(offer)) {
        if (!isOfImporter(key)) {
            properties[key] = std::move(value);
        }
    }
    properties["service.imported"] = true;
    properties["service.imported.configs"] = std::vector<std::string>{"orvi.grpc"};
    properties["endpoint.id"] = link.endpoint() + "/" + std::to_string(offer.service());
    properties["endpoint.framework.uuid"] = link.peerFramework();
    return properties;
}

cppmicroservices::ServiceProperties
registrationProperties(const cppmicroservices::AnyMap& properties) {
    cppmicroservices::ServiceProperties result;
    for (const auto& [key, value] : properties) {
        result[key] = value;
    }
    return result;
}

/// Do what nobody else will do, as soon as there is memory for it.
template <class Action>
void insist(const Action& action) noexcept {
    try {
        awaitMemoryFor(action);
    } catch (...) {
        // Nothing that waiting would help against.
    }
}

} // namespace

std::shared_ptr<ImportTable> ImportTable::open(
    const cppmicroservices::BundleContext& context, std::shared_ptr<Executor> executor,
    LinkChanged linkChanged, const ImporterLimits& limits, LookUpBegun lookUpBegun) {
    auto table =
        std::make_shared<ImportTable>(context, std::move(executor), std::move(linkChanged), limits);
    table->wants =
        std::make_shared<Wants>([self = std::weak_ptr(table), begun = std::move(lookUpBegun)](
                                    const Wants::Want& want, bool wanted) {
            if (const auto alive = self.lock()) {
                alive->wantChanged(want, wanted);
                if (wanted && begun) {
                    begun();
                }
            }
        });
    table->listeners = RegistryListeners::of(table->context);
    table->listeners->tell(table->wants);
    return table;
}

ImportTable::ImportTable(
    cppmicroservices::BundleContext context, std::shared_ptr<Executor> executor,
    LinkChanged linkChanged, const ImporterLimits& limits)
    : context(std::move(context))
    , executor(std::move(executor))
    , linkChanged(std::move(linkChanged))
    , limits(limits)
    , framework(frameworkIdentity(this->context)) {}

void ImportTable::connect(std::shared_ptr<Connection> connection, const std::string& address) {
    const auto link =
        std::make_shared<PeerLink>(std::move(connection), shared_from_this(), address, framework);
    Change loss = prepared([this, link] { forget(link); });
    {
        const std::lock_guard lock(mutex);
        if (closed) {
            return;
        }
        links.emplace(link, std::move(loss));
    }
    try {
        link->open();
    } catch (...) {
        const std::lock_guard lock(mutex);
        links.erase(link);
        throw;
    }
}

void ImportTable::greeted(PeerLink& link) {
    const auto self = link.shared_from_this();
    bool isFirst = false;
    {
        const std::lock_guard lock(mutex);
        Links& known = linksTo[nameOf(link)];
        known.push_back(self);
        isFirst = known.size() == 1;
    }
    if (isFirst) {
        ask(self);
    }
}

void ImportTable::ask(const std::shared_ptr<PeerLink>& link) {
    std::set added{link};
    // No look-up may come or go between those that are told now and those that are told later.
    wants->forEach(
        [&](const Wants::Want& want) { link->change(want, true); },
        [&] {
            const std::lock_guard lock(mutex);
            asked.merge(added);
        });
}

bool ImportTable::isAsked(const std::shared_ptr<PeerLink>& link) {
    const std::lock_guard lock(mutex);
    return asked.contains(link);
}

void ImportTable::wantChanged(const Wants::Want& want, bool wanted) noexcept {
    // One by one, without a list of them: there may be no memory for one.
    for (auto link = nextAsked(nullptr); link; link = nextAsked(link)) {
        link->change(want, wanted);
    }
}

std::shared_ptr<PeerLink> ImportTable::nextAsked(const std::shared_ptr<PeerLink>& last) noexcept {
    const std::lock_guard lock(mutex);
    const auto next = asked.upper_bound(last);
    return next == asked.end() ? nullptr : *next;
}

void ImportTable::connected(PeerLink& link) {
    linkChanged(link, nullptr);
}

void ImportTable::offered(PeerLink& link, std::shared_ptr<const v1::Offer> offer) {
    enqueueNews(link, [this, from = link.shared_from_this(), offer = std::move(offer)] {
        try {
            import(from, *offer);
        } catch (const ProtocolError& error) {
            from->connection()->close({StreamEnd::Kind::protocolError, error.what()});
        } catch (const LimitExceeded& error) {
            from->connection()->close({StreamEnd::Kind::limitExceeded, error.what()});
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception&) {
            // The registry refuses it: it stays unknown here.
        }
    });
}

void ImportTable::import(const std::shared_ptr<PeerLink>& link, const v1::Offer& offer) {
    if (!isAsked(link)) {
        return; // another link to the same endpoint is
    }
    Imports imports;
    Import& import =
        imports
            .emplace(
                offer.service(), Import{offer.SerializeAsString(), propertiesOf(*link, offer), {}})
            .first->second;
    Imported& peer = imported[link.get()];
    const auto known = peer.services.find(offer.service());
    const bool isKnown = known != peer.services.end();
    if (isKnown && known->second.offer == import.offer) {
        return; // it was unwanted for a moment
    }
    if (!wants->match(import.properties)) {
        return; // nobody looks for it, any more or at all
    }
    checkRoom(peer, isKnown ? &known->second : nullptr, import);
    auto service = ImportedService::make(
        {link->connection(), executor, offer.service(), link->address()}, offer.interface());
    import.registration = context.RegisterService<core::Invokable>(
        std::static_pointer_cast<core::Invokable>(std::move(service)),
        registrationProperties(import.properties));
    Imports replaced;
    if (isKnown) {
        replaced = take(peer, known);
    }
    peer.bytes += import.offer.size();
    peer.services.merge(imports); // which cannot fail: what is registered is known
    drop(std::move(replaced));
}

/// @throws LimitExceeded when the peer offers more than it may.
void ImportTable::checkRoom(
    const Imported& peer, const Import* replaced, const Import& import) const {
    if (replaced == nullptr && peer.services.size() >= limits.services) {
        throw LimitExceeded(
            "The endpoint offers more than " + std::to_string(limits.services) + " services.");
    }
    const std::uint64_t kept = peer.bytes - (replaced == nullptr ? 0 : replaced->offer.size());
    if (kept > limits.serviceBytes || import.offer.size() > limits.serviceBytes - kept) {
        throw LimitExceeded(
            "The endpoint offers services that take more than " +
            std::to_string(limits.serviceBytes) + " bytes.");
    }
}

ImportTable::Imports ImportTable::take(Imported& peer, Imports::iterator service) {
    peer.bytes -= service->second.offer.size();
    Imports taken;
    taken.insert(peer.services.extract(service));
    return taken;
}

void ImportTable::withdrawn(PeerLink& link, const v1::Withdrawal& withdrawal) {
    enqueueNews(
        link, [this, from = link.shared_from_this(), service = withdrawal.service(),
               unwanted = withdrawal.unwanted()] {
            Imported& peer = imported[from.get()];
            const auto known = peer.services.find(service);
            // Somebody may have begun to look for it again, and may be about to use it.
            if (known == peer.services.end() ||
                (unwanted && wants->match(known->second.properties))) {
                return;
            }
            drop(take(peer, known));
        });
}

void ImportTable::settled(PeerLink& link) {
    enqueueNews(link, [] {}); // whoever waits looks again, after what was offered before
}

void ImportTable::lost(PeerLink& link) noexcept {
    Change loss;
    {
        const std::lock_guard lock(mutex);
        const auto known = links.find(link.shared_from_this());
        if (known == links.end()) {
            return; // it could not be opened
        }
        loss = std::move(known->second);
    }
    enqueue(std::move(loss));
}

void ImportTable::forget(const std::shared_ptr<PeerLink>& link) noexcept {
    Imports ended;
    if (auto known = imported.extract(link.get())) {
        ended = std::move(known.mapped().services);
    }
    drop(std::move(ended));
    const auto next = remove(link);
    // Without the control stream nobody hears of withdrawals: what remains of the connection
    // must not go on as if nothing had happened.
    insist([&] { link->connection()->close(link->end()); });
    insist([&] { linkChanged(*link, &link->end()); });
    if (next) {
        insist([&] { ask(next); });
    }
}

/// Forget a link.
///
/// @return the one that takes its place, null when there is none or none is needed.
std::shared_ptr<PeerLink> ImportTable::remove(const std::shared_ptr<PeerLink>& link) {
    const std::lock_guard lock(mutex);
    links.erase(link);
    const bool wasAsked = asked.erase(link) > 0;
    const auto known = linksTo.find(nameOf(*link));
    if (known == linksTo.end()) {
        return nullptr;
    }
    std::erase(known->second, link);
    if (known->second.empty()) {
        linksTo.erase(known);
        return nullptr;
    }
    return wasAsked ? known->second.front() : nullptr;
}

void ImportTable::drop(Imports services) noexcept {
    for (auto& [number, import] : services) {
        try {
            import.registration.Unregister();
        } catch (...) {
            // The framework has stopped and has dropped it already.
        }
    }
}

void ImportTable::enqueueNews(PeerLink& link, std::function<void()> action) {
    enqueue(prepared([from = link.shared_from_this(), action = std::move(action)] {
        try {
            action();
        } catch (const std::bad_alloc&) {
            from->connection()->close(outOfMemory()); // what it has said is not known here
        }
        from->digested();
    }));
}

ImportTable::Change ImportTable::prepared(std::function<void()> action) {
    Change change;
    change.action.push_back(std::move(action));
    change.runner.emplace_back([self = shared_from_this()] { self->runChanges(); });
    return change;
}

void ImportTable::enqueue(Change change) noexcept {
    const std::lock_guard lock(mutex);
    changes.splice(changes.end(), change.action);
    if (!changing) {
        changing = true;
        executor->postPrepared(change.runner);
    }
}

void ImportTable::runChanges() {
    for (;;) {
        std::function<void()> change;
        {
            const std::lock_guard lock(mutex);
            if (changes.empty()) {
                changing = false;
                ++pauses;
                changed.notify_all();
                return;
            }
            change = std::move(changes.front());
            changes.pop_front();
        }
        change();
    }
}

void ImportTable::lookAgain() {
    enqueue(prepared([] {}));
}

bool ImportTable::isSettled() {
    const std::lock_guard lock(mutex);
    for (const auto& [link, loss] : links) {
        if (!link->isSettled()) {
            return false;
        }
    }
    return !changing;
}

bool ImportTable::awaitIdle(Executor::SteadyTime timeLimit) {
    std::unique_lock lock(mutex);
    return changed.wait_until(lock, timeLimit, [this] { return !changing && links.empty(); });
}

bool ImportTable::awaitSettled(
    Executor::TimePoint timeLimit, const std::function<bool()>& settled) {
    for (;;) {
        std::uint64_t seen = 0;
        {
            std::unique_lock lock(mutex);
            if (!changed.wait_until(lock, timeLimit, [this] { return !changing; })) {
                return false;
            }
            seen = pauses;
        }
        if (settled()) {
            return true;
        }
        std::unique_lock lock(mutex);
        if (!changed.wait_until(lock, timeLimit, [&] { return pauses != seen; })) {
            return false;
        }
    }
}

void ImportTable::close(const StreamEnd& end) noexcept {
    listeners->tellNoMore(wants);
    {
        const std::lock_guard lock(mutex);
        closed = true;
    }
    // One by one, without a list of them: there may be no memory for one.
    std::shared_ptr<PeerLink> link;
    while ((link = nextLink(link))) {
        insist([&] { link->connection()->close(end); });
    }
}

std::shared_ptr<PeerLink> ImportTable::nextLink(const std::shared_ptr<PeerLink>& last) noexcept {
    const std::lock_guard lock(mutex);
    const auto next = links.upper_bound(last);
    return next == links.end() ? nullptr : next->first;
}

} // namespace agent::orvi::remoting::details
