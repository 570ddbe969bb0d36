#pragma once

#include "bridge/Publication.hpp"

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistrationBase.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace agent::orvi::core::detail {

/// A registered provider.
struct OfferingProvider {
    /// Whether it could be taken in with the memory that there was.
    enum class Taken { once, missed, again };

    // The bridge's, under its lock:
    Taken taken = Taken::once;

    // The directory's, under its lock:
    std::vector<std::shared_ptr<const Offer>> offers;
    bool gone = false;
};

/// Brings together the interfaces that registered providers offer and those that configurations
/// name: each that is both is published as an `Invokable`.
///
/// Thread safety: thread-safe. No lock is held while a registry, a provider or a destructor of
/// theirs runs.
class InterfaceDirectory {
public:
    /// The one of this process. It is never destroyed: objects of static lifetime may outlive
    /// everything else.
    static InterfaceDirectory& ofProcess();

    InterfaceDirectory() = default;
    InterfaceDirectory(const InterfaceDirectory&) = delete;
    InterfaceDirectory& operator=(const InterfaceDirectory&) = delete;

    /// Offer the interfaces of a provider and publish those that a configuration names, in the
    /// registry of `context`. Does nothing for a provider that is gone. One that the registry
    /// refuses is not reachable.
    ///
    /// @throws std::bad_alloc when memory runs out. What is missing then is made up for by the next
    ///         call, which must not run at the same time.
    void provide(
        OfferingProvider& entry, const cppmicroservices::BundleContext& context,
        const std::shared_ptr<ServiceProvider>& provider, std::vector<ServiceInterface> interfaces);

    /// End the offers of a provider, which is gone from now on.
    void refuse(OfferingProvider& provider) noexcept;

    /// Close what a refused provider has offered. None of its methods runs any more when this
    /// returns; see CallGate::close.
    void close(const OfferingProvider& provider) noexcept;

    /// Count one more configuration that names an interface and publish what is offered under that
    /// name. What the registry throws passes unchanged; the configuration does not count then.
    ///
    /// @param everywhere the interface is for other processes, too: its services have the property
    ///        "service.exported.interfaces" while one configuration says so.
    void configure(const std::string& name, bool everywhere);

    /// Count one configuration less, which was given with the same arguments. After the last, none
    /// of the interface's methods runs any more when this returns; see CallGate::close.
    void unconfigure(const std::string& name, bool everywhere) noexcept;

private:
    friend class Publication;

    struct Entry {
        std::size_t configurations = 0;
        std::size_t exports = 0;                          // configurations for other processes, too
        std::vector<std::shared_ptr<const Offer>> offers; // in order of their numbers
        std::list<std::shared_ptr<Publication>> publications; // until their last calls have ended
    };

    using Entries = std::unordered_map<std::string, Entry>;

    // Numbers of offers, the last one included.
    struct Range {
        std::uint64_t first = 0;
        std::uint64_t last = std::numeric_limits<std::uint64_t>::max();
    };

    bool addOffers(
        OfferingProvider& provider, const cppmicroservices::BundleContext& context,
        const std::shared_ptr<ServiceProvider>& service, std::vector<ServiceInterface> interfaces);
    void removeOffers(const std::vector<std::shared_ptr<const Offer>>& offers) noexcept;
    std::shared_ptr<Publication> addNextPublication(const std::string& name, Range offers);
    void publish(const std::string& name, Range offers);
    void showExports(const std::string& name);
    void showExport(const std::shared_ptr<Publication>& publication);
    bool isExported(const std::string& name) const;
    void registerService(const std::shared_ptr<Publication>& publication);
    void closeWithdrawn(const std::string& name, Range offers) noexcept;
    void forget(const Publication& publication) noexcept;
    void eraseIfUnused(Entries::iterator entry) noexcept;

    std::mutex mutex;
    std::uint64_t lastNumber = 0;
    Entries entries;
};

} // namespace agent::orvi::core::detail
