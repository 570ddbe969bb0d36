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

std::shared_ptr<ServiceFactory> Registration::factory() const {
    auto const found =
        service ? service->find("org.cppmicroservices.factory") : InterfaceMap::const_iterator();
    return service && found != service->end()
               ? std::static_pointer_cast<ServiceFactory>(found->second)
               : nullptr;
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
        ServiceEvent const event(ServiceEvent::SERVICE_UNREGISTERING, reference());
        core->deliver(core->receivers(event, *record), event);
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
    if (releasedInstance) {
        releasedInstances.push_back(releasedInstance);
    }
    if (core && maker) {
        returnInstances(*core, *maker, releasedInstances);
    }
    std::lock_guard const lock(record->mutex);
    record->core.reset();
    record->unregistering = false;
}

void Registration::returnInstances(
    FrameworkCore& core, ServiceFactory& maker, std::list<InterfaceMapConstPtr> const& instances) {
    for (auto const& instance : instances) {
        try {
            maker.UngetService(core.bundle(), handle(), instance);
        } catch (...) {
            core.send(FrameworkEvent(
                FrameworkEvent::FRAMEWORK_ERROR, core.bundle(),
                "ServiceFactory UngetService implementation threw an exception",
                factoryException()));
        }
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
