#pragma once

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <string>

namespace agent::orvi::bench {

/// Return whether this process knows a stream, because somebody looks for it or has just done so.
inline bool isKnown(const boost::uuids::uuid& uuid) {
    auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
    const std::string filter =
        "(orvi.servicename=orviStreambuf_" + boost::uuids::to_string(uuid) + ")";
    return !context.GetServiceReferences<core::Invokable>(filter).empty();
}

} // namespace agent::orvi::bench
