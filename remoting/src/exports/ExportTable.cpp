#include "exports/ExportTable.hpp"

#include "carrier/FrameworkIdentity.hpp"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/ServiceEvent.h>

#include <algorithm>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

using cppmicroservices::Any;
using cppmicroservices::ServiceEvent;
using cppmicroservices::ServiceReferenceBase;

std::string exportableFilter() {
    return "(&(objectclass=" + us_service_interface_iid<core::Invokable>() +
           ")(service.exported.interfaces=*)(!(service.imported=*)))";
}

std::uint64_t numberOf(const ServiceReferenceBase& reference) {
    return static_cast<std::uint64_t>(cppmicroservices::any_cast<long>(
        reference.GetProperty(cppmicroservices::Constants::SERVICE_ID)));
}

/// @return null when the service has gone since it was listed.
std::shared_ptr<core::Invokable>
serviceOf(cppmicroservices::BundleContext& context, const ServiceReferenceBase& reference) {
    try {
        return context.GetService(cppmicroservices::ServiceReference<core::Invokable>(reference));
    } catch (const std::invalid_argument&) {
        return nullptr; // what was a valid reference is none any more
    }
}

/// What says something about the exporter's registry alone.
bool isOfExporter(const std::string& key) {
    return key == cppmicroservices::Constants::SERVICE_ID ||
           key == cppmicroservices::Constants::SERVICE_SCOPE || key == "bundle.id" ||
           key.starts_with("service.exported.");
}

/// Return the name that a filter demands, when it demands nothing else.
std::optional<std::string> demandedName(const std::string& filter) {
    constexpr std::string_view start = "(orvi.servicename=";
    if (!filter.starts_with(start) || !filter.ends_with(')')) {
        return std::nullopt;
    }
    std::string name = filter.substr(start.size(), filter.size() - start.size() - 1);
    if (name.find_first_of("()*\\ ") != std::string::npos) {
        return std::nullopt;
    }
    return name;
}

} // namespace

/// While services are looked at, those that go are remembered: what was seen of them before may not
/// come after that.
class ExportTable::Adding {
public:
    explicit Adding(ExportTable& table)
        : table(table) {
        const std::lock_guard lock(table.mutex);
        ++table.adding;
        begin = table.removals;
    }

    ~Adding() {
        const std::lock_guard lock(table.mutex);
        if (--table.adding == 0) {
            table.goneMeanwhile.clear();
        }
    }

    Adding(const Adding&) = delete;
    Adding& operator=(const Adding&) = delete;

    /// Say whether a service has gone since it was looked at. Under the table's lock.
    bool isGone(std::uint64_t number) const {
        const auto gone = table.goneMeanwhile.find(number);
        return gone != table.goneMeanwhile.end() && gone->second > begin;
    }

private:
    ExportTable& table;
    std::uint64_t begin = 0;
};

std::shared_ptr<ExportTable> ExportTable::open(
    const cppmicroservices::BundleContext& context, const std::string& endpointId,
    std::weak_ptr<Executor> executor) {
    auto table = std::make_shared<ExportTable>(context, endpointId, std::move(executor));
    table->follow();
    return table;
}

ExportTable::ExportTable(
    cppmicroservices::BundleContext context, std::string endpointId,
    std::weak_ptr<Executor> executor)
    : context(std::move(context))
    , endpointId(std::move(endpointId))
    , executor(std::move(executor)) {}

void ExportTable::follow() {
    token = context.AddServiceListener(
        [self = shared_from_this()](const ServiceEvent& event) { self->serviceChanged(event); },
        exportableFilter());
    list(false);
}

void ExportTable::list(bool replace) {
    const Adding listing(*this);
    for (const auto& reference :
         context.GetServiceReferences<core::Invokable>(exportableFilter())) {
        add(reference, replace, listing);
    }
}

/// List services again that have come when there was no memory for them.
void ExportTable::listMissed() {
    {
        const std::lock_guard lock(mutex);
        if (!std::exchange(missed, false)) {
            return;
        }
    }
    try {
        list(true);
    } catch (...) {
        const std::lock_guard lock(mutex);
        missed = true;
        throw;
    }
}

