#include "discovery/HostPort.hpp"

#include "discovery/NameResolution.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace agent::orvi::remoting::details {

void PrintTo(const HostPort& hostPort, std::ostream* stream) {
    *stream << toText(hostPort);
}

namespace {

using streambuf::test::throwsExactly;
using testing::ElementsAre;
using testing::IsSupersetOf;

TEST(HostPortTest, IsReadAndWritten) {
    const std::vector<std::pair<std::string, HostPort>> cases{
        {"localhost:80", {"localhost", 80}},
        {"my_host-1.example.org:65535", {"my_host-1.example.org", 65535}},
        {"192.0.2.1:0", {"192.0.2.1", 0}},
        {"[::1]:443", {"::1", 443}},
        {"[2001:db8::1]:1", {"2001:db8::1", 1}},
        {"[fe80::1%eth0]:1", {"fe80::1%eth0", 1}},
        {"[::ffff:192.0.2.1]:1", {"::ffff:192.0.2.1", 1}},
        {"\xc3\xa4.example:1", {"\xc3\xa4.example", 1}}};
    for (const auto& [text, hostPort] : cases) {
        EXPECT_EQ(parseHostPort(text), hostPort) << text;
        EXPECT_EQ(toText(hostPort), text);
    }
}

TEST(HostPortTest, IsNotReadFromOtherTexts) {
    for (const std::string text : {"",          ":",           "host",
                                   "host:",     ":80",         "host:x",
                                   "host:-1",   "host:+1",     "host: 1",
                                   "host:1 ",   "host:65536",  "host:99999999999999999999",
                                   "ho st:1",   "host/x:1",    "user@host:1",
                                   "::1:80",    "::1",         "[::1]",
                                   "[::1]80",   "[]:1",        "[:1",
                                   "]:1",       "[host]:1",    "[192.0.2.1]:1",
                                   "[::1%]:1",  "[::1%a b]:1", "[::1]]:1",
                                   "[[::1]]:1", "a:b:1",       "http://host:1",
                                   "*:1"}) {
        EXPECT_THAT(
            [&] { parseHostPort(text); },
            throwsExactly<std::invalid_argument>(
                "\"" + text + "\" is neither \"host:port\" nor \"[address]:port\""));
    }
    EXPECT_THROW(parseHostPort(std::string("ho\0st:1", 7)), std::invalid_argument);
    EXPECT_THROW(parseHostPort(std::string(254, 'x') + ":1"), std::invalid_argument);
}

std::vector<std::string> textsOf(const std::vector<SocketAddress>& addresses) {
    std::vector<std::string> texts;
    std::transform(
        addresses.begin(), addresses.end(), std::back_inserter(texts),
        [](const SocketAddress& address) { return toText(address.hostPort()); });
    return texts;
}

TEST(NameResolutionTest, FindsNumericAddressesAsTheyAre) {
    for (const auto resolution : {Resolution::numeric, Resolution::connect, Resolution::listen}) {
        EXPECT_THAT(textsOf(resolve({"192.0.2.1", 80}, resolution)), ElementsAre("192.0.2.1:80"));
        EXPECT_THAT(
            textsOf(resolve({"2001:db8::1", 80}, resolution)), ElementsAre("[2001:db8::1]:80"));
    }
}

TEST(NameResolutionTest, FindsTheAddressesOfAName) {
    EXPECT_THAT(
        textsOf(resolve({"localhost", 80}, Resolution::connect)), IsSupersetOf({"127.0.0.1:80"}));
}

TEST(NameResolutionTest, FindsEachAddressOnce) {
    auto texts = textsOf(resolve({"localhost", 80}, Resolution::connect));
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
}

TEST(NameResolutionTest, TakesNoNameForANumber) {
    EXPECT_THAT(
        [] {
            resolve({"localhost", 80}, Resolution::numeric);
        },
        throwsExactly<std::system_error>("Address localhost:80: Name or service not known"));
}

TEST(NameResolutionTest, KnowsLoopbackAddresses) {
    const auto isLoopback = [](const std::string& address) {
        return resolve({address, 1}, Resolution::numeric).at(0).isLoopback();
    };
    for (const char* const address : {"127.0.0.1", "127.255.0.9", "::1", "::ffff:127.0.0.1"}) {
        EXPECT_TRUE(isLoopback(address)) << address;
    }
    for (const char* const address :
         {"0.0.0.0", "126.0.0.1", "128.0.0.1", "192.0.2.127", "::", "2001:db8::1", "fe80::1",
          "::ffff:192.0.2.1", "::127.0.0.1"}) {
        EXPECT_FALSE(isLoopback(address)) << address;
    }
}

} // namespace
} // namespace agent::orvi::remoting::details
