#include "FrameworkCore.hpp"

#include "HookTracker.hpp"
#include "ServiceUse.hpp"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/PrototypeServiceFactory.h"
#include "cppmicroservices/ServiceEventListenerHook.h"
#include "cppmicroservices/ServiceFindHook.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <stdexcept>
#include <unordered_set>
#include <utility>

namespace cppmicroservices::detail {

namespace {

using Infos = std::vector<ServiceListenerHook::ListenerInfo>;

/// Names of types in the global namespace may be written with it.
std::string withoutLeadingColons(std::string const& name) {
    auto const start = name.find_first_not_of(':');
    return start == std::string::npos ? name : name.substr(start);
}

long nextServiceId() {
    static std::atomic<long> last{0};
    return ++last;
}

Scope scopeOf(InterfaceMap const& service) {
    auto const factory = service.find(factoryClass());
    if (factory == service.end()) {
        return Scope::Singleton;
    }
    auto const made = std::static_pointer_cast<ServiceFactory>(factory->second);
    return std::dynamic_pointer_cast<PrototypeServiceFactory>(made) ? Scope::Prototype
                                                                    : Scope::Bundle;
}

} // namespace

std::shared_ptr<Registration> FrameworkCore::registerService(
    InterfaceMapConstPtr const& service, ServiceProperties const& properties) {
    if (!service || service->empty()) {
        throw std::invalid_argument("Can't register empty InterfaceMap as a service");
    }
    auto const scope = scopeOf(*service);
    std::vector<std::string> classes;
    for (auto const& entry : *service) {
        if (entry.first.empty() || (scope == Scope::Singleton && !entry.second)) {
            throw std::invalid_argument("Can't register as null class");
        }
        classes.push_back(withoutLeadingColons(entry.first));
    }
    auto record = std::make_shared<ServiceRecord>(nextServiceId(), std::move(classes), scope);
    record->core = weak_from_this();
    record->setProperties(properties);
    auto registration = std::make_shared<Registration>(std::move(record), service);
    registration->prepareToUnregister();
    services_.add(registration);
    try {
        ServiceEvent const event(ServiceEvent::SERVICE_REGISTERED, registration->reference());
        deliver(receivers(event, *registration->record), event);
    } catch (...) {
        registration->unregister();
        throw;
    }
    return registration;
}

/// Returns services among which are all that match, as few as possible.
std::vector<ServiceIndex::Entry>
FrameworkCore::candidates(std::string const& wanted, FilterExpression const* filter) {
    auto const classes = !wanted.empty() ? std::optional(std::vector{wanted})
                         : filter        ? filter->requiredClasses()
                                         : std::nullopt;
    if (auto const test = filter ? filter->requiredText() : std::nullopt) {
        if (auto found = services_.withText(*test, classes)) {
            return *std::move(found);
        }
    }
    if (!classes) {
        return services_.all();
    }
    if (classes->size() == 1) {
        return services_.withClass(classes->front());
    }
    std::vector<ServiceIndex::Entry> found;
    std::unordered_set<ServiceIndex::Entry> seen;
    for (auto const& required : *classes) {
        for (auto& entry : services_.withClass(required)) {
            if (seen.insert(entry).second) {
                found.push_back(std::move(entry));
            }
        }
    }
    return found;
}

std::vector<ServiceReferenceU> FrameworkCore::find(
    BundleContext const& context, std::string const& name, std::string const& filterText) {
    auto const wanted = withoutLeadingColons(name);
    if (!wanted.empty() && !services_.firstWithClass(wanted)) {
        return {};
    }
    auto const filter = filterText.empty() ? nullptr : FilterExpression::parse(filterText);
    std::vector<ServiceReferenceBase> found;
    for (auto const& candidate : candidates(wanted, filter.get())) {
        if (!filter || filter->matches(*candidate->record->properties(), false)) {
            found.push_back(candidate->reference(wanted));
        }
    }
    auto const hooks = services_.withClass(us_service_interface_iid<ServiceFindHook>());
    if (!found.empty() && !hooks.empty()) {
        ShrinkableVector<ServiceReferenceBase> shrinkable(found);
        callHooks<ServiceFindHook>(
            hooks, "Failed to call find hook # ",
            [&](ServiceFindHook& hook) { hook.Find(context, wanted, filterText, shrinkable); });
    }
    return {found.begin(), found.end()};
}

ServiceReferenceU FrameworkCore::findFirst(BundleContext const& context, std::string const& name) {
    if (services_.firstWithClass(us_service_interface_iid<ServiceFindHook>()) || name.empty()) {
        auto const found = find(context, name, std::string());
        return found.empty() ? ServiceReferenceU() : found.front();
    }
    auto const wanted = withoutLeadingColons(name);
    auto const first = services_.firstWithClass(wanted);
    return first ? ServiceReferenceU(first->reference(wanted)) : ServiceReferenceU();
}

ListenerTokenId FrameworkCore::addServiceListener(
    std::shared_ptr<ContextData> context, ServiceListener listener, std::string const& filterText) {
    auto filter = filterText.empty() ? nullptr : FilterExpression::parse(filterText);
    auto const entry = std::make_shared<ServiceListenerEntry>(
        ++lastListenerId_, std::move(context), std::move(listener), filterText, std::move(filter));
    if (auto const tracker = hooks()) {
        tracker->add(*this, entry);
    } else {
        serviceListeners_.add(entry);
    }
    return entry->id;
}

ListenerTokenId FrameworkCore::addBundleListener(BundleListener listener) {
    auto const id = ++lastListenerId_;
    bundleListeners_.add(id, std::move(listener));
    return id;
}

ListenerTokenId FrameworkCore::addFrameworkListener(FrameworkListener listener) {
    auto const id = ++lastListenerId_;
    frameworkListeners_.add(id, std::move(listener));
    return id;
}

void FrameworkCore::removeListener(ListenerTokenId id) {
    if (id == 0 || frameworkListeners_.remove(id) || bundleListeners_.remove(id)) {
        return;
    }
    if (auto const tracker = hooks()) {
        tracker->remove(*this, id);
    } else {
        serviceListeners_.remove(id);
    }
}

Infos FrameworkCore::infos(Listeners const& listeners) {
    Infos result;
    result.reserve(listeners.size());
    for (auto const& entry : listeners) {
        result.push_back(ServiceListenerHook::ListenerInfo(entry));
    }
    return result;
}

template <class Hook, class Call>
void FrameworkCore::callHooks(
    std::vector<ServiceIndex::Entry> const& hooks, char const* failure, Call const& call) {
    for (auto const& registration : hooks) {
        auto const reference = registration->reference(us_service_interface_iid<Hook>());
        auto const hook = std::static_pointer_cast<Hook>(useService(reference, Instance::Shared));
        try {
            if (hook) {
                call(*hook);
            }
        } catch (...) {
            sendWarning(failure, registration->record->id);
        }
    }
}

void FrameworkCore::send(FrameworkEvent const& event) {
    for (auto const& listener : frameworkListeners_.all()) {
        try {
            (*listener)(event);
        } catch (std::exception const& e) {
            log(std::string("A Framework Listener threw an exception: ") + e.what());
        } catch (...) {
            log("A Framework Listener threw an exception: unknown");
        }
    }
}

void FrameworkCore::send(BundleEvent const& event) {
    for (auto const& listener : bundleListeners_.all()) {
        try {
            (*listener)(event);
        } catch (...) {
            send(FrameworkEvent(
                FrameworkEvent::FRAMEWORK_ERROR, bundle(), "Bundle listener threw an exception",
                std::current_exception()));
        }
    }
}

void FrameworkCore::sendWarning(char const* message, long serviceId) noexcept {
    sendIfPossible([&] {
        return FrameworkEvent(
            FrameworkEvent::FRAMEWORK_WARNING, bundle(), message + std::to_string(serviceId),
            std::current_exception());
    });
}

FrameworkCore::Listeners
FrameworkCore::receivers(ServiceEvent const& event, ServiceRecord const& service) {
    auto listeners = serviceListeners_.matching(service);
    auto const hooks = services_.withClass(us_service_interface_iid<ServiceEventListenerHook>());
    if (!hooks.empty()) {
        hideFromReceivers(hooks, event, listeners);
    }
    return listeners;
}

void FrameworkCore::hideFromReceivers(
    std::vector<ServiceIndex::Entry> const& hooks, ServiceEvent const& event,
    Listeners& listeners) {
    using Shrinkable = ShrinkableVector<ServiceListenerHook::ListenerInfo>;
    std::map<BundleContext, Infos> infos;
    for (auto& info : FrameworkCore::infos(serviceListeners_.all())) {
        infos[info.GetBundleContext()].push_back(std::move(info));
    }
    std::map<BundleContext, Shrinkable> shrinkables;
    for (auto& entry : infos) {
        shrinkables.emplace(entry.first, Shrinkable(entry.second));
    }
    ServiceEventListenerHook::ShrinkableMapType shrinkable(shrinkables);
    callHooks<ServiceEventListenerHook>(
        hooks, "Failed to call event hook  # ",
        [&](ServiceEventListenerHook& hook) { hook.Event(event, shrinkable); });
    std::unordered_set<ListenerIndex::Entry> permitted;
    for (auto const& entry : infos) {
        for (auto const& info : entry.second) {
            permitted.insert(info.entry_);
        }
    }
    std::erase_if(
        listeners, [&permitted](auto const& listener) { return permitted.count(listener) == 0; });
}

void FrameworkCore::deliver(Listeners const& listeners, ServiceEvent const& event) {
    for (auto const& entry : listeners) {
        deliver(*entry, event);
    }
}

void FrameworkCore::deliver(ServiceListenerEntry const& entry, ServiceEvent const& event) noexcept {
    if (entry.removed) {
        return;
    }
    try {
        entry.listener(event);
    } catch (...) {
        sendIfPossible([this] {
            auto const source = bundle();
            return FrameworkEvent(
                FrameworkEvent::FRAMEWORK_ERROR, source,
                "Service listener in " + source.GetSymbolicName() + " threw an exception!",
                std::current_exception());
        });
    }
}

void FrameworkCore::deliverToEach(
    ServiceRecord const& service, ServiceEvent const& event) noexcept {
    ListenerTokenId last = 0;
    while (auto const entry = serviceListeners_.next(last)) {
        last = entry->id;
        if (entry->mayMatch(service)) {
            deliver(*entry, event);
        }
    }
}

} // namespace cppmicroservices::detail
