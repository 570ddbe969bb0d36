#include "cppmicroservices/ServiceObjects.h"

#include "ServiceUse.hpp"

#include <stdexcept>
#include <utility>

namespace cppmicroservices {

using detail::Instance;

struct ServiceObjectsBase::Data {
    BundleContext context;
    ServiceReferenceBase reference;
};

ServiceObjectsBase::ServiceObjectsBase(BundleContext context, ServiceReferenceBase const& reference)
    : data_(std::make_unique<Data>(Data{std::move(context), reference})) {
    if (!reference) {
        throw std::invalid_argument("The service reference is invalid");
    }
}

ServiceObjectsBase::ServiceObjectsBase(ServiceObjectsBase&&) noexcept = default;

ServiceObjectsBase& ServiceObjectsBase::operator=(ServiceObjectsBase&&) noexcept = default;

ServiceObjectsBase::~ServiceObjectsBase() = default;

std::shared_ptr<void> ServiceObjectsBase::GetService() const {
    return data_->reference ? detail::useService(data_->reference, Instance::Fresh) : nullptr;
}

InterfaceMapConstPtr ServiceObjectsBase::GetServiceInterfaceMap() const {
    return data_->reference ? detail::useInterfaces(data_->reference, Instance::Fresh) : nullptr;
}

ServiceReferenceBase ServiceObjectsBase::GetReference() const {
    return data_->reference;
}

} // namespace cppmicroservices
