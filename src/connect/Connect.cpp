#include "connect/RemoteOperations.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Connectable.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceRegistration.h>
#include <cppmicroservices/ServiceTracker.h>

#include <boost/uuid/uuid_io.hpp>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

constexpr std::chrono::seconds lookUpTime{20};

std::string textProperty(const cppmicroservices::ServiceReferenceBase& reference, const char* key) {
    return cppmicroservices::any_cast<std::string>(reference.GetProperty(key));
}

std::uint64_t parseBufferSize(const std::string& text) {
    // The rule is the standard library's; only the texts of its errors differ from one standard
    // library to the next.
    try {
        return std::stoull(text);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument("invalid stoull argument");
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stoull argument out of range");
    }
}

using Tracker = cppmicroservices::ServiceTracker<core::Invokable>;

std::unique_ptr<Tracker> openTracker(
    const cppmicroservices::BundleContext& context, const cppmicroservices::LDAPFilter& filter) {
    for (;;) {
        auto tracker = std::make_unique<Tracker>(context, filter);
        try {
            tracker->Open();
            return tracker;
        } catch (const std::invalid_argument&) {
            // A registry may say so of a service that was there when the tracker looked, and is not
            // any more. There may be another one by now, or later.
        }
    }
}

/// Return the service object for one stream buffer alone, where the service tells its clients
/// apart.
std::shared_ptr<core::Invokable> connect(const std::shared_ptr<core::Invokable>& service) {
    auto* const connectable = dynamic_cast<core::Connectable*>(service.get());
    return connectable != nullptr ? connectable->connect() : service;
}

} // namespace

StreamBuffer makeDevice(const boost::uuids::uuid& uuid, CloseFunction close) {
    ReadFunction read = noReadFunction();
    WriteFunction write = noWriteFunction();
    SeekOffFunction seekoff = noSeekOffFunction();
    SeekPosFunction seekpos = noSeekPosFunction();

    const auto framework = foundation::cppmicroservices::getFramework();
    const auto context = framework->GetBundleContext();
    const std::string id = boost::uuids::to_string(uuid);
    const cppmicroservices::LDAPFilter filter("(orvi.servicename=orviStreambuf_" + id + ")");
    const auto tracker = openTracker(context, filter);
    const std::shared_ptr<core::Invokable> found = tracker->WaitForService(lookUpTime);
    if (!found) {
        throw std::runtime_error(
            "Stream Buffer with orviStreambuf_" + id + " streamId was not found.");
    }

    const auto reference = tracker->GetServiceReference();
    const std::shared_ptr<core::Invokable> service = connect(found);
    const std::string bufferSize = textProperty(reference, "orvi.serviceproperty.bufferSize");
    if (textProperty(reference, "orvi.serviceproperty.hasRead") == "true") {
        read = details::remoteRead(service);
    }
    if (textProperty(reference, "orvi.serviceproperty.hasWrite") == "true") {
        write = details::remoteWrite(service);
    }
    if (textProperty(reference, "orvi.serviceproperty.hasSeekOff") == "true") {
        seekoff = details::remoteSeekOff(service);
    }
    if (textProperty(reference, "orvi.serviceproperty.hasSeekPos") == "true") {
        seekpos = details::remoteSeekPos(service);
    }

    auto record = std::make_shared<details::StreamBufferImpl>(
        uuid, std::move(read), std::move(write), std::move(seekoff), std::move(seekpos),
        std::move(close), parseBufferSize(bufferSize), cppmicroservices::ServiceRegistrationU(),
        frameworksetup::ORVIConfiguration());
    return StreamBuffer(std::move(record));
}

} // namespace agent::orvi::streambuf