void ExportTable::close() noexcept {
    try {
        context.RemoveListener(std::move(token));
    } catch (...) {
        // The framework has stopped and has dropped its listeners.
    }
    Services former; // let go of after the lock
    const std::lock_guard lock(mutex);
    closed = true;
    former.swap(services);
    numbersByName.clear();
    for (auto& [audience, listener] : listeners) {
        for (const auto& [number, wants] : std::exchange(listener.offered, {})) {
            audience->withdrawn(number, false);
        }
    }
}

void ExportTable::serviceChanged(const ServiceEvent& event) {
    switch (event.GetType()) {
    case ServiceEvent::SERVICE_REGISTERED:
    case ServiceEvent::SERVICE_MODIFIED:
        try {
            add(event.GetServiceReference(), event.GetType() == ServiceEvent::SERVICE_MODIFIED,
                Adding(*this));
        } catch (const std::bad_alloc&) {
            // Whoever looks for something next makes up for it.
            const std::lock_guard lock(mutex);
            missed = true;
            throw;
        }
        break;
    case ServiceEvent::SERVICE_UNREGISTERING:
    case ServiceEvent::SERVICE_MODIFIED_ENDMATCH:
        remove(event.GetServiceReference());
        break;
    default:
        break;
    }
}

void ExportTable::add(const ServiceReferenceBase& reference, bool replace, const Adding& looking) {
    const std::uint64_t number = numberOf(reference);
    const auto service = serviceOf(context, reference);
    if (!service) {
        return;
    }
    const auto exported = describe(reference, number, service);
    Services::node_type former; // let go of after the lock
    const std::lock_guard lock(mutex);
    if (closed || looking.isGone(number) || (!replace && services.contains(number))) {
        return;
    }
    if (exported) {
        shareTurns(*exported);
    }
    former = erase(number);
    if (exported) {
        insert(exported);
    }
}

/// @return null for a service that cannot describe itself: the others are offered all the same.
std::shared_ptr<ExportedService> ExportTable::describe(
    const ServiceReferenceBase& reference, std::uint64_t number,
    const std::shared_ptr<core::Invokable>& service) const {
    try {
        Properties properties;
        for (const std::string& key : reference.GetPropertyKeys()) {
            if (!isOfExporter(key)) {
                properties.emplace_back(key, reference.GetProperty(key));
            }
        }
        properties.emplace_back("service.imported", true);
        properties.emplace_back("service.imported.configs", std::vector<std::string>{"orvi.grpc"});
        properties.emplace_back("endpoint.id", endpointId + "/" + std::to_string(number));
        properties.emplace_back("endpoint.framework.uuid", frameworkIdentity(context));
        return std::make_shared<ExportedService>(
            reference, number, service, std::move(properties), executor);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        return nullptr;
    }
}

void ExportTable::remove(const ServiceReferenceBase& reference) {
    std::optional<std::uint64_t> number;
    try {
        number = numberOf(reference);
    } catch (const std::bad_alloc&) {
        // It is gone all the same.
    }
    Services::node_type former; // let go of after the lock
    const std::lock_guard lock(mutex);
    if (!number) {
        const auto found = std::find_if(services.begin(), services.end(), [&](const auto& entry) {
            return entry.second->reference == reference;
        });
        if (found != services.end()) {
            former = erase(found->first);
        }
        return;
    }
    former = erase(*number);
    if (adding > 0) {
        goneMeanwhile[*number] = ++removals;
    }
}

std::shared_ptr<const ExportedService> ExportTable::find(std::uint64_t number) const {
    const std::lock_guard lock(mutex);
    const auto found = services.find(number);
    return found == services.end() ? nullptr : found->second;
}

std::shared_ptr<ExportedService> ExportTable::find(std::uint64_t number) {
    return std::const_pointer_cast<ExportedService>(std::as_const(*this).find(number));
}

void ExportTable::insert(const std::shared_ptr<ExportedService>& service) {
    services.emplace(service->number, service);
    try {
        numbersByName.emplace(service->name, service->number);
        for (const auto& want : wantsFor(*service)) {
            offer(*want, *service);
        }
    } catch (...) {
        const Services::node_type refused = erase(service->number);
        throw;
    }
}

