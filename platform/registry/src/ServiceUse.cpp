#include "ServiceUse.hpp"

#include "FrameworkCore.hpp"

#include "cppmicroservices/ServiceFactory.h"

#include <algorithm>
#include <exception>
#include <list>
#include <stdexcept>
#include <thread>
#include <utility>

namespace cppmicroservices {
namespace detail {

namespace {

/// Ends the mark that a thread is making an object.
struct Making {
    explicit Making(Registration& r)
        : registration(r) {}

    Making(Making const&) = delete;
    Making& operator=(Making const&) = delete;

    ~Making() {
        std::lock_guard const lock(registration.record->mutex);
        auto& threads = registration.makingThreads;
        threads.erase(std::find(threads.begin(), threads.end(), std::this_thread::get_id()));
    }

    Registration& registration;
};

std::shared_ptr<FrameworkCore> coreOf(Registration const& registration) {
    std::lock_guard const lock(registration.record->mutex);
    return registration.record->core.lock();
}

void sendFactoryEvent(
    Registration const& registration, FrameworkEvent::Type type, std::string const& message,
    std::exception_ptr exception) {
    if (auto const core = coreOf(registration)) {
        core->send(FrameworkEvent(type, core->bundle(), message, std::move(exception)));
    }
}

void returnInstance(
    Registration& registration, ServiceFactory& factory, InterfaceMapConstPtr const& instance) {
    auto const core = coreOf(registration);
    if (!core) {
        return;
    }
    try {
        factory.UngetService(core->bundle(), registration.handle(), instance);
    } catch (...) {
        sendFactoryError(*core, "ServiceFactory threw an exception");
    }
}

/// Lets the factory make an object; returns null, after an event, if that fails.
InterfaceMapConstPtr make(Registration& registration, ServiceFactory& factory) {
    auto const core = coreOf(registration);
    if (!core) {
        return nullptr;
    }
    try {
        auto instance = factory.GetService(core->bundle(), registration.handle());
        if (!instance || instance->empty()) {
            std::string const message =
                "ServiceFactory returned an empty or nullptr interface map.";
            sendFactoryEvent(
                registration, FrameworkEvent::FRAMEWORK_ERROR, message,
                std::make_exception_ptr(
                    ServiceException(message, ServiceException::FACTORY_ERROR)));
            return nullptr;
        }
        for (auto const& name : registration.record->classes) {
            if (instance->count(name) == 0 && name != "org.cppmicroservices.factory") {
                auto const message =
                    "ServiceFactory produced an object that did not implement: " + name;
                sendFactoryEvent(
                    registration, FrameworkEvent::FRAMEWORK_WARNING, message,
                    std::make_exception_ptr(std::logic_error(message)));
                return nullptr;
            }
        }
        return instance;
    } catch (...) {
        sendFactoryError(*core, "ServiceFactory threw an unknown exception.");
        return nullptr;
    }
}

InterfaceMapConstPtr acquireFresh(Registration& registration, ServiceFactory& factory) {
    // What is made must have a place, or nobody would return it.
    std::list<InterfaceMapConstPtr> place(1);
    auto instance = make(registration, factory);
    if (!instance) {
        return nullptr;
    }
    {
        std::lock_guard const lock(registration.record->mutex);
        if (!registration.record->unregistered) {
            place.front() = instance;
            auto& instances = registration.prototypeInstances;
            instances.splice(instances.end(), place);
            ++registration.record->uses;
            return instance;
        }
    }
    returnInstance(registration, factory, instance);
    return nullptr;
}

void releaseFresh(Registration& registration, InterfaceMapConstPtr const& instance) {
    std::shared_ptr<ServiceFactory> factory;
    {
        std::lock_guard const lock(registration.record->mutex);
        auto& instances = registration.prototypeInstances;
        auto const found = std::find(instances.begin(), instances.end(), instance);
        if (found == instances.end()) {
            return;
        }
        instances.erase(found);
        --registration.record->uses;
        factory = registration.factory();
    }
    returnInstance(registration, *factory, instance);
}

InterfaceMapConstPtr acquireShared(Registration& registration) {
    auto& record = *registration.record;
    std::shared_ptr<ServiceFactory> factory;
    bool recursive = false;
    {
        std::lock_guard const lock(record.mutex);
        if (record.unregistered) {
            return nullptr;
        }
        factory = registration.factory();
        auto const& present = factory ? registration.bundleInstance : registration.service;
        if (present) {
            ++record.uses;
            return present;
        }
        auto& threads = registration.makingThreads;
        recursive =
            std::find(threads.begin(), threads.end(), std::this_thread::get_id()) != threads.end();
        threads.push_back(std::this_thread::get_id());
    }
    Making const mark(registration);
    if (recursive) {
        std::string const message = "Recursive call to ServiceFactory::GetService";
        sendFactoryEvent(
            registration, FrameworkEvent::FRAMEWORK_ERROR, message,
            std::make_exception_ptr(
                ServiceException(message, ServiceException::FACTORY_RECURSION)));
        return nullptr;
    }
    auto instance = make(registration, *factory);
    if (!instance) {
        return nullptr;
    }
    InterfaceMapConstPtr shared;
    {
        std::lock_guard const lock(record.mutex);
        if (!record.unregistered) {
            if (!registration.bundleInstance) {
                registration.bundleInstance = instance;
            }
            shared = registration.bundleInstance;
            ++record.uses;
        }
    }
    if (shared != instance) {
        // Another thread was faster, or the service has gone.
        returnInstance(registration, *factory, instance);
    }
    return shared;
}

void releaseShared(Registration& registration) {
    InterfaceMapConstPtr instance;
    std::shared_ptr<ServiceFactory> factory;
    {
        std::lock_guard const lock(registration.record->mutex);
        if (registration.record->uses == 0 || --registration.record->uses > 0) {
            return;
        }
        instance = std::move(registration.bundleInstance);
        registration.bundleInstance = nullptr;
        factory = registration.factory();
    }
    if (instance && factory) {
        returnInstance(registration, *factory, instance);
    }
}

/// One use of a service object; ends it when destroyed.
struct Use {
    Use(ServiceReferenceBase const& r, bool f)
        : reference(r)
        , fresh(f) {}

