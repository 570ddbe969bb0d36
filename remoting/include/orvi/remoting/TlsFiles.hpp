#pragma once

#include <orvi/remoting_export.hpp>

#include <filesystem>
#include <stdexcept>

namespace agent::orvi::remoting {

/// The files of one side of a mutually authenticated connection, all in PEM form.
///
/// They are read again when they change: new connections use the new ones, established connections
/// go on. While they cannot be read or do not fit together, because they are being replaced one by
/// one or by mistake, new connections use what was there before. A value.
struct TlsFiles {
    std::filesystem::path certificates; ///< This side's certificate chain, its own first.
    std::filesystem::path privateKey;   ///< The key of this side's own certificate.
    std::filesystem::path authorities;  ///< The certificates that vouch for the other side.
};

/// A file does not contain what it should, or nothing that fits the others; says which and why.
class ORVI_REMOTING_EXPORT UnusableTlsFile : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
    ~UnusableTlsFile() override;
};

} // namespace agent::orvi::remoting
