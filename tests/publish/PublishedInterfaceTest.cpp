#include "publish/StreamBufferService.hpp"

#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using core::GenericPayload;
using core::ServiceInterface;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

std::vector<std::string> methodNames(const ServiceInterface& interface) {
    std::vector<std::string> names;
    for (const core::ExportedFunction& method : interface.methods()) {
        names.push_back(method.name());
    }
    return names;
}

/// Return what the provider of the only publication describes.
std::vector<ServiceInterface> describedInterfaces() {
    const auto references = test::providers();
    EXPECT_EQ(references.size(), 1u);
    return test::registryContext().GetService(references.at(0))->getServiceInterfaces();
}

std::string boolText(bool value) {
    return value ? "true" : "false";
}

TEST(PublishedInterfaceTest, IsNamedAfterTheUuid) {
    const StreamBuffer buffer = makeDevice(test::exampleUuid(), {}, {}, {}, {}, 16);
    const auto interfaces = describedInterfaces();
    ASSERT_EQ(interfaces.size(), 1u);
    EXPECT_EQ(interfaces[0].name(), "orviStreambuf_00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(interfaces[0].version(), core::APIVersion(1, 0));
}

TEST(PublishedInterfaceTest, DescribesExactlyTheOperationsThatTheDeviceHas) {
    const test::RecordingDevice device;
    for (int combination = 0; combination < 16; ++combination) {
        SCOPED_TRACE(combination);
        const bool read = (combination & 1) != 0;
        const bool write = (combination & 2) != 0;
        const bool seekoff = (combination & 4) != 0;
        const bool seekpos = (combination & 8) != 0;
        const StreamBuffer buffer = makeDevice(
            test::exampleUuid(), read ? device.read() : noReadFunction(),
            write ? device.write() : noWriteFunction(),
            seekoff ? device.seekoff() : noSeekOffFunction(),
            seekpos ? device.seekpos() : noSeekPosFunction(), 4096);

        std::vector<std::string> expected;
        for (const auto& [offered, name] :
             {std::pair(read, "read"), std::pair(write, "write"), std::pair(seekoff, "seekoff"),
              std::pair(seekpos, "seekpos")}) {
            if (offered) {
                expected.emplace_back(name);
            }
        }
        const auto interfaces = describedInterfaces();
        ASSERT_EQ(interfaces.size(), 1u);
        EXPECT_EQ(methodNames(interfaces[0]), expected);
        EXPECT_THAT(
            interfaces[0].metadata(),
            ElementsAre(
                Pair("hasRead", boolText(read)), Pair("hasWrite", boolText(write)),
                Pair("hasSeekOff", boolText(seekoff)), Pair("hasSeekPos", boolText(seekpos)),
                Pair("bufferSize", "4096")));
    }
    EXPECT_THAT(device.calls(), IsEmpty()) << "publishing uses no operation";
}

TEST(PublishedInterfaceTest, StatesTheTypesOfTheMethods) {
    const test::RecordingDevice device;
    const StreamBuffer buffer = makeDevice(
        test::exampleUuid(), device.read(), device.write(), device.seekoff(), device.seekpos(), 1);
    const ServiceInterface interface = describedInterfaces().at(0);
    const std::uint64_t number = GenericPayload::typeHash<std::int64_t>();
    const std::uint64_t code = GenericPayload::typeHash<int>();
    const std::uint64_t text = GenericPayload::typeHash<std::string>();

    const auto& methods = interface.methods();
    ASSERT_EQ(methods.size(), 4u);
    EXPECT_EQ(methods[0].resultType(), text);
    EXPECT_THAT(methods[0].argumentTypes(), ElementsAre(number));
    EXPECT_EQ(methods[1].resultType(), number);
    EXPECT_THAT(methods[1].argumentTypes(), ElementsAre(text));
    EXPECT_EQ(methods[2].resultType(), number);
    EXPECT_THAT(methods[2].argumentTypes(), ElementsAre(number, code, code));
    EXPECT_EQ(methods[3].resultType(), number);
    EXPECT_THAT(methods[3].argumentTypes(), ElementsAre(number, code));
    for (const core::ExportedFunction& method : methods) {
        EXPECT_FALSE(method.marker().has_value());
    }
}

TEST(PublishedInterfaceTest, StatesTheBufferSizeInPlainDigits) {
    struct Case {
        std::size_t bufferSize;
        const char* text;
    };

    for (const Case& size :
         {Case{0, "0"}, Case{1, "1"}, Case{4096, "4096"},
          Case{std::size_t{1} << 63, "9223372036854775808"},
          Case{std::numeric_limits<std::size_t>::max(), "18446744073709551615"}}) {
        const StreamBuffer buffer =
            makeDevice(test::exampleUuid(), {}, {}, {}, {}, size.bufferSize);
        EXPECT_THAT(describedInterfaces().at(0).metadata().at(4), Pair("bufferSize", size.text));
    }
}

TEST(StreamBufferServiceTest, DescribesItsInterfaceAfreshOnEveryCall) {
    StreamBufferService service("a name", core::APIVersion(1, 0));
    service.addMetadata("first", "1");
    const std::vector<ServiceInterface> before = service.getServiceInterfaces();
    service.addMetadata("second", "2");
    service.addMethod("double", [](std::int64_t number) { return 2 * number; });
    const std::vector<ServiceInterface> after = service.getServiceInterfaces();

    ASSERT_EQ(before.size(), 1u);
    EXPECT_THAT(before[0].metadata(), ElementsAre(Pair("first", "1")));
    EXPECT_THAT(before[0].methods(), IsEmpty());
    ASSERT_EQ(after.size(), 1u);
    EXPECT_EQ(after[0].name(), "a name");
    EXPECT_THAT(after[0].metadata(), ElementsAre(Pair("first", "1"), Pair("second", "2")));
    ASSERT_THAT(methodNames(after[0]), ElementsAre("double"));
    GenericPayload answer =
        after[0].methods()[0].function()({}, GenericPayload::fromValues(std::int64_t{21}));
    EXPECT_EQ(answer.take<std::int64_t>(0), 42);
}

} // namespace
} // namespace agent::orvi::streambuf