    Use(Use const&) = delete;
    Use& operator=(Use const&) = delete;

    ~Use() {
        auto const registration = ReferenceData::of(reference)->registration.lock();
        if (registration && interfaces) {
            fresh ? releaseFresh(*registration, interfaces) : releaseShared(*registration);
        }
    }

    ServiceReferenceBase const reference;
    InterfaceMapConstPtr interfaces; // null until they have been acquired
    bool const fresh;
};

/// Names the use, so that the reference can be found again from the pointer that the user got.
struct UseDeleter {
    Use const* use;

    void operator()(Use const* u) const { delete u; }
};

std::shared_ptr<Use const> use(ServiceReferenceBase const& reference, Instance instance) {
    auto const data = ReferenceData::of(reference);
    auto const registration = data ? data->registration.lock() : nullptr;
    if (!registration) {
        return nullptr;
    }
    bool const fresh = instance == Instance::Fresh && data->record->scope == Scope::Prototype;
    auto* made = new Use(reference, fresh);
    std::shared_ptr<Use const> const used(made, UseDeleter{made});
    if (fresh) {
        std::shared_ptr<ServiceFactory> factory;
        {
            std::lock_guard const lock(data->record->mutex);
            factory = registration->factory();
        }
        made->interfaces = factory ? acquireFresh(*registration, *factory) : nullptr;
    } else {
        made->interfaces = acquireShared(*registration);
    }
    return made->interfaces ? used : nullptr;
}

/// Wraps the exception of a service factory that is being handled.
std::exception_ptr factoryException() {
    std::string text = "unknown";
    try {
        throw;
    } catch (std::exception const& e) {
        text = e.what();
    } catch (...) {
        // Has no text.
    }
    return std::make_exception_ptr(ServiceException(text, ServiceException::FACTORY_EXCEPTION));
}

} // namespace

void sendFactoryError(FrameworkCore& core, char const* message) noexcept {
    core.sendIfPossible([&] {
        return FrameworkEvent(
            FrameworkEvent::FRAMEWORK_ERROR, core.bundle(), message, factoryException());
    });
}

std::shared_ptr<void> useService(ServiceReferenceBase const& reference, Instance instance) {
    auto const used = use(reference, instance);
    return used ? std::shared_ptr<void>(
                      used, ExtractInterface(used->interfaces, reference.GetInterfaceId()).get())
                : nullptr;
}

InterfaceMapConstPtr useInterfaces(ServiceReferenceBase const& reference, Instance instance) {
    auto const used = use(reference, instance);
    if (!used || instance == Instance::Shared) {
        return used ? InterfaceMapConstPtr(used, used->interfaces.get()) : nullptr;
    }
    auto wrapped = std::make_shared<InterfaceMap>();
    for (auto const& entry : *used->interfaces) {
        wrapped->emplace(entry.first, std::shared_ptr<void>(used, entry.second.get()));
    }
    return wrapped;
}

} // namespace detail

ServiceReferenceU ServiceReferenceFromService(std::shared_ptr<void> const& s) {
    auto const* deleter = std::get_deleter<detail::UseDeleter>(s);
    if (!deleter) {
        throw std::runtime_error("The input is not a CppMicroServices managed ServiceObject");
    }
    return deleter->use->reference;
}

} // namespace cppmicroservices
