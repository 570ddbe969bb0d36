#include "bridge/InterfaceDirectory.hpp"

#include "bridge/LocalInvokable.hpp"
#include "bridge/ProcessEnd.hpp"

#include <cppmicroservices/ServiceProperties.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace agent::orvi::core::detail {
namespace {

cppmicroservices::ServiceProperties
registrationProperties(const ServiceInterface& description, bool exported) {
    cppmicroservices::ServiceProperties properties;
    if (exported) {
        properties["service.exported.interfaces"] = std::string("*");
    }
    properties["orvi.servicename"] = description.name();
    for (const auto& [key, value] : description.metadata()) {
        properties["orvi.serviceproperty." + key] = value;
    }
    return properties;
}

void unregister(cppmicroservices::ServiceRegistrationBase& registration) noexcept {
    try {
        if (registration && !ProcessEnd::hasBegun()) {
            registration.Unregister();
        }
    } catch (...) {
        // A framework that has stopped has dropped the service already.
    }
}

} // namespace

InterfaceDirectory& InterfaceDirectory::ofProcess() {
    static InterfaceDirectory& directory = *new InterfaceDirectory;
    return directory;
}

void InterfaceDirectory::provide(
    OfferingProvider& entry, const cppmicroservices::BundleContext& context,
    const std::shared_ptr<ServiceProvider>& provider, std::vector<ServiceInterface> interfaces) {
    if (!addOffers(entry, context, provider, std::move(interfaces))) {
        return;
    }
    for (const auto& offer : entry.offers) {
        try {
            publish(offer->description.name(), {offer->number, offer->number});
        } catch (const std::bad_alloc&) {
            throw;
        } catch (...) {
            // The provider's registration stands for itself; this interface is not reachable.
        }
    }
}

/// Let a provider offer its interfaces unless it does so already: all of them or none.
///
/// @return false when it is gone.
bool InterfaceDirectory::addOffers(
    OfferingProvider& provider, const cppmicroservices::BundleContext& context,
    const std::shared_ptr<ServiceProvider>& service, std::vector<ServiceInterface> interfaces) {
    const std::lock_guard lock(mutex);
    if (provider.gone || !provider.offers.empty()) {
        return !provider.gone;
    }
    std::vector<std::shared_ptr<const Offer>> offers;
    offers.reserve(interfaces.size());
    for (ServiceInterface& interface : interfaces) {
        offers.push_back(std::make_shared<const Offer>(
            Offer{++lastNumber, context, service, std::move(interface)}));
    }
    try {
        for (const auto& offer : offers) {
            entries[offer->description.name()].offers.push_back(offer);
        }
    } catch (...) {
        removeOffers(offers);
        throw;
    }
    provider.offers = std::move(offers);
    return true;
}

void InterfaceDirectory::refuse(OfferingProvider& provider) noexcept {
    const std::lock_guard lock(mutex);
    provider.gone = true;
    removeOffers(provider.offers);
}

void InterfaceDirectory::close(const OfferingProvider& provider) noexcept {
    for (const auto& offer : provider.offers) {
        closeWithdrawn(offer->description.name(), {offer->number, offer->number});
    }
}

void InterfaceDirectory::removeOffers(
    const std::vector<std::shared_ptr<const Offer>>& offers) noexcept {
    for (const auto& offer : offers) {
        const auto entry = entries.find(offer->description.name());
        if (entry == entries.end()) {
            continue;
        }
        std::erase(entry->second.offers, offer);
        for (const auto& publication : entry->second.publications) {
            if (publication->offerNumber == offer->number) {
                publication->withdrawn = true;
            }
        }
        eraseIfUnused(entry);
    }
}

void InterfaceDirectory::configure(const std::string& name, bool everywhere) {
    {
        const std::lock_guard lock(mutex);
        Entry& entry = entries[name];
        ++entry.configurations;
        entry.exports += everywhere ? 1 : 0;
    }
    try {
        publish(name, {});
        showExports(name);
    } catch (...) {
        unconfigure(name, everywhere);
        throw;
    }
}

void InterfaceDirectory::unconfigure(const std::string& name, bool everywhere) noexcept {
    {
        const std::lock_guard lock(mutex);
        const auto entry = entries.find(name);
        entry->second.exports -= everywhere ? 1 : 0;
        if (--entry->second.configurations == 0) {
            for (const auto& publication : entry->second.publications) {
                publication->withdrawn = true;
            }
            eraseIfUnused(entry);
        }
    }
    // Also waits for what others are closing: it may be what this configuration was made for.
    closeWithdrawn(name, {});
    try {
        if (!ProcessEnd::hasBegun()) {
            showExports(name);
        }
    } catch (...) {
        // A framework that has stopped has dropped the service already. Where there is no memory,
        // the service goes on saying that it is for other processes.
    }
}

bool InterfaceDirectory::isExported(const std::string& name) const {
    const auto entry = entries.find(name);
    return entry != entries.end() && entry->second.exports > 0;
}

