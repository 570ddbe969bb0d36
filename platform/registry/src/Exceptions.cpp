#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/ServiceException.h"

namespace cppmicroservices {

IllegalStateException::IllegalStateException(std::string what)
    : std::runtime_error(what) {}

IllegalStateException::~IllegalStateException() = default;

ServiceException::ServiceException(std::string const& msg, Type const& type)
    : std::runtime_error(msg)
    , type_(type) {}

ServiceException::~ServiceException() = default;

} // namespace cppmicroservices

std::ostream& operator<<(std::ostream& os, cppmicroservices::ServiceException const& exc) {
    return os << "ServiceException: " << exc.what();
}
