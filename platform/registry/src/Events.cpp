#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/ServiceEvent.h"

#include <stdexcept>
#include <utility>

namespace cppmicroservices {

namespace {

std::string textOf(std::exception_ptr const& exception) {
    if (!exception) {
        return "NONE";
    }
    try {
        std::rethrow_exception(exception);
    } catch (std::exception const& e) {
        return e.what();
    } catch (...) {
        return "unknown";
    }
}

} // namespace

struct ServiceEvent::Data {
    Type type;
    ServiceReferenceU reference;
};

ServiceEvent::ServiceEvent(Type type, ServiceReferenceBase const& reference)
    : data_(std::make_shared<Data const>(Data{type, reference})) {}

ServiceReferenceU ServiceEvent::GetServiceReference() const {
    return data_->reference;
}

ServiceEvent::Type ServiceEvent::GetType() const {
    return data_->type;
}

std::ostream& operator<<(std::ostream& os, ServiceEvent::Type const& type) {
    switch (type) {
    case ServiceEvent::SERVICE_REGISTERED:
        return os << "REGISTERED";
    case ServiceEvent::SERVICE_MODIFIED:
        return os << "MODIFIED";
    case ServiceEvent::SERVICE_UNREGISTERING:
        return os << "UNREGISTERING";
    case ServiceEvent::SERVICE_MODIFIED_ENDMATCH:
        return os << "MODIFIED_ENDMATCH";
    }
    return os << "unknown service event type (" << static_cast<std::uint32_t>(type) << ")";
}

std::ostream& operator<<(std::ostream& os, ServiceEvent const& event) {
    if (!event) {
        return os << "NONE";
    }
    os << event.GetType();
    if (auto const reference = event.GetServiceReference()) {
        os << " " << reference.GetProperty(Constants::SERVICE_ID).ToString()
           << " objectClass=" << reference.GetProperty(Constants::OBJECTCLASS).ToString() << ")";
    }
    return os;
}

struct BundleEvent::Data {
    Type type;
    Bundle bundle;
    Bundle origin;
};

BundleEvent::BundleEvent(Type type, Bundle const& bundle)
    : BundleEvent(type, bundle, bundle) {}

BundleEvent::BundleEvent(Type type, Bundle const& bundle, Bundle const& origin)
    : data_(std::make_shared<Data const>(Data{type, bundle, origin})) {
    if (!bundle) {
        throw std::invalid_argument("invalid bundle");
    }
    if (!origin) {
        throw std::invalid_argument("invalid origin");
    }
}

Bundle BundleEvent::GetBundle() const {
    return data_ ? data_->bundle : Bundle();
}

BundleEvent::Type BundleEvent::GetType() const {
    return data_ ? data_->type : BUNDLE_UNINSTALLED;
}

Bundle BundleEvent::GetOrigin() const {
    return data_ ? data_->origin : Bundle();
}

bool BundleEvent::operator==(BundleEvent const& other) const {
    return static_cast<bool>(*this) == static_cast<bool>(other) && GetType() == other.GetType() &&
           GetBundle() == other.GetBundle() && GetOrigin() == other.GetOrigin();
}

std::ostream& operator<<(std::ostream& os, BundleEvent::Type eventType) {
    switch (eventType) {
    case BundleEvent::BUNDLE_INSTALLED:
        return os << "INSTALLED";
    case BundleEvent::BUNDLE_STARTED:
        return os << "STARTED";
    case BundleEvent::BUNDLE_STOPPED:
        return os << "STOPPED";
    case BundleEvent::BUNDLE_UNINSTALLED:
        return os << "UNINSTALLED";
    case BundleEvent::BUNDLE_RESOLVED:
        return os << "RESOLVED";
    case BundleEvent::BUNDLE_UNRESOLVED:
        return os << "UNRESOLVED";
    case BundleEvent::BUNDLE_STARTING:
        return os << "STARTING";
    case BundleEvent::BUNDLE_STOPPING:
        return os << "STOPPING";
    case BundleEvent::BUNDLE_LAZY_ACTIVATION:
        return os << "LAZY_ACTIVATION";
    default:
        return os << "Unknown bundle event type (" << static_cast<std::uint32_t>(eventType) << ")";
    }
}

std::ostream& operator<<(std::ostream& os, BundleEvent const& event) {
    if (!event) {
        return os << "NONE";
    }
    auto const bundle = event.GetBundle();
    return os << event.GetType() << " #" << bundle.GetBundleId() << " (" << bundle.GetSymbolicName()
              << " at " << bundle.GetLocation() << ")";
}

struct FrameworkEvent::Data {
    Type type;
    Bundle bundle;
    std::string message;
    std::exception_ptr exception;
};

FrameworkEvent::FrameworkEvent(
    Type type, Bundle const& bundle, std::string const& message, std::exception_ptr exception)
    : data_(std::make_shared<Data const>(Data{type, bundle, message, std::move(exception)})) {}

Bundle FrameworkEvent::GetBundle() const {
    return data_ ? data_->bundle : Bundle();
}

std::string FrameworkEvent::GetMessage() const {
    return data_ ? data_->message : std::string();
}

std::exception_ptr FrameworkEvent::GetThrowable() const {
    return data_ ? data_->exception : nullptr;
}

FrameworkEvent::Type FrameworkEvent::GetType() const {
    return data_ ? data_->type : FRAMEWORK_ERROR;
}

std::ostream& operator<<(std::ostream& os, FrameworkEvent::Type eventType) {
    switch (eventType) {
    case FrameworkEvent::FRAMEWORK_STARTED:
        return os << "STARTED";
    case FrameworkEvent::FRAMEWORK_ERROR:
        return os << "ERROR";
    case FrameworkEvent::FRAMEWORK_WARNING:
        return os << "WARNING";
    case FrameworkEvent::FRAMEWORK_INFO:
        return os << "INFO";
    case FrameworkEvent::FRAMEWORK_STOPPED:
        return os << "STOPPED";
    case FrameworkEvent::FRAMEWORK_STOPPED_UPDATE:
        return os << "STOPPED_UPDATE";
    case FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT:
        return os << "WAIT_TIMEDOUT";
    }
    return os << "Unknown bundle event type (" << static_cast<std::uint32_t>(eventType) << ")";
}

std::ostream& operator<<(std::ostream& os, FrameworkEvent const& event) {
    if (!event) {
        return os << "NONE";
    }
    return os << event.GetType() << "\n " << event.GetMessage() << "\n " << event.GetBundle()
              << "\n Exception: " << textOf(event.GetThrowable());
}

bool operator==(FrameworkEvent const& left, FrameworkEvent const& right) {
    return left.GetBundle() == right.GetBundle() && left.GetMessage() == right.GetMessage() &&
           left.GetThrowable() == right.GetThrowable() && left.GetType() == right.GetType();
}

} // namespace cppmicroservices
