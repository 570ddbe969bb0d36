#include "support/StreamBuffers.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>

namespace agent::orvi::streambuf::test {
namespace {

TEST(DefaultsTest, AreEmptyCallablesOfTheOperationTypes) {
    static_assert(
        std::is_same_v<decltype(noReadFunction()), std::function<std::string(std::int64_t)>>);
    static_assert(std::is_same_v<
                  decltype(noWriteFunction()), std::function<std::int64_t(const std::string&)>>);
    static_assert(
        std::is_same_v<
            decltype(noSeekOffFunction()), std::function<std::streampos(std::int64_t, int, int)>>);
    static_assert(
        std::is_same_v<
            decltype(noSeekPosFunction()), std::function<std::streampos(std::streampos, int)>>);
    static_assert(std::is_same_v<
                  decltype(noCloseFunction()), std::function<void(const boost::uuids::uuid&)>>);

    EXPECT_FALSE(noReadFunction());
    EXPECT_FALSE(noWriteFunction());
    EXPECT_FALSE(noSeekOffFunction());
    EXPECT_FALSE(noSeekPosFunction());
    EXPECT_FALSE(noCloseFunction());
}

TEST(DefaultsTest, ThrowNothingWhenMade) {
    static_assert(noexcept(noReadFunction()));
    static_assert(noexcept(noWriteFunction()));
    static_assert(noexcept(noSeekOffFunction()));
    static_assert(noexcept(noSeekPosFunction()));
    static_assert(noexcept(noCloseFunction()));

    EXPECT_FALSE(noReadFunction());
}

TEST(DefaultsTest, ThrowBadFunctionCallWhenInvoked) {
    EXPECT_THROW(noReadFunction()(1), std::bad_function_call);
    EXPECT_THROW(noWriteFunction()("x"), std::bad_function_call);
    EXPECT_THROW(noSeekOffFunction()(0, 0, 0), std::bad_function_call);
    EXPECT_THROW(noSeekPosFunction()(std::streampos(), 0), std::bad_function_call);
    EXPECT_THROW(noCloseFunction()(exampleUuid()), std::bad_function_call);
}

} // namespace
} // namespace agent::orvi::streambuf::test
