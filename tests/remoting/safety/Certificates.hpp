#pragma once

#include "remoting/discovery/TemporaryDirectory.hpp"

#include <orvi/remoting/TlsFiles.hpp>

#include <filesystem>
#include <string>

namespace agent::orvi::remoting::test {

/// What a certificate says.
struct CertificateText {
    std::string commonName = "somebody";
    std::string alternativeNames = "DNS:localhost,IP:127.0.0.1"; ///< As openssl wants them.
    std::string begin = "20200101000000Z";
    std::string end = "20991231235959Z";
};

/// Certifies whatever it is asked to, with the command `openssl`.
class CertificateAuthority {
public:
    /// Make an authority.
    ///
    /// @throws std::runtime_error when openssl does not work.
    CertificateAuthority();

    /// Make a key and its certificate.
    ///
    /// @param name a name of the files that was not used before.
    /// @return the files of a side that trusts this authority.
    TlsFiles certify(const std::string& name, const CertificateText& text = {});

    /// The authority's own certificate.
    std::filesystem::path certificate() const { return directory.path / "authority.pem"; }

private:
    void run(const std::string& commands) const;

    TemporaryDirectory directory;
};

/// Return what is in a file.
std::string contentOf(const std::filesystem::path& file);

/// Replace the files of one side by those of another, each at once.
void replace(const TlsFiles& old, const TlsFiles& by);

} // namespace agent::orvi::remoting::test
