#pragma once

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ShrinkableVector.h"

#include <string>

namespace cppmicroservices {

class BundleContext;
class ServiceReferenceBase;

/// A service that can hide services from look-ups.
///
/// Register an implementation under this interface. What it throws becomes a FRAMEWORK_WARNING.
/// Implementations must be thread-safe.
struct ORVI_PLATFORM_EXPORT ServiceFindHook {
    virtual ~ServiceFindHook();

    /// Called with the result of each look-up that finds anything.
    /// @param name The interface that is looked for, empty for any.
    /// @param filter The text of the filter, empty for none.
    /// @param references The result, from which the hook may remove.
    virtual void Find(
        BundleContext const& context, std::string const& name, std::string const& filter,
        ShrinkableVector<ServiceReferenceBase>& references) = 0;
};

} // namespace cppmicroservices
