#include "devices/FailingOperation.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace agent::orvi::streambuf::test {
namespace {

using details::makeNoFunctionProvided;
using ::testing::ThrowsMessage;

std::string message(const std::string& name, const std::type_info& signature) {
    return "This device does not provide a " + name + " method with signature " + signature.name();
}

TEST(FailingOperationTest, NamesTheMissingReadWhateverIsAskedFor) {
    const ReadFunction read = details::failingReadFunction();
    for (const std::int64_t count :
         {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_THAT(
            [&] { read(count); },
            ThrowsMessage<std::runtime_error>(message("read", typeid(std::string(std::int64_t)))));
    }
}

TEST(FailingOperationTest, NamesTheOtherMissingOperations) {
    EXPECT_THAT(
        [] { details::failingWriteFunction()("data"); },
        ThrowsMessage<std::runtime_error>(
            message("write", typeid(std::int64_t(const std::string&)))));
    EXPECT_THAT(
        [] { details::failingSeekOffFunction()(0, 0, 0); },
        ThrowsMessage<std::runtime_error>(
            message("seekoff", typeid(std::streampos(std::int64_t, int, int)))));
    EXPECT_THAT(
        [] { details::failingSeekPosFunction()(std::streampos(), 0); },
        ThrowsMessage<std::runtime_error>(
            message("seekpos", typeid(std::streampos(std::streampos, int)))));
}

TEST(FailingOperationTest, ThrowsNothingMoreSpecialThanRuntimeError) {
    try {
        details::failingReadFunction()(1);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::exception& exception) {
        EXPECT_EQ(typeid(exception), typeid(std::runtime_error));
    }
}

TEST(FailingOperationTest, IsTheClosureItselfAndCallableAsItsTag) {
    const auto failing =
        makeNoFunctionProvided(std::function<double(int, const std::string&)>(), "mixed");
    static_assert(!std::is_same_v<
                  std::remove_const_t<decltype(failing)>,
                  std::function<double(int, const std::string&)>>);
    static_assert(std::is_same_v<decltype(failing(1, std::string())), double>);

    EXPECT_THAT(
        [&] { failing(1, "x"); }, ThrowsMessage<std::runtime_error>(
                                      message("mixed", typeid(double(int, const std::string&)))));
}

TEST(FailingOperationTest, ServesOperationsWithoutAResult) {
    const auto failing = makeNoFunctionProvided(std::function<void()>(), "nothing");

    EXPECT_THAT(
        [&] { failing(); }, ThrowsMessage<std::runtime_error>(message("nothing", typeid(void()))));
}

TEST(FailingOperationTest, LeavesTheGapOfAnEmptyNameOpen) {
    const auto failing = makeNoFunctionProvided(std::function<int()>(), "");

    EXPECT_THAT(
        [&] { failing(); },
        ThrowsMessage<std::runtime_error>(
            std::string("This device does not provide a  method with signature ") +
            typeid(int()).name()));
}

TEST(FailingOperationTest, NeverLooksIntoItsTag) {
    bool called = false;
    const auto failing = makeNoFunctionProvided(
        std::function<int()>([&] {
            called = true;
            return 1;
        }),
        "tagged");

    EXPECT_THROW(failing(), std::runtime_error);
    EXPECT_FALSE(called);
}

TEST(FailingOperationTest, ThrowsTheSameFromEveryCopyAndCall) {
    const ReadFunction read = details::failingReadFunction();
    const ReadFunction copy = read; // NOLINT(performance-unnecessary-copy-initialization)
    const std::string expected = message("read", typeid(std::string(std::int64_t)));

    for (int call = 0; call < 3; ++call) {
        EXPECT_THAT([&] { read(call); }, ThrowsMessage<std::runtime_error>(expected));
        EXPECT_THAT([&] { copy(call); }, ThrowsMessage<std::runtime_error>(expected));
    }
}

} // namespace
} // namespace agent::orvi::streambuf::test
