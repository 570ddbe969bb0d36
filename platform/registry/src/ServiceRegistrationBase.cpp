#include "cppmicroservices/ServiceRegistrationBase.h"

#include "FrameworkCore.hpp"
#include "ServiceRecord.hpp"
#include "ServiceUse.hpp"

#include "cppmicroservices/ServiceFactory.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {
namespace detail {

ServiceReferenceBase Registration::reference(std::string const& interfaceId) {
    return ReferenceData::wrap(std::make_shared<ReferenceData const>(
        ReferenceData{weak_from_this(), record, interfaceId}));
}

std::string const& factoryClass() {
    // Never destroyed: services may be used until the process ends.
    static std::string const& name = *new std::string("org.cppmicroservices.factory");
    return name;
}

std::shared_ptr<ServiceFactory> Registration::factory() const {
    if (!service || record->scope == Scope::Singleton) {
        return nullptr;
    }
    auto const found = service->find(factoryClass());
    return found == service->end() ? nullptr
                                   : std::static_pointer_cast<ServiceFactory>(found->second);
}

std::shared_ptr<FrameworkCore> Registration::coreWhileRegistered() const {
    std::lock_guard const lock(record->mutex);
    if (record->unregistered) {
        throw std::logic_error("Service is unregistered");
    }
    return record->core.lock();
}

void Registration::setProperties(ServiceProperties const& properties) {
    auto const core = coreWhileRegistered();
    if (!core) {
        record->setProperties(properties);
        return;
    }
    ServiceEvent const modified(ServiceEvent::SERVICE_MODIFIED, reference());
    ServiceEvent const endMatch(ServiceEvent::SERVICE_MODIFIED_ENDMATCH, reference());
    auto former = core->receivers(endMatch, *record);
    record->setProperties(properties);
    core->services().sortAgain(*this);
    auto const present = core->receivers(modified, *record);
    std::erase_if(former, [&present](auto const& listener) {
        return std::find(present.begin(), present.end(), listener) != present.end();
    });
    core->deliver(present, modified);
    core->deliver(former, endMatch);
}

void Registration::prepareToUnregister() {
    lastEvent = ServiceEvent(ServiceEvent::SERVICE_UNREGISTERING, reference());
}

void Registration::unregister() {
    std::shared_ptr<FrameworkCore> core;
    {
        std::lock_guard const lock(record->mutex);
        if (record->unregistering) {
            return;
        }
        if (record->unregistered) {
            throw std::logic_error("Service is unregistered");
        }
        record->unregistering = true;
        core = record->core.lock();
    }
    if (core) {
        core->services().remove(*this);
        try {
            core->deliver(core->receivers(lastEvent, *record), lastEvent);
        } catch (...) {
            core->deliverToEach(*record, lastEvent);
        }
    }
    InterfaceMapConstPtr releasedService;
    InterfaceMapConstPtr releasedInstance;
    std::list<InterfaceMapConstPtr> releasedInstances;
    std::shared_ptr<ServiceFactory> maker;
    {
        std::lock_guard const lock(record->mutex);
        record->unregistered = true;
        record->uses = 0;
        maker = factory();
        releasedService = std::exchange(service, nullptr);
        releasedInstance = std::exchange(bundleInstance, nullptr);
        releasedInstances.swap(prototypeInstances);
    }
    if (core && maker) {
        if (releasedInstance) {
            returnInstance(*core, *maker, releasedInstance);
        }
        for (auto const& instance : releasedInstances) {
            returnInstance(*core, *maker, instance);
        }
    }
    std::lock_guard const lock(record->mutex);
    record->core.reset();
    record->unregistering = false;
}

void Registration::returnInstance(
    FrameworkCore& core, ServiceFactory& maker, InterfaceMapConstPtr const& instance) noexcept {
    try {
        maker.UngetService(core.bundle(), handle(), instance);
    } catch (...) {
        sendFactoryError(core, "ServiceFactory UngetService implementation threw an exception");
    }
}

namespace {

Registration& checked(std::shared_ptr<Registration> const& registration) {
    if (!registration) {
        throw std::logic_error("ServiceRegistrationBase object invalid");
    }
    return *registration;
}

} // namespace
} // namespace detail

ServiceRegistrationBase::ServiceRegistrationBase() = default;

ServiceRegistrationBase::ServiceRegistrationBase(std::shared_ptr<detail::Registration> registration)
    : registration_(std::move(registration)) {}

ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase const&) = default;

ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase&&) noexcept = default;

ServiceRegistrationBase&
ServiceRegistrationBase::operator=(ServiceRegistrationBase const&) = default;

ServiceRegistrationBase&
ServiceRegistrationBase::operator=(ServiceRegistrationBase&&) noexcept = default;

ServiceRegistrationBase& ServiceRegistrationBase::operator=(std::nullptr_t) {
    registration_ = nullptr;
    return *this;
}

ServiceRegistrationBase::~ServiceRegistrationBase() = default;

ServiceReferenceBase ServiceRegistrationBase::GetReference(std::string const& interfaceId) const {
    auto& registration = detail::checked(registration_);
    registration.coreWhileRegistered();
    return registration.reference(interfaceId);
}

void ServiceRegistrationBase::SetProperties(ServiceProperties const& properties) {
    // A listener may reset this very handle.
    auto const registration = registration_;
    detail::checked(registration).setProperties(properties);
}

void ServiceRegistrationBase::SetProperties(ServiceProperties&& properties) {
    SetProperties(properties);
}

void ServiceRegistrationBase::Unregister() {
    auto const registration = registration_;
    detail::checked(registration).unregister();
}

bool ServiceRegistrationBase::operator<(ServiceRegistrationBase const& o) const {
    if (!registration_ || !o.registration_) {
        return !registration_ && o.registration_;
    }
    return registration_->reference() < o.registration_->reference();
}

std::ostream& operator<<(std::ostream& os, ServiceRegistrationBase const&) {
    return os << "cppmicroservices::ServiceRegistrationBase object";
}

} // namespace cppmicroservices
