#include "grpc/Credentials.hpp"

#include "grpc/Compression.hpp"
#include "grpc/Throughput.hpp"
#include "wire/FrameLimits.hpp"

#include <grpc/grpc.h>
#include <grpc/grpc_security.h>

#include <exception>
#include <mutex>
#include <string>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

/// Asks for the certificates of each connection anew. The public interface of gRPC has only
/// credentials that read files by themselves, and let nobody in while these do not fit together.
class ServerTls final : public grpc::ServerCredentials {
public:
    explicit ServerTls(const TlsFiles& files)
        : files(files) {}

    void SetAuthMetadataProcessor(const std::shared_ptr<grpc::AuthMetadataProcessor>&) override {}

private:
    int AddPortToServer(const std::string& address, grpc_server* server) override {
        grpc_server_credentials* const credentials =
            grpc_ssl_server_credentials_create_with_options(
                grpc_ssl_server_credentials_create_options_using_config_fetcher(
                    GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY, &fetch, this));
        const int port = grpc_server_add_http2_port(server, address.c_str(), credentials);
        grpc_server_credentials_release(credentials);
        return port;
    }

    static grpc_ssl_certificate_config_reload_status
    fetch(void* self, grpc_ssl_server_certificate_config** configuration) noexcept {
        try {
            return static_cast<ServerTls*>(self)->renew(*configuration);
        } catch (const std::exception&) {
            return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_FAIL; // no memory: the old one remains
        }
    }

    grpc_ssl_certificate_config_reload_status
    renew(grpc_ssl_server_certificate_config*& configuration) {
        auto present = files.current();
        const std::lock_guard lock(mutex);
        if (present == used) {
            return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_UNCHANGED;
        }
        const grpc_ssl_pem_key_cert_pair pair{
            present->privateKey.c_str(), present->certificates.c_str()};
        configuration =
            grpc_ssl_server_certificate_config_create(present->authorities.c_str(), &pair, 1);
        used = std::move(present);
        return GRPC_SSL_CERTIFICATE_CONFIG_RELOAD_NEW;
    }

    CertificateFiles files;

    std::mutex mutex;
    std::shared_ptr<const Identification> used;
};

} // namespace

grpc::ChannelArguments clientArguments(Keepalive keepalive) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(static_cast<int>(maximumFrameSize));
    arguments.SetInt(GRPC_COMPRESSION_CHANNEL_ENABLED_ALGORITHMS_BITSET, noCompression);
    arguments.SetInt(GRPC_ARG_ENABLE_PER_MESSAGE_DECOMPRESSION, 0);
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, grpcMilliseconds(keepalive.time));
    arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, grpcMilliseconds(keepalive.timeout));
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

std::shared_ptr<grpc::ChannelCredentials> clientCredentials(const Identification& identification) {
    return grpc::SslCredentials(
        {identification.authorities, identification.privateKey, identification.certificates});
}

std::shared_ptr<grpc::ServerCredentials> serverCredentials(const TlsFiles& files) {
    return std::make_shared<ServerTls>(files);
}

} // namespace agent::orvi::remoting::details
