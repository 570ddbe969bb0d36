#pragma once

#include <orvi/remoting/TlsFiles.hpp>

#include <memory>
#include <mutex>
#include <string>

namespace agent::orvi::remoting::details {

/// What one side of a connection identifies itself and the other one with, in PEM form.
struct Identification {
    std::string certificates;
    std::string privateKey;
    std::string authorities;

    friend bool operator==(const Identification&, const Identification&) = default;
};

/// The files of one side, which may change at any time, one after another and not at once. What
/// they contain is used only when all of it fits together; until it does, what they contained
/// before remains in use.
///
/// Thread safety: thread-safe.
class CertificateFiles {
public:
    /// Read the files.
    ///
    /// @throws std::system_error when one of them cannot be read, with its path.
    /// @throws UnusableTlsFile when there is no use for what they contain; says why.
    explicit CertificateFiles(TlsFiles files);

    /// Look at the files again, and return what new connections use. The same object as long as
    /// nothing has changed.
    std::shared_ptr<const Identification> current();

private:
    const TlsFiles files;

    std::mutex mutex;
    std::shared_ptr<const Identification> used;
};

} // namespace agent::orvi::remoting::details
