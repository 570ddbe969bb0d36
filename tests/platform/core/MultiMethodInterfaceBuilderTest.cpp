#include <orvi/core/MultiMethodInterfaceBuilder.hpp>

#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace agent::orvi::core {
namespace {

using streambuf::test::throwsExactly;

ExportedFunction method(std::string name) {
    return {std::move(name), nullptr, 0, {}};
}

TEST(MultiMethodInterfaceBuilderTest, DescribesNameAndVersion) {
    const ServiceInterface description =
        MultiMethodInterfaceBuilder("service", APIVersion(3, 4)).build();
    EXPECT_EQ(description.name(), "service");
    EXPECT_EQ(description.version(), APIVersion(3, 4));
    EXPECT_TRUE(description.metadata().empty());
    EXPECT_TRUE(description.methods().empty());
}

TEST(MultiMethodInterfaceBuilderTest, KeepsTheOrderOfMetadataAndMethods) {
    const ServiceInterface description = MultiMethodInterfaceBuilder("service", APIVersion(1, 0))
                                             .addMetadata("z", "1")
                                             .addMethod(method("write"))
                                             .addMetadata("a", "")
                                             .addMethod(method("read"))
                                             .build();
    EXPECT_EQ(description.metadata(), (ServiceInterface::Metadata{{"z", "1"}, {"a", ""}}));
    ASSERT_EQ(description.methods().size(), 2U);
    EXPECT_EQ(description.methods()[0].name(), "write");
    EXPECT_EQ(description.methods()[1].name(), "read");
}

TEST(MultiMethodInterfaceBuilderTest, BuildsWhatWasRecordedSoFar) {
    MultiMethodInterfaceBuilder builder("service", APIVersion(1, 0));
    builder.addMethod(method("first"));
    const ServiceInterface before = builder.build();
    builder.addMethod(method("second")).addMetadata("key", "value");
    EXPECT_EQ(before.methods().size(), 1U);
    EXPECT_EQ(builder.build().methods().size(), 2U);
    EXPECT_EQ(builder.build().metadata().size(), 1U);
}

TEST(MultiMethodInterfaceBuilderTest, RefusesAnEmptyMetadataKey) {
    MultiMethodInterfaceBuilder builder("service", APIVersion(1, 0));
    EXPECT_THAT(
        [&] { builder.addMetadata("", "value"); },
        throwsExactly<std::invalid_argument>("A metadata key must not be empty."));
    EXPECT_TRUE(builder.build().metadata().empty());
}

TEST(MultiMethodInterfaceBuilderTest, RefusesAMetadataKeyTwiceInWhateverCase) {
    MultiMethodInterfaceBuilder builder("service", APIVersion(1, 0));
    builder.addMetadata("hasRead", "true");
    EXPECT_THAT(
        [&] { builder.addMetadata("hasRead", "true"); },
        throwsExactly<std::invalid_argument>("Metadata key \"hasRead\" is recorded already."));
    EXPECT_THAT(
        [&] { builder.addMetadata("HASREAD", "false"); },
        throwsExactly<std::invalid_argument>("Metadata key \"HASREAD\" is recorded already."));
    EXPECT_EQ(builder.build().metadata(), (ServiceInterface::Metadata{{"hasRead", "true"}}));
}

TEST(MultiMethodInterfaceBuilderTest, RefusesAMethodWithoutAName) {
    MultiMethodInterfaceBuilder builder("service", APIVersion(1, 0));
    EXPECT_THAT(
        [&] { builder.addMethod(method("")); },
        throwsExactly<std::invalid_argument>("A method must have a name."));
}

TEST(MultiMethodInterfaceBuilderTest, RefusesAMethodTwice) {
    MultiMethodInterfaceBuilder builder("service", APIVersion(1, 0));
    builder.addMethod(method("read")).addMethod(method("Read"));
    EXPECT_THAT(
        [&] { builder.addMethod(method("read")); },
        throwsExactly<std::invalid_argument>("Method \"read\" is recorded already."));
    EXPECT_EQ(builder.build().methods().size(), 2U);
}

} // namespace
} // namespace agent::orvi::core
