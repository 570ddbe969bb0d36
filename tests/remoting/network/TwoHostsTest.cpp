#include "remoting/network/TwoHosts.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/network/Program.hpp"
#include "remoting/safety/Certificates.hpp"

#include "streambuf/StreamBuffer.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>

#include <gtest/gtest.h>

#include <boost/uuid/uuid_io.hpp>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <iostream>
#include <optional>
#include <system_error>

namespace agent::orvi::remoting::test {
namespace {

using Clock = std::chrono::steady_clock;
using streambuf::makeDevice;
using streambuf::noCloseFunction;
using streambuf::test::pattern;
using streambuf::test::take;

constexpr std::size_t fileSize = std::size_t{5} << 20;

/// The keepalive time and timeout of the reader, longer than a busy publisher needs.
constexpr std::chrono::milliseconds keepalive{1500};

/// What it may take beyond these until the loss is noticed on a busy machine.
constexpr std::chrono::seconds leeway{5};

/// A publisher on one host and a reader on another.
class TwoHostsTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // Before any thread has been started, which would stay where it is.
        try {
            hosts = new TwoHosts;
        } catch (const std::system_error& error) {
            obstacle = error.what();
        }
    }

    static void TearDownTestSuite() {
        delete hosts;
        hosts = nullptr;
    }

    void SetUp() override {
        if (hosts == nullptr) {
            GTEST_SKIP() << obstacle;
        }
        std::ofstream(directory.path / "file", std::ios_base::binary) << pattern(fileSize);
        publisherFiles = authority.certify(
            "publisher", {.alternativeNames = "DNS:" + std::string(TwoHosts::otherName)});
        readerFiles = authority.certify("reader", {.alternativeNames = "DNS:reader.test"});
        publish();
    }

    void TearDown() override {
        if (hosts != nullptr) {
            hosts->setLink(true);
        }
    }

    static std::vector<std::string> tlsOptions(const TlsFiles& files) {
        return {"--no-local",     "--tls-cert", files.certificates, "--tls-key",
                files.privateKey, "--tls-ca",   files.authorities};
    }

    static std::string target() { return std::string(TwoHosts::otherName) + ":7000"; }

    /// Publish a file, and a pipe in which nothing comes.
    void publish() {
        std::vector<std::string> command{
            ORVI_STREAM,
            "publish",
            "--listen",
            "10.99.0.1:7000",
            "--uuid",
            boost::uuids::to_string(file),
            "--uuid",
            boost::uuids::to_string(pipe),
            directory.path / "file",
            "-"};
        const auto tls = tlsOptions(publisherFiles);
        command.insert(command.begin() + 2, tls.begin(), tls.end());
        publisher.emplace(hosts->there(command));
        ASSERT_EQ(publisher->readLine(), boost::uuids::to_string(file));
        ASSERT_EQ(publisher->readLine(), boost::uuids::to_string(pipe));
    }

    ImporterOptions options() const {
        ImporterOptions result;
        result.local = false;
        result.targets = {target()};
        result.tls = readerFiles;
        result.keepaliveTime = keepalive;
        result.keepaliveTimeout = keepalive;
        return result;
    }

    static std::optional<PeerStatus> peerAt(const Importer& importer, const std::string& address) {
        for (const PeerStatus& peer : importer.peers()) {
            if (peer.address == address + ":7000") {
                return peer;
            }
        }
        return std::nullopt;
    }

    /// Expect that an action on another thread ends with the loss of a silent peer, in time.
    template <class Result>
    static void expectSilence(std::future<Result>& action, Clock::time_point since) {
        if (action.wait_for(longTime) != std::future_status::ready) {
            std::cerr << "A call hangs." << std::endl;
            std::_Exit(1);
        }
        const auto time = Clock::now() - since;
        try {
            action.get();
            ADD_FAILURE() << "no error";
        } catch (const PeerLost& error) {
            EXPECT_EQ(error.cause(), PeerLost::Cause::unresponsive) << error.what();
        }
        EXPECT_LT(time, 2 * keepalive + leeway);
    }

    inline static TwoHosts* hosts = nullptr;
    inline static std::string obstacle;

    CertificateAuthority authority;
    TemporaryDirectory directory;
    TlsFiles publisherFiles;
    TlsFiles readerFiles;
    const boost::uuids::uuid file = streambuf::test::newUuid();
    const boost::uuids::uuid pipe = streambuf::test::newUuid();
    std::optional<Program> publisher;
};

