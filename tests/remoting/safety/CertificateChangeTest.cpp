#include "remoting/safety/TlsTest.hpp"

#include <fstream>
#include <iterator>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

/// An endpoint whose certificate files change while it runs.
class CertificateChangeTest : public MutualTlsTest {
protected:
    CertificateChangeTest() {
        newImporter.pem_root_certs = contentOf(newAuthority.certificate());
        const TlsFiles files = newAuthority.certify("importer");
        newImporter.pem_cert_chain = contentOf(files.certificates);
        newImporter.pem_private_key = contentOf(files.privateKey);
    }

    bool admits(const grpc::SslCredentialsOptions& credentials) const {
        return lookUp(connect(credentials)).ok();
    }

    /// Expect that new connections are made with the old files.
    void expectNoChange() const {
        for (int connection = 0; connection < 10; ++connection) {
            ASSERT_TRUE(admits(importer));
        }
        EXPECT_FALSE(admits(newImporter));
    }

    static void write(const std::filesystem::path& file, const std::string& content) {
        std::ofstream(file, std::ios_base::binary) << content;
    }

    CertificateAuthority newAuthority;
    const grpc::SslCredentialsOptions importer = certified(authority.certify("importer"));
    grpc::SslCredentialsOptions newImporter;
};

TEST_F(CertificateChangeTest, IsSeenByNewConnectionsWhileStreamsGoOn) {
    open();
    const auto channel = connect(importer);
    const auto offer = offerOf(published, channel);
    ASSERT_TRUE(offer.has_value());
    RawStream stream(channel, "Call");
    stream.send(greeting(offer->service()));
    EXPECT_EQ(call(stream, readRequest(2)), (Outcome{"", "by"}));
    EXPECT_FALSE(admits(newImporter));
    replace(*options.tls, newAuthority.certify("endpoint"));
    EXPECT_TRUE(eventually([&] { return admits(newImporter); }));
    EXPECT_FALSE(admits(importer));
    EXPECT_EQ(call(stream, readRequest(3)), (Outcome{"", "tes"}));
    EXPECT_TRUE(offerOf(published, channel).has_value());
}

TEST_F(CertificateChangeTest, ToSomethingElseThanCertificatesIsIgnored) {
    open();
    write(options.tls->certificates, "-----BEGIN CERTIFICATE-----\nnone\n");
    expectNoChange();
    replace(*options.tls, newAuthority.certify("endpoint"));
    EXPECT_TRUE(eventually([&] { return admits(newImporter); }));
}

TEST_F(CertificateChangeTest, ToAnotherKeyThanTheCertificatesIsIgnored) {
    open();
    const TlsFiles next = newAuthority.certify("endpoint");
    write(options.tls->privateKey, contentOf(next.privateKey));
    expectNoChange();
    replace(*options.tls, next);
    EXPECT_TRUE(eventually([&] { return admits(newImporter); }));
}

TEST_F(CertificateChangeTest, ToAuthoritiesThatAreNoneIsIgnored) {
    open();
    write(options.tls->authorities, "nobody\n");
    expectNoChange();
    replace(*options.tls, newAuthority.certify("endpoint"));
    EXPECT_TRUE(eventually([&] { return admits(newImporter); }));
}

TEST_F(CertificateChangeTest, ToNoFilesIsIgnored) {
    open();
    const TlsFiles next = newAuthority.certify("endpoint");
    for (const auto& file :
         {options.tls->certificates, options.tls->privateKey, options.tls->authorities}) {
        std::filesystem::remove(file);
    }
    expectNoChange();
    replace(*options.tls, next);
    EXPECT_TRUE(eventually([&] { return admits(newImporter); }));
}

/// An importer whose certificate files change while it runs.
class ImporterCertificateChangeTest : public MutualTlsImporterTest {};

TEST_F(ImporterCertificateChangeTest, IsSeenByNewConnections) {
    CertificateAuthority newAuthority;
    const RawEndpoint endpoint(
        serveNothing, {}, mutualTls(newAuthority.certify("endpoint"), newAuthority.certificate()));
    options.targets = {"127.0.0.1:" + std::to_string(endpoint.port())};
    const Importer importer(options);
    const auto reaches = [&](PeerStatus::State state) {
        return eventually([&] {
            const auto peers = importer.peers();
            return !peers.empty() && peers.front().state == state;
        });
    };
    EXPECT_TRUE(reaches(PeerStatus::State::failed));
    replace(*options.tls, newAuthority.certify("importer"));
    EXPECT_TRUE(reaches(PeerStatus::State::connected));
}

/// Threads that watch files.
std::ptrdiff_t threads() {
    return std::distance(
        std::filesystem::directory_iterator("/proc/self/task"),
        std::filesystem::directory_iterator());
}

TEST_F(ImporterCertificateChangeTest, IsLookedForByNobodyAfterTheEnd) {
    const TlsFiles endpoint = authority.certify("endpoint");
    EXPECT_EQ(connectTo(endpoint).state, PeerStatus::State::connected);
    std::ptrdiff_t before = 0;
    // gRPC keeps some threads of its own for a while.
    ASSERT_TRUE(eventually([&] { return std::exchange(before, threads()) == before; }));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(connectTo(endpoint).state, PeerStatus::State::connected);
    }
    EXPECT_TRUE(eventually([&] { return threads() <= before + 5; }))
        << threads() << " threads after " << before;
}

TEST_F(CertificateChangeTest, IsLookedForByNobodyAfterTheEnd) {
    open();
    EXPECT_TRUE(admits(importer));
    const std::ptrdiff_t before = threads();
    for (int i = 0; i < 20; ++i) {
        open();
        EXPECT_TRUE(admits(importer));
    }
    EXPECT_TRUE(eventually([&] { return threads() <= before + 5; }))
        << threads() << " threads after " << before;
}

} // namespace
} // namespace agent::orvi::remoting::test
