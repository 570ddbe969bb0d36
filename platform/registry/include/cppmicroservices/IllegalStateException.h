#pragma once

#include <orvi/platform_export.hpp>

#include <stdexcept>
#include <string>

namespace cppmicroservices {

/// Reports the use of a bundle context that is no longer valid.
class ORVI_PLATFORM_EXPORT IllegalStateException final : public std::runtime_error {
public:
    explicit IllegalStateException(std::string what);
    IllegalStateException(IllegalStateException const&) = default;
    IllegalStateException& operator=(IllegalStateException const&) = default;
    ~IllegalStateException() override;
};

} // namespace cppmicroservices
