#pragma once

#include <orvi/platform_export.hpp>

#include <ostream>
#include <string>

namespace cppmicroservices {

/// The version of a bundle: three numbers. An immutable value.
class ORVI_PLATFORM_EXPORT BundleVersion {
public:
    BundleVersion(unsigned int majorVersion, unsigned int minorVersion, unsigned int microVersion)
        : major_(majorVersion)
        , minor_(minorVersion)
        , micro_(microVersion) {}

    unsigned int GetMajor() const { return major_; }

    unsigned int GetMinor() const { return minor_; }

    unsigned int GetMicro() const { return micro_; }

    /// Returns "major.minor.micro".
    std::string ToString() const;

    bool operator==(BundleVersion const& other) const { return Compare(other) == 0; }

    /// Returns a negative number, zero or a positive number as this is older, equal or newer.
    int Compare(BundleVersion const& other) const;

private:
    unsigned int major_;
    unsigned int minor_;
    unsigned int micro_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, BundleVersion const& version);

} // namespace cppmicroservices
