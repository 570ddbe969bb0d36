#include "grpc/Credentials.hpp"

#include "grpc/Throughput.hpp"
#include "wire/FrameLimits.hpp"

#include <grpcpp/security/tls_certificate_provider.h>
#include <grpcpp/security/tls_credentials_options.h>

#include <cerrno>
#include <fstream>
#include <system_error>

namespace agent::orvi::remoting::details {
namespace {

using grpc::experimental::FileWatcherCertificateProvider;

constexpr unsigned int lookAtFilesAgainSeconds = 1;

void checkReadable(const std::filesystem::path& file) {
    errno = 0;
    std::ifstream stream(file);
    if (!stream || stream.peek() == std::ifstream::traits_type::eof()) {
        throw std::system_error(
            errno != 0 ? errno : EINVAL, std::generic_category(),
            "Cannot read \"" + file.string() + "\"");
    }
}

std::shared_ptr<FileWatcherCertificateProvider> watch(const TlsFiles& files) {
    checkReadable(files.certificates);
    checkReadable(files.privateKey);
    checkReadable(files.authorities);
    return std::make_shared<FileWatcherCertificateProvider>(
        files.privateKey, files.certificates, files.authorities, lookAtFilesAgainSeconds);
}

} // namespace

grpc::ChannelArguments clientArguments(Keepalive keepalive) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(static_cast<int>(maximumFrameSize));
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, static_cast<int>(keepalive.time.count()));
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, static_cast<int>(keepalive.timeout.count()));
    arguments.SetInt(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 1);
    arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    arguments.SetInt(GRPC_ARG_HTTP2_WRITE_BUFFER_SIZE, bytesSentTogether);
    // Each connection is one of ours alone, and a call that was lost must not be sent twice.
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
    arguments.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    arguments.SetInt(GRPC_ARG_SERVICE_CONFIG_DISABLE_RESOLUTION, 1);
    return arguments;
}

std::shared_ptr<grpc::ChannelCredentials> clientCredentials(const TlsFiles& files) {
    grpc::experimental::TlsChannelCredentialsOptions options;
    options.set_certificate_provider(watch(files));
    options.watch_root_certs();
    options.watch_identity_key_cert_pairs();
    return grpc::experimental::TlsCredentials(options);
}

std::shared_ptr<grpc::ServerCredentials> serverCredentials(const TlsFiles& files) {
    grpc::experimental::TlsServerCredentialsOptions options(watch(files));
    options.watch_root_certs();
    options.watch_identity_key_cert_pairs();
    options.set_cert_request_type(GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
    return grpc::experimental::TlsServerCredentials(options);
}

} // namespace agent::orvi::remoting::details
