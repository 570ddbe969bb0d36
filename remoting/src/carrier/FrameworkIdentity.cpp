#include "carrier/FrameworkIdentity.hpp"

#include <cppmicroservices/Constants.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace agent::orvi::remoting::details {

std::string frameworkIdentity(cppmicroservices::BundleContext context) {
    if constexpr (ORVI_FRAMEWORK_UUID_IS_UNIQUE) {
        return cppmicroservices::any_cast<std::string>(
            context.GetProperty(cppmicroservices::Constants::FRAMEWORK_UUID));
    } else {
        static const std::string identity =
            boost::uuids::to_string(boost::uuids::random_generator()());
        return identity;
    }
}

} // namespace agent::orvi::remoting::details