TEST_F(TwoHostsTest, FindEachOtherByANameOfWhichOneAddressIsDead) {
    const Importer importer(options());
    auto device = makeDevice(file, noCloseFunction());
    EXPECT_TRUE(take(device, fileSize + 1) == pattern(fileSize));
    const auto alive = peerAt(importer, TwoHosts::otherAddress);
    ASSERT_TRUE(alive.has_value());
    EXPECT_EQ(alive->state, PeerStatus::State::connected);
    EXPECT_TRUE(eventually([&] {
        const auto dead = peerAt(importer, TwoHosts::deadAddress);
        return dead && dead->state == PeerStatus::State::failed && !dead->error.empty();
    }));
}

TEST_F(TwoHostsTest, SendAFileFromOneToolToTheOther) {
    std::vector<std::string> command{
        ORVI_STREAM, "cat", "--connect", target(), boost::uuids::to_string(file)};
    const auto tls = tlsOptions(readerFiles);
    command.insert(command.begin() + 2, tls.begin(), tls.end());
    Program reader(command);
    EXPECT_TRUE(reader.readAll() == pattern(fileSize));
    EXPECT_EQ(reader.wait(), 0);
}

TEST_F(TwoHostsTest, KeepOutWhoeverHasACertificateOfAnotherAuthority) {
    CertificateAuthority other;
    std::vector<std::string> command{
        ORVI_STREAM, "cat", "--connect", target(), "--timeout", "2", boost::uuids::to_string(file)};
    const auto tls = tlsOptions(other.certify("stranger"));
    command.insert(command.begin() + 2, tls.begin(), tls.end());
    Program stranger(command);
    EXPECT_EQ(stranger.readAll(), "");
    EXPECT_EQ(stranger.wait(), 5); // nobody could be asked
}

TEST_F(TwoHostsTest, LoseEachOtherWhenTheLinkGoesDownWhileAReadWaits) {
    const Importer importer(options());
    auto device = makeDevice(pipe, noCloseFunction());
    auto other = makeDevice(file, noCloseFunction());
    EXPECT_EQ(take(other, 10), pattern(10));
    auto read = std::async(std::launch::async, [&] { return take(device, 10); });
    EXPECT_EQ(read.wait_for(2 * keepalive + keepalive), std::future_status::timeout);
    hosts->setLink(false);
    expectSilence(read, Clock::now());
    // What was read ahead remains; what comes after that is lost, too.
    EXPECT_THROW(take(other, fileSize), PeerLost);

    hosts->setLink(true);
    auto again = makeDevice(file, noCloseFunction());
    EXPECT_EQ(take(again, 10), pattern(10));
    EXPECT_THROW(take(device, 10), PeerLost);
}

TEST_F(TwoHostsTest, LoseEachOtherWhenTheLinkGoesDownInTheMiddleOfATransfer) {
    const Importer importer(options());
    auto device = makeDevice(file, noCloseFunction());
    std::atomic<int> transfers{0};
    auto reading = std::async(std::launch::async, [&] {
        // Again and again: the error must come, and never a short count.
        for (;;) {
            device.pubseekpos(0, std::ios_base::in);
            if (take(device, fileSize) != pattern(fileSize)) {
                return;
            }
            ++transfers;
        }
    });
    ASSERT_TRUE(eventually([&] { return transfers >= 3; }));
    hosts->setLink(false);
    expectSilence(reading, Clock::now());

    hosts->setLink(true);
    auto again = makeDevice(file, noCloseFunction());
    EXPECT_TRUE(take(again, fileSize) == pattern(fileSize));
}

TEST_F(TwoHostsTest, FindEachOtherWhenTheLinkComesUpOnlyLater) {
    hosts->setLink(false);
    const Importer importer(options());
    auto connecting = std::async(std::launch::async, [&] {
        auto device = makeDevice(file, noCloseFunction());
        return take(device, 10);
    });
    ASSERT_TRUE(eventually([&] {
        const auto peer = peerAt(importer, TwoHosts::otherAddress);
        return peer && peer->state == PeerStatus::State::failed;
    }));
    hosts->setLink(true);
    EXPECT_EQ(connecting.get(), pattern(10));
}

TEST_F(TwoHostsTest, FindAPublisherThatComesBack) {
    const Importer importer(options());
    auto device = makeDevice(pipe, noCloseFunction());
    auto read = std::async(std::launch::async, [&] { return take(device, 10); });
    publisher.reset();
    try {
        read.get();
        ADD_FAILURE() << "no error";
    } catch (const PeerLost& error) {
        EXPECT_EQ(error.cause(), PeerLost::Cause::disconnected) << error.what();
    }
    publish();
    auto again = makeDevice(file, noCloseFunction());
    EXPECT_EQ(take(again, 10), pattern(10));
}

} // namespace
} // namespace agent::orvi::remoting::test
