#include "wire/PayloadTypes.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <tuple>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;

TEST(PayloadTypesTest, NameTheTypesOfTheMethodCalls) {
    EXPECT_EQ(wireType(GenericPayload::typeHash<std::int64_t>()), v1::INT64);
    EXPECT_EQ(wireType(GenericPayload::typeHash<int>()), v1::INT32);
    EXPECT_EQ(wireType(GenericPayload::typeHash<std::string>()), v1::TEXT);
    EXPECT_EQ(wireType(GenericPayload::typeHash<std::tuple<std::int64_t, int>>()), v1::INT64_INT32);
    EXPECT_EQ(
        wireType(GenericPayload::typeHash<std::tuple<std::int64_t, int, int>>()),
        v1::INT64_INT32_INT32);
}

TEST(PayloadTypesTest, LeaveAllOthersWithoutAName) {
    EXPECT_EQ(wireType(GenericPayload::typeHash<unsigned>()), v1::OTHER);
    EXPECT_EQ(wireType(GenericPayload::typeHash<ForeignValue>()), v1::OTHER);
    EXPECT_EQ(wireType(0), v1::OTHER);
}

TEST(PayloadTypesTest, StandForOneHashEach) {
    std::set<std::uint64_t> hashes;
    for (int type = v1::Type_MIN; type <= v1::Type_MAX; ++type) {
        const auto name = static_cast<v1::Type>(type);
        hashes.insert(typeHash(name));
        EXPECT_EQ(wireType(typeHash(name)), name);
    }
    EXPECT_EQ(hashes.size(), v1::Type_ARRAYSIZE);
}

TEST(PayloadTypesTest, OfLaterVersionsAreForeign) {
    EXPECT_EQ(typeHash(static_cast<v1::Type>(50)), GenericPayload::typeHash<ForeignValue>());
    EXPECT_EQ(typeHash(static_cast<v1::Type>(-1)), GenericPayload::typeHash<ForeignValue>());
}

} // namespace
} // namespace agent::orvi::remoting::details::test
