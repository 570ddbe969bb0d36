#include "cppmicroservices/ServiceReferenceBase.h"

#include "FrameworkCore.hpp"
#include "ServiceRecord.hpp"

#include <atomic>
#include <utility>

namespace cppmicroservices {

using detail::ReferenceData;

// A reference may be assigned to while another thread copies it, hence the atomic access. The
// functions for it, unlike std::atomic<std::shared_ptr>, give the class one layout in all language
// versions.
std::shared_ptr<ReferenceData const> ServiceReferenceBase::load() const {
    return std::atomic_load(&data_);
}

void ServiceReferenceBase::store(std::shared_ptr<ReferenceData const> data) {
    std::atomic_store(&data_, std::move(data));
}

ServiceReferenceBase::ServiceReferenceBase() = default;

ServiceReferenceBase::ServiceReferenceBase(std::shared_ptr<ReferenceData const> data)
    : data_(std::move(data)) {}

ServiceReferenceBase::ServiceReferenceBase(ServiceReferenceBase const& ref)
    : data_(ref.load()) {}

ServiceReferenceBase& ServiceReferenceBase::operator=(ServiceReferenceBase const& reference) {
    store(reference.load());
    return *this;
}

ServiceReferenceBase& ServiceReferenceBase::operator=(std::nullptr_t) {
    store(nullptr);
    return *this;
}

ServiceReferenceBase::~ServiceReferenceBase() = default;

void ServiceReferenceBase::SetInterfaceId(std::string const& interfaceId) {
    if (auto const data = load()) {
        store(std::make_shared<ReferenceData const>(
            ReferenceData{data->registration, data->record, interfaceId}));
    }
}

ServiceReferenceBase::operator bool() const {
    auto const data = load();
    if (!data || data->registration.expired()) {
        return false;
    }
    std::lock_guard const lock(data->record->mutex);
    return !data->record->core.expired();
}

bool ServiceReferenceBase::isLeaving() const {
    auto const data = load();
    if (!data) {
        return true;
    }
    std::lock_guard const lock(data->record->mutex);
    return data->record->unregistering || data->record->unregistered;
}

Any ServiceReferenceBase::GetProperty(std::string const& key) const {
    if (auto const data = load()) {
        auto const properties = data->record->properties();
        auto const found = properties->find(key);
        if (found != properties->end()) {
            return found->second;
        }
    }
    return Any();
}

std::vector<std::string> ServiceReferenceBase::GetPropertyKeys() const {
    std::vector<std::string> keys;
    if (auto const data = load()) {
        auto const properties = data->record->properties();
        for (auto const& entry : *properties) {
            keys.push_back(entry.first);
        }
    }
    return keys;
}

void ServiceReferenceBase::GetPropertyKeys(std::vector<std::string>& keys) const {
    keys = GetPropertyKeys();
}

Bundle ServiceReferenceBase::GetBundle() const {
    auto const data = load();
    if (!data || data->registration.expired()) {
        return Bundle();
    }
    std::shared_ptr<detail::FrameworkCore> core;
    {
        std::lock_guard const lock(data->record->mutex);
        core = data->record->core.lock();
    }
    return core ? core->bundle() : Bundle();
}

std::vector<Bundle> ServiceReferenceBase::GetUsingBundles() const {
    auto const data = load();
    std::shared_ptr<detail::FrameworkCore> core;
    if (data) {
        std::lock_guard const lock(data->record->mutex);
        core = data->record->uses > 0 ? data->record->core.lock() : nullptr;
    }
    return core ? std::vector<Bundle>{core->bundle()} : std::vector<Bundle>();
}

std::string ServiceReferenceBase::GetInterfaceId() const {
    auto const data = load();
    return data ? data->interfaceId : std::string();
}

bool ServiceReferenceBase::IsConvertibleTo(std::string const& interfaceid) const {
    auto const data = load();
    auto const registration = data ? data->registration.lock() : nullptr;
    if (!registration) {
        return false;
    }
    std::lock_guard const lock(data->record->mutex);
    return registration->service && registration->service->count(interfaceid) != 0;
}

bool ServiceReferenceBase::operator<(ServiceReferenceBase const& reference) const {
    auto const left = load();
    auto const right = reference.load();
    if (!left || !right) {
        return !left && right;
    }
    auto const leftRanking = left->record->ranking();
    auto const rightRanking = right->record->ranking();
    return leftRanking != rightRanking ? leftRanking < rightRanking
                                       : left->record->id > right->record->id;
}

bool ServiceReferenceBase::operator==(ServiceReferenceBase const& reference) const {
    auto const left = load();
    auto const right = reference.load();
    return (left ? left->record : nullptr) == (right ? right->record : nullptr);
}

std::size_t ServiceReferenceBase::Hash() const {
    auto const data = load();
    return std::hash<std::shared_ptr<detail::ServiceRecord>>()(data ? data->record : nullptr);
}

std::ostream& operator<<(std::ostream& os, ServiceReferenceBase const& serviceRef) {
    auto const bundle = serviceRef.GetBundle();
    if (!bundle) {
        return os << "Invalid service reference";
    }
    os << "Reference for service object registered from " << bundle.GetSymbolicName() << " "
       << bundle.GetVersion() << " (";
    char const* separator = "";
    for (auto const& key : serviceRef.GetPropertyKeys()) {
        os << separator << key << "=" << serviceRef.GetProperty(key).ToStringNoExcept();
        separator = ",";
    }
    return os << ")";
}

} // namespace cppmicroservices
