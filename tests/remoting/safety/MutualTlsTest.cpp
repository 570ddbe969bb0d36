#include "remoting/safety/TlsTest.hpp"

#include "support/ThrowsExactly.hpp"

#include <fstream>
#include <stdexcept>
#include <system_error>

namespace agent::orvi::remoting::test {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

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

TEST_F(MutualTlsTest, NeedsFilesThatFitTogether) {
    const auto expectError = [this](const TlsFiles& files, const std::string& text) {
        options.tls = files;
        EXPECT_THAT([this] { open(); }, streambuf::test::throwsExactly<UnusableTlsFile>(text));
        ImporterOptions importing;
        importing.local = false;
        importing.targets = {"127.0.0.1:1"};
        importing.tls = files;
        EXPECT_THAT(
            [&] { const Importer importer(importing); },
            streambuf::test::throwsExactly<UnusableTlsFile>(text));
    };
    const TlsFiles files = *options.tls;
    TlsFiles wrong = files;
    wrong.privateKey = authority.certify("other").privateKey;
    expectError(
        wrong, '"' + wrong.privateKey.string() + "\" contains the key of another certificate.");
    wrong = files;
    wrong.certificates = files.privateKey;
    expectError(wrong, '"' + files.privateKey.string() + "\" contains no certificate.");
    wrong = files;
    wrong.authorities = files.privateKey;
    expectError(wrong, '"' + files.privateKey.string() + "\" contains no certificate.");
    wrong = files;
    wrong.privateKey = files.certificates;
    expectError(
        wrong,
        '"' + files.certificates.string() + "\" contains no private key, or one with a password.");
    const auto cut = directory.path / "cut.pem";
    std::ofstream(cut, std::ios_base::binary)
        << contentOf(files.certificates) << "-----BEGIN CERTIFICATE-----\nMIIB\n";
    wrong = files;
    wrong.certificates = cut;
    expectError(wrong, '"' + cut.string() + "\" contains something that is no certificate.");
}

TEST_F(MutualTlsTest, ListensBeyondTheLoopbackDeviceOnlyWithFiles) {
    options.tls.reset();
    EXPECT_THROW(open(), std::invalid_argument);
    options.plainLoopback = true;
    options.listen = {"0.0.0.0:0"};
    EXPECT_THROW(open(), std::invalid_argument);
}

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
