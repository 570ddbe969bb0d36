#include "remoting/safety/Certificates.hpp"
#include "remoting/safety/EndpointTest.hpp"
#include "remoting/safety/RawEndpoint.hpp"

#include <orvi/remoting/Importer.hpp>

#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

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
        return offerOf(published, connect(certified(peer))).has_value();
    }

    CertificateAuthority authority;
    Published published{"bytes"};
};

TEST_F(MutualTlsTest, ServesWhoeverItsAuthorityHasCertified) {
    open();
    const auto channel = connect(certified(authority.certify("importer")));
    const auto offer = offerOf(published, channel);
    ASSERT_TRUE(offer.has_value());
    RawStream stream(channel, "Call");
    stream.send(greeting(offer->service()));
    EXPECT_EQ(call(stream, readRequest(5)), (Outcome{"", "bytes"}));
}

TEST_F(MutualTlsTest, RefusesWhoeverHasNoCertificate) {
    open();
    EXPECT_EQ(lookUp(connect(trusting())).error_code(), grpc::StatusCode::UNAVAILABLE);
}

TEST_F(MutualTlsTest, RefusesWhoeverDoesNotUseTls) {
    open();
    EXPECT_EQ(
        lookUp(
            EndpointTest::connect(endpoint->addresses().at(0), grpc::InsecureChannelCredentials()))
            .error_code(),
        grpc::StatusCode::UNAVAILABLE);
}

TEST_F(MutualTlsTest, RefusesCertificatesOfOtherAuthorities) {
    open();
    CertificateAuthority other;
    EXPECT_EQ(
        lookUp(connect(certified(other.certify("importer")))).error_code(),
        grpc::StatusCode::UNAVAILABLE);
}

TEST_F(MutualTlsTest, RefusesCertificatesThatHaveExpiredOrAreNotYetValid) {
    open();
    const TlsFiles expired =
        authority.certify("expired", {.begin = "20200101000000Z", .end = "20200102000000Z"});
    EXPECT_EQ(lookUp(connect(certified(expired))).error_code(), grpc::StatusCode::UNAVAILABLE);
    const TlsFiles later =
        authority.certify("later", {.begin = "20980101000000Z", .end = "20990101000000Z"});
    EXPECT_EQ(lookUp(connect(certified(later))).error_code(), grpc::StatusCode::UNAVAILABLE);
}

TEST_F(MutualTlsTest, KnowsPeersByAllNamesOfTheirCertificates) {
    const TlsFiles peer = authority.certify(
        "peer", {.commonName = "reader",
                 .alternativeNames = "DNS:one.example.org,DNS:two.example.org,"
                                     "URI:spiffe://example.org/reader,email:reader@example.org,"
                                     "IP:192.0.2.7"});
    for (const std::string& identity :
         {std::string("cn:reader"), std::string("dns:one.example.org"),
          std::string("dns:two.example.org"), std::string("uri:spiffe://example.org/reader"),
          std::string("email:reader@example.org"), std::string("ip:192.0.2.7"),
          std::string("dns:*.example.org"), std::string("*")}) {
        EXPECT_TRUE(isKnownAs(peer, identity)) << identity;
    }
    for (const std::string& identity :
         {std::string("cn:reader2"), std::string("cn:"), std::string("dns:reader"),
          std::string("reader"), std::string("dns:example.org"), std::string("uid:0"),
          std::string("uid:*"), std::string("loopback")}) {
        EXPECT_FALSE(isKnownAs(peer, identity)) << identity;
    }
}

TEST_F(MutualTlsTest, DoesNotTakeOneKindOfNameForAnother) {
    EXPECT_FALSE(isKnownAs(authority.certify("cn", {.commonName = "dns:trusted"}), "dns:trusted"));
    EXPECT_FALSE(isKnownAs(authority.certify("uid", {.commonName = "uid:0"}), "uid:0"));
}

