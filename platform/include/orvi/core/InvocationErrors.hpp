#pragma once

#include <orvi/platform_export.hpp>

#include <stdexcept>
#include <string>

namespace agent::orvi::core {

/// The service has been withdrawn, and the call was not run. Or, across processes, the endpoint has
/// closed: then the call may have run or still be running.
class ORVI_PLATFORM_EXPORT ServiceUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ServiceUnavailable() override;
};

/// The service has no method of the name it was asked for: nothing was run.
class ORVI_PLATFORM_EXPORT UnknownMethod : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~UnknownMethod() override;
};

} // namespace agent::orvi::core
