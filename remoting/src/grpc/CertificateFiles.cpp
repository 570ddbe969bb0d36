#include "grpc/CertificateFiles.hpp"

#include "discovery/Descriptor.hpp"
#include "discovery/SystemCall.hpp"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace agent::orvi::remoting::details {
namespace {

template <class T, void (*release)(T*)>
struct Releaser {
    void operator()(T* object) const noexcept { release(object); }
};

using Certificate = std::unique_ptr<X509, Releaser<X509, X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY, EVP_PKEY_free>>;

/// A text as OpenSSL reads it. What OpenSSL then notes about errors is forgotten at the end.
class Source {
public:
    explicit Source(const std::string& text)
        : input(BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))) {}

    ~Source() {
        BIO_free(input);
        ERR_clear_error();
    }

    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    Certificate nextCertificate() {
        return Certificate(PEM_read_bio_X509(input, nullptr, &noPassword, nullptr));
    }

    Key key() { return Key(PEM_read_bio_PrivateKey(input, nullptr, &noPassword, nullptr)); }

    /// Say whether what could not be read is the end.
    static bool isAtEnd() { return ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE; }

private:
    /// Without it, OpenSSL would ask on the terminal.
    static int noPassword(char*, int, int, void*) { return -1; }

    BIO* input;
};

std::string contentOf(const std::filesystem::path& file) {
    const auto text = [&] { return "Cannot read \"" + file.string() + "\""; };
    const Descriptor opened(checked(::open(file.c_str(), O_RDONLY | O_CLOEXEC), text));
    std::string content;
    std::array<char, 4096> part;
    ssize_t size = 0;
    do {
        size = ::read(opened.get(), part.data(), part.size());
        if (size > 0) {
            content.append(part.data(), static_cast<std::size_t>(size));
        } else if (size < 0 && errno != EINTR) {
            const int error = errno;
            throw std::system_error(error, std::generic_category(), text());
        }
    } while (size != 0);
    if (content.empty()) {
        throw std::system_error(EINVAL, std::generic_category(), text());
    }
    return content;
}

void demand(bool holds, const std::filesystem::path& file, const char* what) {
    if (!holds) {
        throw UnusableTlsFile('"' + file.string() + "\" " + what);
    }
}

/// Read all certificates, of which the first one is returned.
Certificate readCertificates(const std::filesystem::path& file, const std::string& text) {
    Source source(text);
    Certificate first = source.nextCertificate();
    demand(first != nullptr, file, "contains no certificate.");
    ERR_clear_error();
    while (source.nextCertificate()) {
    }
    demand(Source::isAtEnd(), file, "contains something that is no certificate.");
    return first;
}

/// Read the files, or throw if they do not fit together.
Identification read(const TlsFiles& files) {
    Identification result{
        contentOf(files.certificates), contentOf(files.privateKey), contentOf(files.authorities)};
    const Certificate certificate = readCertificates(files.certificates, result.certificates);
    readCertificates(files.authorities, result.authorities);
    const Key key = Source(result.privateKey).key();
    demand(key != nullptr, files.privateKey, "contains no private key, or one with a password.");
    const bool fits = X509_check_private_key(certificate.get(), key.get()) == 1;
    ERR_clear_error();
    demand(fits, files.privateKey, "contains the key of another certificate.");
    return result;
}

} // namespace

CertificateFiles::CertificateFiles(TlsFiles files)
    : files(std::move(files))
    , used(std::make_shared<const Identification>(read(this->files))) {}

std::shared_ptr<const Identification> CertificateFiles::current() {
    const std::lock_guard lock(mutex);
    try {
        // They are short: reading them costs little beside a handshake, and shows every change.
        if (Identification present = read(files); present != *used) {
            used = std::make_shared<const Identification>(std::move(present));
        }
    } catch (const std::exception&) {
        // Somebody is about to replace them, or has made a mistake.
    }
    return used;
}

} // namespace agent::orvi::remoting::details