/// Let the services of a name say whether they are for other processes, too.
void InterfaceDirectory::showExports(const std::string& name) {
    std::vector<std::shared_ptr<Publication>> different;
    {
        const std::lock_guard lock(mutex);
        const auto entry = entries.find(name);
        if (entry == entries.end()) {
            return;
        }
        for (const auto& publication : entry->second.publications) {
            if (publication->shownAsExported != isExported(name)) {
                different.push_back(publication);
            }
        }
    }
    for (const auto& publication : different) {
        showExport(publication);
    }
}

void InterfaceDirectory::showExport(const std::shared_ptr<Publication>& publication) {
    const CallGate::Call call(*publication);
    if (!call) {
        return;
    }
    std::unique_lock lock(mutex);
    // One thread at a time, or the last one to arrive at the registry might be the wrong one.
    while (!publication->showing && !publication->withdrawn && publication->registration &&
           publication->shownAsExported != isExported(publication->name())) {
        const bool exported = !publication->shownAsExported;
        auto registration = publication->registration;
        publication->showing = true;
        lock.unlock();
        std::exception_ptr error;
        try {
            registration.SetProperties(
                registrationProperties(publication->offer().description, exported));
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        publication->showing = false;
        if (!error) {
            publication->shownAsExported = exported; // else the next change tries again
        } else if (!publication->withdrawn) {
            std::rethrow_exception(error);
        }
    }
}

/// Add a publication of the first offer that should have one and has none.
std::shared_ptr<Publication>
InterfaceDirectory::addNextPublication(const std::string& name, Range offers) {
    const std::lock_guard lock(mutex);
    const auto found = entries.find(name);
    if (found == entries.end() || found->second.configurations == 0) {
        return nullptr;
    }
    Entry& entry = found->second;
    for (const auto& offer : entry.offers) {
        const bool published = std::any_of(
            entry.publications.begin(), entry.publications.end(), [&](const auto& publication) {
                return publication->offerNumber == offer->number && !publication->withdrawn;
            });
        if (offer->number >= offers.first && offer->number <= offers.last && !published) {
            return entry.publications.emplace_back(
                std::make_shared<Publication>(*this, ++lastNumber, offer));
        }
    }
    return nullptr;
}

void InterfaceDirectory::publish(const std::string& name, Range offers) {
    while (const auto publication = addNextPublication(name, offers)) {
        offers.first = publication->offerNumber + 1;
        try {
            registerService(publication);
        } catch (...) {
            {
                const std::lock_guard lock(mutex);
                publication->withdrawn = true;
            }
            closeWithdrawn(name, {publication->offerNumber, publication->offerNumber});
            throw;
        }
    }
}

void InterfaceDirectory::registerService(const std::shared_ptr<Publication>& publication) {
    cppmicroservices::BundleContext context;
    cppmicroservices::ServiceProperties properties;
    std::shared_ptr<LocalInvokable> service;
    {
        const CallGate::Call call(*publication);
        if (!call) {
            return;
        }
        context = publication->offer().context;
        {
            const std::lock_guard lock(mutex);
            publication->shownAsExported = isExported(publication->name());
        }
        properties =
            registrationProperties(publication->offer().description, publication->shownAsExported);
        service = std::make_shared<LocalInvokable>(publication);
    }
    auto registration = context.RegisterService<Invokable>(service, properties);
    bool withdrawn = false;
    {
        const std::lock_guard lock(mutex);
        withdrawn = publication->withdrawn;
        if (!withdrawn) {
            publication->registration = registration;
        }
    }
    if (withdrawn) {
        // Whoever withdrew it found no registration to end.
        unregister(registration);
    } else {
        showExport(publication);
    }
}

void InterfaceDirectory::closeWithdrawn(const std::string& name, Range offers) noexcept {
    // A publication stays in the list while a call of this very thread is inside: the numbers tell
    // which ones have been closed here.
    std::uint64_t last = 0;
    for (;;) {
        std::shared_ptr<Publication> publication;
        cppmicroservices::ServiceRegistration<Invokable> registration;
        {
            const std::lock_guard lock(mutex);
            const auto entry = entries.find(name);
            if (entry == entries.end()) {
                return;
            }
            auto& publications = entry->second.publications;
            const auto found =
                std::find_if(publications.begin(), publications.end(), [&](const auto& candidate) {
                    return candidate->withdrawn && candidate->number > last &&
                           candidate->offerNumber >= offers.first &&
                           candidate->offerNumber <= offers.last;
                });
            if (found == publications.end()) {
                return;
            }
            publication = *found;
            registration = std::exchange(publication->registration, {});
        }
        last = publication->number;
        unregister(registration);
        publication->close();
    }
}

void InterfaceDirectory::forget(const Publication& publication) noexcept {
    std::list<std::shared_ptr<Publication>> forgotten; // released after the lock
    const std::lock_guard lock(mutex);
    const auto entry = entries.find(publication.name());
    auto& publications = entry->second.publications;
    const auto found =
        std::find_if(publications.begin(), publications.end(), [&](const auto& candidate) {
            return candidate.get() == &publication;
        });
    forgotten.splice(forgotten.begin(), publications, found);
    eraseIfUnused(entry);
}

void InterfaceDirectory::eraseIfUnused(Entries::iterator entry) noexcept {
    const Entry& used = entry->second;
    if (used.configurations == 0 && used.offers.empty() && used.publications.empty()) {
        entries.erase(entry);
    }
}

} // namespace agent::orvi::core::detail
