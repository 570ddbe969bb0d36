#include "cppmicroservices/Bundle.h"

#include "FrameworkCore.hpp"

#include "cppmicroservices/Constants.h"

#include <stdexcept>
#include <utility>

namespace cppmicroservices {

Bundle::Bundle() = default;

Bundle::Bundle(std::shared_ptr<detail::FrameworkCore> core)
    : core_(std::move(core))
    , owner_(core_ ? core_->owner() : nullptr) {}

Bundle::Bundle(Bundle const&) = default;

Bundle::Bundle(Bundle&&) noexcept = default;

Bundle& Bundle::operator=(Bundle const&) = default;

Bundle& Bundle::operator=(Bundle&&) noexcept = default;

Bundle& Bundle::operator=(std::nullptr_t) {
    *this = Bundle();
    return *this;
}

Bundle::~Bundle() = default;

detail::FrameworkCore& Bundle::core() const {
    if (!core_) {
        throw std::invalid_argument("invalid bundle");
    }
    return *core_;
}

bool Bundle::operator==(Bundle const& rhs) const {
    return core_ == rhs.core_;
}

bool Bundle::operator<(Bundle const& rhs) const {
    if (!core_ || !rhs.core_) {
        return core_ && !rhs.core_;
    }
    return core_->number() < rhs.core_->number();
}

Bundle::State Bundle::GetState() const {
    return core().state();
}

BundleContext Bundle::GetBundleContext() const {
    return core().context();
}

long Bundle::GetBundleId() const {
    core();
    return 0;
}

std::string Bundle::GetLocation() const {
    core();
    return Constants::SYSTEM_BUNDLE_LOCATION;
}

std::string Bundle::GetSymbolicName() const {
    core();
    return Constants::SYSTEM_BUNDLE_SYMBOLICNAME;
}

BundleVersion Bundle::GetVersion() const {
    core();
    return {3, 8, 12};
}

AnyMap const& Bundle::GetHeaders() const {
    return core().headers();
}

std::vector<ServiceReferenceU> Bundle::GetRegisteredServices() const {
    std::vector<ServiceReferenceU> result;
    for (auto const& registration : core().services().all()) {
        result.emplace_back(registration->reference());
    }
    return result;
}

std::vector<ServiceReferenceU> Bundle::GetServicesInUse() const {
    auto result = GetRegisteredServices();
    std::erase_if(
        result, [](auto const& reference) { return reference.GetUsingBundles().empty(); });
    return result;
}

Bundle::TimeStamp Bundle::GetLastModified() const {
    return core().initialised();
}

void Bundle::Start(std::uint32_t) {
    core().start();
}

void Bundle::Start() {
    Start(0);
}

void Bundle::Stop(std::uint32_t) {
    core().stop();
}

void Bundle::Stop() {
    Stop(0);
}

void Bundle::Uninstall() {
    core();
    throw std::runtime_error("Cannot uninstall a system bundle.");
}

std::ostream& operator<<(std::ostream& os, Bundle::State state) {
    switch (state) {
    case Bundle::STATE_UNINSTALLED:
        return os << "UNINSTALLED";
    case Bundle::STATE_INSTALLED:
        return os << "INSTALLED";
    case Bundle::STATE_RESOLVED:
        return os << "RESOLVED";
    case Bundle::STATE_STARTING:
        return os << "STARTING";
    case Bundle::STATE_STOPPING:
        return os << "STOPPING";
    case Bundle::STATE_ACTIVE:
        return os << "ACTIVE";
    }
    return os;
}

std::ostream& operator<<(std::ostream& os, Bundle const& bundle) {
    return os << "Bundle[id=" << bundle.GetBundleId() << ", loc=" << bundle.GetLocation()
              << ", name=" << bundle.GetSymbolicName() << ", state=" << bundle.GetState() << "]";
}

std::ostream& operator<<(std::ostream& os, Bundle const* bundle) {
    return os << *bundle;
}

std::string BundleVersion::ToString() const {
    return std::to_string(major_) + "." + std::to_string(minor_) + "." + std::to_string(micro_);
}

int BundleVersion::Compare(BundleVersion const& other) const {
    auto const numbers = [](BundleVersion const& v) {
        return std::tuple(v.major_, v.minor_, v.micro_);
    };
    auto const left = numbers(*this);
    auto const right = numbers(other);
    return left == right ? 0 : (left < right ? -1 : 1);
}

std::ostream& operator<<(std::ostream& os, BundleVersion const& version) {
    return os << version.ToString();
}

} // namespace cppmicroservices
