#pragma once

#include "cppmicroservices/ServiceEvent.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReferenceBase.h"
#include "cppmicroservices/ServiceRegistrationBase.h"

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace cppmicroservices::detail {

class FrameworkCore;

/// Returns the name under which a factory is registered beside the classes that it makes.
///
/// Made with the first service, so that the end of a use needs no memory.
std::string const& factoryClass();

enum class Scope { Singleton, Bundle, Prototype };

/// What references know of a service. It outlives the registration, so that properties can be read
/// afterwards.
struct ServiceRecord {
    ServiceRecord(long serviceId, std::vector<std::string> interfaceNames, Scope serviceScope)
        : id(serviceId)
        , classes(std::move(interfaceNames))
        , scope(serviceScope) {}

    std::shared_ptr<AnyMap const> properties() const;
    int ranking() const;

    /// @throws std::invalid_argument if the ranking is not an `int`.
    /// @throws std::runtime_error if two names differ only in case.
    void setProperties(ServiceProperties const& given);

    long const id;
    std::vector<std::string> const classes;
    Scope const scope;

    mutable std::mutex mutex;
    /// Expires when the service has been unregistered or the framework has gone.
    std::weak_ptr<FrameworkCore> core;
    int uses = 0;
    bool unregistering = false;
    bool unregistered = false;

private:
    std::shared_ptr<AnyMap const> properties_;
    int ranking_ = 0;
};

/// What the registry and the registrant share. The record's mutex guards it.
struct Registration : std::enable_shared_from_this<Registration> {
    Registration(std::shared_ptr<ServiceRecord> r, InterfaceMapConstPtr s)
        : record(std::move(r))
        , service(std::move(s)) {}

    ServiceRegistrationBase handle() { return ServiceRegistrationBase(shared_from_this()); }

    ServiceReferenceBase reference(std::string const& interfaceId = std::string());
    /// Returns the factory of service objects, null if there is none. Needs the record's lock.
    std::shared_ptr<ServiceFactory> factory() const;
    /// @throws std::logic_error if the service is unregistered.
    std::shared_ptr<FrameworkCore> coreWhileRegistered() const;
    void setProperties(ServiceProperties const& properties);
    /// Makes what `unregister` needs: the end of a service needs no memory, so that destructors can
    /// rely on it.
    void prepareToUnregister();
    void unregister();

    std::shared_ptr<ServiceRecord> const record;
    InterfaceMapConstPtr service;
    /// What a factory made: one object for the bundle, or many.
    InterfaceMapConstPtr bundleInstance;
    std::list<InterfaceMapConstPtr> prototypeInstances;
    /// Threads on which the factory is making an object, to detect recursion.
    std::vector<std::thread::id> makingThreads;
    /// What ServiceIndex has sorted it by; guarded by that index.
    int indexedRanking = 0;
    std::shared_ptr<AnyMap const> indexedProperties;

private:
    /// Refers to this weakly.
    ServiceEvent lastEvent;

    void returnInstance(
        FrameworkCore& core, ServiceFactory& maker, InterfaceMapConstPtr const& instance) noexcept;
};

/// What a reference consists of. Immutable.
struct ReferenceData {
    static std::shared_ptr<ReferenceData const> of(ServiceReferenceBase const& reference) {
        return reference.load();
    }

    static ServiceReferenceBase wrap(std::shared_ptr<ReferenceData const> data) {
        return ServiceReferenceBase(std::move(data));
    }

    std::weak_ptr<Registration> registration;
    std::shared_ptr<ServiceRecord> record;
    std::string interfaceId;
};

} // namespace cppmicroservices::detail
