#include "cppmicroservices/BundleContext.h"

#include "FrameworkCore.hpp"
#include "ServiceUse.hpp"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/Constants.h"

#include <stdexcept>
#include <utility>

namespace cppmicroservices {

using detail::ContextData;
using detail::Instance;

namespace {

void requireValid(ServiceReferenceBase const& reference) {
    if (!reference) {
        throw std::invalid_argument(
            "Default constructed ServiceReference is not a valid input to GetService()");
    }
}

} // namespace

BundleContext::BundleContext() = default;

BundleContext::BundleContext(std::shared_ptr<ContextData> data)
    : data_(std::move(data)) {}

BundleContext::BundleContext(BundleContext const&) = default;

BundleContext::BundleContext(BundleContext&&) noexcept = default;

BundleContext& BundleContext::operator=(BundleContext const&) = default;

BundleContext& BundleContext::operator=(BundleContext&&) noexcept = default;

BundleContext& BundleContext::operator=(std::nullptr_t) {
    data_ = nullptr;
    return *this;
}

BundleContext::~BundleContext() = default;

bool BundleContext::operator==(BundleContext const& rhs) const {
    return *this && rhs ? data_ == rhs.data_ : !*this && !rhs;
}

bool BundleContext::operator<(BundleContext const& rhs) const {
    return *this && rhs ? data_ < rhs.data_ : *this && !rhs;
}

BundleContext::operator bool() const {
    return data_ && data_->valid;
}

Any BundleContext::GetProperty(std::string const& key) const {
    return ContextData::check(data_)->property(key);
}

AnyMap BundleContext::GetProperties() const {
    return ContextData::check(data_)->properties();
}

Bundle BundleContext::GetBundle() const {
    return ContextData::check(data_)->bundle();
}

Bundle BundleContext::GetBundle(long id) const {
    auto const core = ContextData::check(data_);
    return id == 0 ? core->bundle() : Bundle();
}

std::vector<Bundle> BundleContext::GetBundles(std::string const& location) const {
    auto const core = ContextData::check(data_);
    return location == Constants::SYSTEM_BUNDLE_LOCATION ? std::vector<Bundle>{core->bundle()}
                                                         : std::vector<Bundle>();
}

std::vector<Bundle> BundleContext::GetBundles() const {
    return {ContextData::check(data_)->bundle()};
}

ServiceRegistrationU BundleContext::RegisterService(
    InterfaceMapConstPtr const& service, ServiceProperties const& properties) {
    return ContextData::check(data_)->registerService(service, properties)->handle();
}

std::vector<ServiceReferenceU>
BundleContext::GetServiceReferences(std::string const& clazz, std::string const& filter) {
    return ContextData::check(data_)->find(*this, clazz, filter);
}

ServiceReferenceU BundleContext::GetServiceReference(std::string const& clazz) {
    return ContextData::check(data_)->findFirst(*this, clazz);
}

std::shared_ptr<void> BundleContext::GetService(ServiceReferenceBase const& reference) {
    requireValid(reference);
    auto const core = ContextData::check(data_);
    return detail::useService(reference, Instance::Shared);
}

InterfaceMapConstPtr BundleContext::GetService(ServiceReferenceU const& reference) {
    requireValid(reference);
    auto const core = ContextData::check(data_);
    return detail::useInterfaces(reference, Instance::Shared);
}

ListenerToken
BundleContext::AddServiceListener(ServiceListener const& listener, std::string const& filter) {
    return ListenerToken(ContextData::check(data_)->addServiceListener(data_, listener, filter));
}

ListenerToken BundleContext::AddBundleListener(BundleListener const& listener) {
    return ListenerToken(ContextData::check(data_)->addBundleListener(listener));
}

ListenerToken BundleContext::AddFrameworkListener(FrameworkListener const& listener) {
    return ListenerToken(ContextData::check(data_)->addFrameworkListener(listener));
}

void BundleContext::RemoveListener(ListenerToken token) {
    ContextData::check(data_)->removeListener(token.id_);
}

} // namespace cppmicroservices
