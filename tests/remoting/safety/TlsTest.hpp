#pragma once

#include "remoting/safety/Certificates.hpp"
#include "remoting/safety/EndpointTest.hpp"
#include "remoting/safety/RawEndpoint.hpp"

#include <orvi/remoting/Importer.hpp>

#include <filesystem>
#include <memory>
#include <string>

namespace agent::orvi::remoting::test {

/// An endpoint with a certificate, and importers that have one or another.
class MutualTlsTest : public EndpointTest {
protected:
    MutualTlsTest() {
        options.local = false;
        options.listen = {"127.0.0.1:0"};
        options.tls = authority.certify("endpoint");
    }

    ~MutualTlsTest() override { endpoint.reset(); } // it serves nobody without a certificate

    /// Return the credentials of an importer that trusts this authority.
    grpc::SslCredentialsOptions trusting() const {
        grpc::SslCredentialsOptions credentials;
        credentials.pem_root_certs = contentOf(authority.certificate());
        return credentials;
    }

    /// The same with a certificate of its own.
    grpc::SslCredentialsOptions certified(const TlsFiles& files) const {
        grpc::SslCredentialsOptions credentials = trusting();
        credentials.pem_cert_chain = contentOf(files.certificates);
        credentials.pem_private_key = contentOf(files.privateKey);
        return credentials;
    }

    std::shared_ptr<grpc::Channel> connect(const grpc::SslCredentialsOptions& credentials) const {
        return EndpointTest::connect(
            endpoint->addresses().at(0), grpc::SslCredentials(credentials));
    }

    /// Return how a look-up ends, OK when it is answered.
    static grpc::Status lookUp(const std::shared_ptr<grpc::Channel>& channel) {
        RawStream control(channel, "Control");
        control.send(greeting());
        return control.receive() ? grpc::Status::OK : control.end();
    }

    /// Return whether a peer with such a certificate, and nobody else, is what a rule means.
    bool isKnownAs(const TlsFiles& peer, const std::string& identity) {
        options.access = {{.identity = identity}, {.allow = false}};
        open();
        const auto channel = connect(certified(peer));
        const auto offer = offerOf(published, channel);
        RawStream stream(channel, "Call");
        stream.send(greeting(offer.value().service()));
        const Outcome outcome = call(stream, readRequest(1));
        EXPECT_THAT(outcome.type, testing::AnyOf("", "agent::orvi::remoting::AccessDenied"));
        return outcome.type.empty();
    }

    CertificateAuthority authority;
    Published published{"bytes"};
};

/// An importer with a certificate, and endpoints that have one or another.
class MutualTlsImporterTest : public testing::Test {
protected:
    MutualTlsImporterTest() {
        options.local = false;
        options.tls = authority.certify("importer");
    }

    /// Return what becomes of a connection to an endpoint under a name.
    PeerStatus connectTo(
        const TlsFiles& files, const std::string& host = "127.0.0.1",
        const std::filesystem::path& authorities = {}) {
        const RawEndpoint endpoint(
            serveNothing, {},
            mutualTls(files, authorities.empty() ? authority.certificate() : authorities));
        options.targets = {host + ":" + std::to_string(endpoint.port())};
        const Importer importer(options);
        PeerStatus status;
        EXPECT_TRUE(eventually([&] {
            for (const auto& peer : importer.peers()) {
                // A name may have an address at which nobody listens.
                if (peer.state != PeerStatus::State::connecting &&
                    peer.address.starts_with("127.0.0.1:")) {
                    status = peer;
                    return true;
                }
            }
            return false;
        }));
        return status;
    }

    CertificateAuthority authority;
    ImporterOptions options;
};

} // namespace agent::orvi::remoting::test
