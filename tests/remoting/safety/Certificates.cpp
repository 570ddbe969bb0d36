#include "remoting/safety/Certificates.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace agent::orvi::remoting::test {
namespace {

constexpr auto newKey = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes";

constexpr auto settings = R"([ca]
default_ca = authority
[authority]
certificate = authority.pem
private_key = authority-key.pem
database = index.txt
serial = serial
new_certs_dir = .
default_md = sha256
policy = policy
copy_extensions = copy
unique_subject = no
[policy]
commonName = supplied
)";

void replaceFile(const std::filesystem::path& old, const std::filesystem::path& by) {
    const std::filesystem::path next = old.string() + ".next";
    std::filesystem::copy_file(by, next, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::rename(next, old);
}

} // namespace

CertificateAuthority::CertificateAuthority() {
    std::ofstream(directory.path / "ca.cnf") << settings;
    std::ofstream(directory.path / "index.txt").flush();
    std::ofstream(directory.path / "serial") << "01\n";
    run(std::string("openssl req -x509 ") + newKey +
        " -days 3650 -subj /CN=authority -keyout authority-key.pem -out authority.pem");
}

TlsFiles CertificateAuthority::certify(const std::string& name, const CertificateText& text) {
    std::string names;
    if (!text.alternativeNames.empty()) {
        names = " -addext subjectAltName=" + text.alternativeNames;
    }
    run(std::string("openssl req -new ") + newKey + " -subj '/CN=" + text.commonName + "'" + names +
        " -keyout " + name + "-key.pem -out " + name + ".csr");
    run("openssl ca -batch -notext -config ca.cnf -startdate " + text.begin + " -enddate " +
        text.end + " -in " + name + ".csr -out " + name + ".pem");
    return {directory.path / (name + ".pem"), directory.path / (name + "-key.pem"), certificate()};
}

void CertificateAuthority::run(const std::string& commands) const {
    const std::string all =
        "cd '" + directory.path.string() + "' && { " + commands + "; } >log 2>&1";
    if (std::system(all.c_str()) != 0) {
        throw std::runtime_error(
            "openssl makes no certificates:\n" + contentOf(directory.path / "log"));
    }
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios_base::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void replace(const TlsFiles& old, const TlsFiles& by) {
    replaceFile(old.privateKey, by.privateKey);
    replaceFile(old.certificates, by.certificates);
    replaceFile(old.authorities, by.authorities);
}

} // namespace agent::orvi::remoting::test
