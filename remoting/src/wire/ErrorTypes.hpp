#pragma once

#include "wire/Messages.hpp"

#include <exception>
#include <span>
#include <string_view>

namespace agent::orvi::remoting::details {

/// A type of exceptions that comes back as what it was; docs/protocol.md has the same table.
struct ErrorType {
    std::string_view name; ///< In the protocol.

    /// Say whether an exception is exactly of this type.
    bool (*matches)(const std::exception& error);

    /// Add what the type has beyond its text.
    ///
    /// @return false when it is nothing that travels.
    bool (*describe)(const std::exception& error, v1::Failure& failure);

    /// Make the exception that a failure describes. Null when the details do not fit the type.
    std::exception_ptr (*make)(const v1::Failure& failure);
};

/// Return all of them.
std::span<const ErrorType> errorTypes() noexcept;

} // namespace agent::orvi::remoting::details
