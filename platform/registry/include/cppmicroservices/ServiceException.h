#pragma once

#include <orvi/platform_export.hpp>

#include <ostream>
#include <stdexcept>
#include <string>

namespace cppmicroservices {

/// Reports a problem with a service.
class ORVI_PLATFORM_EXPORT ServiceException : public std::runtime_error {
public:
    /// Classifies the problem.
    enum Type {
        /// No further detail.
        UNSPECIFIED = 0,
        /// The service has been unregistered.
        UNREGISTERED = 1,
        /// A service factory returned an unusable object.
        FACTORY_ERROR = 2,
        /// A service factory threw an exception.
        FACTORY_EXCEPTION = 3,
        /// The service is remote and cannot be reached.
        REMOTE = 5,
        /// A service factory asked for the service that it was making.
        FACTORY_RECURSION = 6
    };

    ServiceException(std::string const& msg, Type const& type = UNSPECIFIED);
    ServiceException(ServiceException const&) = default;
    ServiceException& operator=(ServiceException const&) = default;
    ~ServiceException() override;

    /// Returns the class of the problem.
    Type GetType() const { return type_; }

private:
    Type type_;
};

} // namespace cppmicroservices

/// Writes "ServiceException: " and the text.
ORVI_PLATFORM_EXPORT std::ostream&
operator<<(std::ostream& os, cppmicroservices::ServiceException const& exc);
