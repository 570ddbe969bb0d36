#pragma once

#include <tuple>

namespace agent::orvi::core {

/// The version of a service interface. A value.
class APIVersion {
public:
    /// Make the version `major`.`minor`.
    constexpr APIVersion(unsigned int major, unsigned int minor) noexcept
        : majorNumber(major)
        , minorNumber(minor) {}

    /// Return the number that changes when callers must change.
    constexpr unsigned int major() const noexcept { return majorNumber; }

    /// Return the number that changes when something is added.
    constexpr unsigned int minor() const noexcept { return minorNumber; }

    friend constexpr bool operator==(const APIVersion& a, const APIVersion& b) noexcept {
        return a.majorNumber == b.majorNumber && a.minorNumber == b.minorNumber;
    }

    friend constexpr bool operator!=(const APIVersion& a, const APIVersion& b) noexcept {
        return !(a == b);
    }

    friend constexpr bool operator<(const APIVersion& a, const APIVersion& b) noexcept {
        return std::tie(a.majorNumber, a.minorNumber) < std::tie(b.majorNumber, b.minorNumber);
    }

private:
    unsigned int majorNumber;
    unsigned int minorNumber;
};

} // namespace agent::orvi::core
