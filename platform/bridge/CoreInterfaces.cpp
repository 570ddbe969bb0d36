#include <orvi/core/Connectable.hpp>
#include <orvi/core/InvocationErrors.hpp>
#include <orvi/core/Invokable.hpp>
#include <orvi/core/ServiceProvider.hpp>

namespace agent::orvi::core {

// Out of line, so that the types' run-time information exists once, in this library.
Connectable::~Connectable() = default;
Invokable::~Invokable() = default;
ServiceProvider::~ServiceProvider() = default;
ServiceUnavailable::~ServiceUnavailable() = default;
UnknownMethod::~UnknownMethod() = default;

} // namespace agent::orvi::core
