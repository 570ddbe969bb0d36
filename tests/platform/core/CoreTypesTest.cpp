#include <foundation/concurrent/threadpool/stop_token.hpp>
#include <orvi/core/APIVersion.hpp>
#include <orvi/core/ExportedFunction.hpp>
#include <orvi/core/InvocationErrors.hpp>
#include <orvi/core/ServiceInterface.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace agent::orvi::core {
namespace {

using foundation::concurrent::threadpool::stop_token;

static_assert(std::is_base_of_v<std::runtime_error, ServiceUnavailable>);
static_assert(std::is_base_of_v<std::runtime_error, UnknownMethod>);

TEST(APIVersionTest, HasTwoParts) {
    constexpr APIVersion version(1, 2);
    EXPECT_EQ(version.major(), 1U);
    EXPECT_EQ(version.minor(), 2U);
}

TEST(APIVersionTest, ComparesTheMajorPartFirst) {
    EXPECT_TRUE(APIVersion(1, 2) == APIVersion(1, 2));
    EXPECT_FALSE(APIVersion(1, 2) == APIVersion(1, 3));
    EXPECT_TRUE(APIVersion(1, 2) != APIVersion(2, 2));
    EXPECT_FALSE(APIVersion(1, 2) != APIVersion(1, 2));
    EXPECT_TRUE(APIVersion(1, 9) < APIVersion(2, 0));
    EXPECT_TRUE(APIVersion(1, 2) < APIVersion(1, 3));
    EXPECT_FALSE(APIVersion(1, 2) < APIVersion(1, 2));
    EXPECT_FALSE(APIVersion(2, 0) < APIVersion(1, 9));
}

TEST(ExportedFunctionTest, DescribesAMethod) {
    const ExportedFunction function(
        "read",
        [](stop_token, GenericPayload arguments) {
            return GenericPayload::fromValues(arguments.take<int>(0) + 1);
        },
        7, {8, 9}, DataMarker::sink);
    EXPECT_EQ(function.name(), "read");
    EXPECT_EQ(function.function()(stop_token(), GenericPayload::fromValues(1)).take<int>(0), 2);
    EXPECT_EQ(function.resultType(), 7U);
    EXPECT_EQ(function.argumentTypes(), (std::vector<std::uint64_t>{8, 9}));
    EXPECT_EQ(function.marker(), DataMarker::sink);
}

TEST(ExportedFunctionTest, HasNoMarkerUnlessGivenOne) {
    EXPECT_EQ(ExportedFunction("read", nullptr, 0, {}).marker(), std::nullopt);
}

TEST(ServiceInterfaceTest, FindsAMethodByItsExactName) {
    const ServiceInterface description(
        "service", APIVersion(1, 0), {{"key", "value"}},
        {ExportedFunction("read", nullptr, 1, {}), ExportedFunction("write", nullptr, 2, {})});
    EXPECT_EQ(description.findMethod("write"), &description.methods()[1]);
    EXPECT_EQ(description.findMethod("Write"), nullptr);
    EXPECT_EQ(description.findMethod(""), nullptr);
}

TEST(ServiceInterfaceTest, IsAValue) {
    const auto shared = std::make_shared<int>();
    ServiceInterface original(
        "service", APIVersion(1, 0), {},
        {ExportedFunction(
            "read", [shared](stop_token, GenericPayload) { return GenericPayload(); }, 0, {})});
    const ServiceInterface copy = original;
    original = ServiceInterface("other", APIVersion(2, 0), {}, {});
    EXPECT_EQ(copy.name(), "service");
    ASSERT_EQ(copy.methods().size(), 1U);
    EXPECT_EQ(shared.use_count(), 2);
}

TEST(StopTokenTest, IsNeverStopped) {
    EXPECT_FALSE(stop_token().stop_requested());
}

} // namespace
} // namespace agent::orvi::core
