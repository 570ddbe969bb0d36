#include "remoting/Certificates.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace agent::orvi::bench {

Certificates certificatesIn(const std::filesystem::path& folder) {
    return {folder / "authority.pem", folder / "certificate.pem", folder / "key.pem"};
}

void makeCertificates(const std::filesystem::path& folder) {
    const std::string commands =
        "exec >openssl.log 2>&1\n"
        "new='-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes'\n"
        "openssl req -x509 $new -days 2 -subj /CN=authority"
        " -keyout authority-key.pem -out authority.pem &&\n"
        "openssl req -new $new -subj /CN=bench"
        " -addext subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout key.pem -out request.pem &&\n"
        "openssl x509 -req -in request.pem -days 2 -copy_extensions copy"
        " -CA authority.pem -CAkey authority-key.pem -out certificate.pem\n";
    if (std::system(("cd '" + folder.string() + "' || exit 1\n" + commands).c_str()) != 0) {
        throw std::runtime_error(
            "The command openssl does not make certificates:\n" +
            contentOf(folder / "openssl.log"));
    }
}

std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream;
    stream.exceptions(std::ios_base::failbit | std::ios_base::badbit);
    stream.open(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace agent::orvi::bench