TEST_F(MutualTlsTest, NeedsFilesThatCanBeRead) {
    options.tls->certificates = directory.path / "nowhere.pem";
    try {
        open();
        ADD_FAILURE() << "no error";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
        EXPECT_THAT(error.what(), HasSubstr("nowhere.pem"));
    }
}

TEST_F(MutualTlsTest, ListensBeyondTheLoopbackDeviceOnlyWithFiles) {
    options.tls.reset();
    EXPECT_THROW(open(), std::invalid_argument);
    options.plainLoopback = true;
    options.listen = {"0.0.0.0:0"};
    EXPECT_THROW(open(), std::invalid_argument);
}

/// An importer with a certificate, and endpoints that have one or another.
class MutualTlsImporterTest : public testing::Test {
protected:
    MutualTlsImporterTest() {
        options.local = false;
        options.tls = authority.certify("importer");
    }

    static std::shared_ptr<grpc::ServerCredentials>
    credentials(const TlsFiles& files, const std::filesystem::path& authorities) {
        grpc::SslServerCredentialsOptions result(
            GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
        result.pem_root_certs = contentOf(authorities);
        result.pem_key_cert_pairs.push_back(
            {contentOf(files.privateKey), contentOf(files.certificates)});
        return grpc::SslServerCredentials(result);
    }

    /// Return what becomes of a connection to an endpoint under a name.
    PeerStatus connectTo(
        const TlsFiles& files, const std::string& host = "127.0.0.1",
        const std::filesystem::path& authorities = {}) {
        const RawEndpoint endpoint(
            [](grpc::ServerContext&, RawEndpoint::Stream& stream) {
                v1::Frame frame;
                frame.mutable_hello()->set_major(1);
                frame.mutable_hello()->set_framework("another framework");
                frame.mutable_hello()->set_endpoint("endpoint");
                stream.Write(frame);
                while (stream.Read(&frame)) {
                }
                return grpc::Status::OK;
            },
            {}, credentials(files, authorities.empty() ? authority.certificate() : authorities));
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

TEST_F(MutualTlsImporterTest, ConnectsToEndpointsThatAreCertifiedForTheirNames) {
    const TlsFiles files = authority.certify("endpoint");
    EXPECT_EQ(connectTo(files).endpoint, "endpoint");
    EXPECT_EQ(connectTo(files, "localhost").endpoint, "endpoint");
}

TEST_F(MutualTlsImporterTest, RefusesEndpointsThatAreCertifiedForOtherNames) {
    const PeerStatus byNumber =
        connectTo(authority.certify("other", {.alternativeNames = "DNS:localhost"}));
    EXPECT_EQ(byNumber.state, PeerStatus::State::failed);
    EXPECT_THAT(byNumber.error, testing::Not(IsEmpty()));
    const PeerStatus byName = connectTo(
        authority.certify("another", {.alternativeNames = "DNS:example.org,IP:127.0.0.1"}),
        "localhost");
    EXPECT_EQ(byName.state, PeerStatus::State::failed);
}

TEST_F(MutualTlsImporterTest, RefusesEndpointsOfOtherAuthorities) {
    CertificateAuthority other;
    EXPECT_EQ(connectTo(other.certify("endpoint")).state, PeerStatus::State::failed);
}

TEST_F(MutualTlsImporterTest, IsRefusedByEndpointsThatTrustOtherAuthorities) {
    const CertificateAuthority other;
    EXPECT_EQ(
        connectTo(authority.certify("endpoint"), "127.0.0.1", other.certificate()).state,
        PeerStatus::State::failed);
}

TEST_F(MutualTlsImporterTest, RefusesEndpointsWhoseCertificatesHaveExpired) {
    EXPECT_EQ(
        connectTo(authority.certify("endpoint", {.end = "20200102000000Z"})).state,
        PeerStatus::State::failed);
}

} // namespace
} // namespace agent::orvi::remoting::test