/// Calls are put in order across whatever a service was offered as before. Under the lock.
void ExportTable::shareTurns(ExportedService& service) {
    if (turns.size() >= 2 * turnsAfterSweep + 16) {
        std::erase_if(turns, [](const auto& entry) { return entry.second.expired(); });
        turnsAfterSweep = turns.size();
    }
    std::weak_ptr<ServiceTurns>& known = turns[service.number];
    if (auto shared = known.lock()) {
        service.turns = std::move(shared);
    } else {
        known = service.turns;
    }
}

/// Take a service out. Whoever calls this lets go of it after the lock: what ends with it may be
/// the user's.
ExportTable::Services::node_type ExportTable::erase(std::uint64_t number) {
    const auto found = services.find(number);
    if (found == services.end()) {
        return {};
    }
    const auto [first, last] = numbersByName.equal_range(found->second->name);
    const auto named =
        std::find_if(first, last, [&](const auto& entry) { return entry.second == number; });
    if (named != last) {
        numbersByName.erase(named);
    }
    Services::node_type former = services.extract(found);
    for (auto& [audience, listener] : listeners) {
        if (listener.offered.erase(number) > 0) {
            audience->withdrawn(number, false);
        }
    }
    return former;
}

void ExportTable::want(Audience& audience, std::uint64_t number, const std::string& filter) {
    listMissed();
    const auto want = std::make_shared<const Want>(
        Want{&audience, cppmicroservices::LDAPFilter(filter), demandedName(filter)});
    const std::lock_guard lock(mutex);
    if (!listeners[&audience].wants.emplace(number, want).second) {
        throw std::invalid_argument("Two look-ups have the same number.");
    }
    if (!want->name) {
        otherWants.insert(want);
        for (const auto& [id, service] : services) {
            offer(*want, *service);
        }
        return;
    }
    wantsByName[*want->name].insert(want);
    const auto [first, last] = numbersByName.equal_range(*want->name);
    for (auto entry = first; entry != last; ++entry) {
        offer(*want, *services.at(entry->second));
    }
}

bool ExportTable::unwant(Audience& audience, std::uint64_t number) {
    const std::lock_guard lock(mutex);
    const auto known = listeners.find(&audience);
    if (known == listeners.end()) {
        return false; // it has left
    }
    Listener& listener = known->second;
    const auto found = listener.wants.find(number);
    if (found == listener.wants.end()) {
        return false;
    }
    const std::shared_ptr<const Want> want = found->second;
    listener.wants.erase(found);
    forget(want);
    if (want->name) {
        const auto [first, last] = numbersByName.equal_range(*want->name);
        for (auto entry = first; entry != last; ++entry) {
            unoffer(*want, listener, *services.at(entry->second));
        }
    } else {
        for (auto next = listener.offered.begin(); next != listener.offered.end();) {
            const std::uint64_t id = (next++)->first;
            unoffer(*want, listener, *services.at(id));
        }
    }
    return true;
}

void ExportTable::unoffer(const Want& want, Listener& listener, const ExportedService& service) {
    const auto offered = listener.offered.find(service.number);
    if (offered != listener.offered.end() && want.filter.Match(service.asMap) &&
        --offered->second == 0) {
        want.audience->withdrawn(service.number, true);
        listener.offered.erase(offered);
    }
}

void ExportTable::leave(Audience& audience) noexcept {
    const std::lock_guard lock(mutex);
    const auto found = listeners.find(&audience);
    if (found != listeners.end()) {
        for (const auto& [number, want] : found->second.wants) {
            forget(want);
        }
        listeners.erase(found);
    }
}

ExportTable::Wants ExportTable::wantsFor(const ExportedService& service) const {
    Wants wants = otherWants;
    if (const auto named = wantsByName.find(service.name); named != wantsByName.end()) {
        wants.insert(named->second.begin(), named->second.end());
    }
    return wants;
}

void ExportTable::offer(const Want& want, const ExportedService& service) {
    if (want.filter.Match(service.asMap) &&
        ++listeners[want.audience].offered[service.number] == 1) {
        want.audience->offered(service.number);
    }
}

void ExportTable::forget(const std::shared_ptr<const Want>& want) {
    if (!want->name) {
        otherWants.erase(want);
        return;
    }
    const auto named = wantsByName.find(*want->name);
    if (named == wantsByName.end()) {
        return; // there was no memory for it
    }
    named->second.erase(want);
    if (named->second.empty()) {
        wantsByName.erase(named);
    }
}

} // namespace agent::orvi::remoting::details
