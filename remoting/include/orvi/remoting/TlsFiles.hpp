#pragma once

#include <filesystem>

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

} // namespace agent::orvi::remoting
