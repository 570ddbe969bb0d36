#include "payload/PayloadAdapters.hpp"

#include "payload/GenericPayloadTestAccess.hpp"
#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace agent::orvi::core::detail {
namespace {

using foundation::concurrent::threadpool::stop_token;
using streambuf::test::throwsExactly;

using Adapted = std::function<GenericPayload(stop_token, GenericPayload)>;
using Pair = std::tuple<std::int64_t, int>;
using Triple = std::tuple<std::int64_t, int, int>;

/// Typed functions that record their calls, in adapted form.
class PayloadAdapterTest : public testing::Test {
protected:
    std::vector<std::string> calls;

    Adapted one = genericPayloadWrapper([this](std::int64_t a) {
        calls.push_back(std::to_string(a));
        return std::string(static_cast<std::size_t>(a), 'x');
    });
    Adapted two = genericPayloadWrapper([this](std::int64_t a, int b) {
        calls.push_back(std::to_string(a) + "," + std::to_string(b));
        return a + b;
    });
    Adapted three = genericPayloadWrapper([this](std::int64_t a, int b, int c) {
        calls.push_back(std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(c));
        return a + b + c;
    });

    template <class Exception>
    void expectRefused(const Adapted& adapted, GenericPayload payload, const std::string& text) {
        EXPECT_THAT(
            [&] { adapted(stop_token(), std::move(payload)); }, throwsExactly<Exception>(text));
        EXPECT_TRUE(calls.empty()) << calls.front();
    }

    void expectBadCast(const Adapted& adapted, GenericPayload payload) {
        expectRefused<BadAnyCast>(adapted, std::move(payload), "Bad any_cast");
    }
};

template <class T>
std::future<T> ready(T value) {
    std::promise<T> promise;
    promise.set_value(value);
    return promise.get_future();
}

template <class T>
GenericPayload taken(GenericPayload payload) {
    payload.take<T>(0);
    return payload;
}

TEST_F(PayloadAdapterTest, AnswersWithOneSlotOfTheResultsType) {
    GenericPayload text = one(stop_token(), GenericPayload::fromValues(std::int64_t{3}));
    ASSERT_EQ(text.size(), 1u);
    EXPECT_FALSE(text.isPackedArguments(0));
    EXPECT_EQ(text.take<std::string>(0), "xxx");
    GenericPayload sum = two(stop_token(), GenericPayload::fromValues(std::int64_t{3}, 4));
    ASSERT_EQ(sum.size(), 1u);
    EXPECT_EQ(sum.take<std::int64_t>(0), 7);
}

TEST_F(PayloadAdapterTest, HasTheFormInWhichTheFrameworkCallsMethods) {
    static_assert(
        std::is_same_v<decltype(genericPayloadWrapper(std::function<int(int)>())), Adapted>);
    const Adapted copy = one;
    copy(stop_token(), GenericPayload::fromValues(std::int64_t{1}));
    one(stop_token(), GenericPayload::fromValues(std::int64_t{2}));
    EXPECT_EQ(calls, (std::vector<std::string>{"1", "2"}));
}

TEST_F(PayloadAdapterTest, OneParameterIgnoresFurtherSlots) {
    one(stop_token(), GenericPayload::fromValues(std::int64_t{5}, std::string("anything")));
    one(stop_token(), GenericPayload::fromValues(std::int64_t{6}, 1, 2, 3, 4, 5, 6));
    EXPECT_EQ(calls, (std::vector<std::string>{"5", "6"}));
}

TEST_F(PayloadAdapterTest, OneParameterRunsTheSlotChecks) {
    expectRefused<std::out_of_range>(one, GenericPayload(), "Invalid GenericPayload index");
    expectRefused<std::runtime_error>(
        one, taken<std::int64_t>(GenericPayload::fromValues(std::int64_t{5})),
        "GenericPayload empty at index");
    expectBadCast(one, GenericPayload::fromValues(5));
    expectBadCast(one, GenericPayload::fromValues(5, std::int64_t{5}));
    expectRefused<std::runtime_error>(
        one, GenericPayload::fromFuture(ready(std::int64_t{5})),
        "Polymorphic types are not supported with futures");
}

TEST_F(PayloadAdapterTest, OneParameterHasNoPackedForm) {
    expectBadCast(one, GenericPayload::fromPackedArguments(std::tuple<std::int64_t>(5)));
    // The flag array is not even looked at.
    one(stop_token(),
        GenericPayloadTestAccess::withoutPackedFlags(GenericPayload::fromValues(std::int64_t{7})));
    EXPECT_EQ(calls, (std::vector<std::string>{"7"}));
}

TEST_F(PayloadAdapterTest, MoreParametersTakeOneSlotEach) {
    two(stop_token(), GenericPayload::fromValues(std::int64_t{10}, 1));
    three(stop_token(), GenericPayload::fromValues(std::int64_t{20}, 2, -3));
    EXPECT_EQ(calls, (std::vector<std::string>{"10,1", "20,2,-3"}));
}

TEST_F(PayloadAdapterTest, MoreParametersTakeOnePackedSlot) {
    two(stop_token(), GenericPayload::fromPackedArguments(Pair(10, 1)));
    three(stop_token(), GenericPayload::fromPackedArguments(Triple(20, 2, -3)));
    EXPECT_EQ(calls, (std::vector<std::string>{"10,1", "20,2,-3"}));
}

TEST_F(PayloadAdapterTest, RefusesEveryOtherNumberOfSlots) {
    const std::int64_t a = 1;
    for (const Adapted* adapted : {&two, &three}) {
        expectBadCast(*adapted, GenericPayload());
        expectBadCast(*adapted, GenericPayload::fromValues(a));
        expectBadCast(*adapted, GenericPayload::fromValues(a, 2, 3, 4));
    }
    expectBadCast(two, GenericPayload::fromValues(a, 2, 3));
    expectBadCast(three, GenericPayload::fromValues(a, 2));
}

TEST_F(PayloadAdapterTest, RefusesATupleWithoutThePackedFlag) {
    expectBadCast(two, GenericPayload::fromValues(Pair(1, 2)));
    expectBadCast(three, GenericPayload::fromValues(Triple(1, 2, 3)));
}

TEST_F(PayloadAdapterTest, RefusesAPackedTupleOfOtherTypes) {
    expectBadCast(two, GenericPayload::fromPackedArguments(Triple(1, 2, 3)));
    expectBadCast(two, GenericPayload::fromPackedArguments(std::tuple<int, int>(1, 2)));
    expectBadCast(
        two, GenericPayload::fromPackedArguments(std::tuple<std::int64_t, std::int64_t>(1, 2)));
    expectBadCast(three, GenericPayload::fromPackedArguments(Pair(1, 2)));
    expectRefused<std::runtime_error>(
        two, taken<Pair>(GenericPayload::fromPackedArguments(Pair(1, 2))),
        "GenericPayload empty at index");
}

TEST_F(PayloadAdapterTest, TestsTheBoundsOfTheArraysOfAPackedSlot) {
    const GenericPayload packed = GenericPayload::fromPackedArguments(Pair(1, 2));
    expectRefused<std::out_of_range>(
        two, GenericPayloadTestAccess::withoutPackedFlags(packed),
        "invalid vector<bool> subscript");
    expectRefused<std::out_of_range>(
        two, GenericPayloadTestAccess::withoutTypes(packed), "invalid vector subscript");
}

TEST_F(PayloadAdapterTest, ChecksTheTypeOfEverySlot) {
    const std::int64_t a = 1;
    expectBadCast(three, GenericPayload::fromValues(1, 2, 3));
    expectBadCast(three, GenericPayload::fromValues(a, a, 3));
    expectBadCast(three, GenericPayload::fromValues(a, 2, a));
    expectBadCast(two, GenericPayload::fromValues(std::string(), 2));
    expectBadCast(two, GenericPayload::fromValues(a, std::string()));
}

TEST_F(PayloadAdapterTest, ReportsTheFirstSlotThatDoesNotFit) {
    const std::int64_t a = 1;
    expectRefused<std::runtime_error>(
        two, taken<std::int64_t>(GenericPayload::fromValues(a, a)),
        "GenericPayload empty at index");
    GenericPayload secondTaken = GenericPayload::fromValues(1, 2);
    secondTaken.take<int>(1);
    expectBadCast(two, secondTaken);
    GenericPayload onlySecondTaken = GenericPayload::fromValues(a, 2);
    onlySecondTaken.take<int>(1);
    expectRefused<std::runtime_error>(two, onlySecondTaken, "GenericPayload empty at index");
}

TEST_F(PayloadAdapterTest, CallsAnEmptyFunctionOnlyWithFittingArguments) {
    const Adapted empty = genericPayloadWrapper(std::function<int(std::int64_t, int)>());
    expectBadCast(empty, GenericPayload::fromValues(1, 2));
    EXPECT_THROW(
        empty(stop_token(), GenericPayload::fromValues(std::int64_t{1}, 2)),
        std::bad_function_call);
    EXPECT_THROW(
        empty(stop_token(), GenericPayload::fromPackedArguments(Pair(1, 2))),
        std::bad_function_call);
    const Adapted emptyOne = genericPayloadWrapper(std::function<int(int)>());
    EXPECT_THROW(emptyOne(stop_token(), GenericPayload::fromValues(1)), std::bad_function_call);
}

TEST_F(PayloadAdapterTest, PassesOnWhatTheFunctionThrows) {
    const Adapted throwing = genericPayloadWrapper(
        [](int) -> int { throw std::domain_error("the function's own trouble"); });
    EXPECT_THAT(
        [&] { throwing(stop_token(), GenericPayload::fromValues(1)); },
        throwsExactly<std::domain_error>("the function's own trouble"));
}

/// What a function of a constant reference received.
struct Uncounted {
    explicit Uncounted(int* copies)
        : copies(copies) {}

    Uncounted(const Uncounted& other)
        : copies(other.copies) {
        ++*copies;
    }

    Uncounted& operator=(const Uncounted&) = delete;

    int* copies;
};

TEST(PayloadAdapterReferenceTest, HandsArgumentsOverInPlace) {
    int copies = 0;
    const void* received = nullptr;
    const auto remember = [&](const Uncounted& argument) {
        received = &argument;
        return 0;
    };
    const auto rememberSecond = [&](int, const Uncounted& argument) {
        received = &argument;
        return 0;
    };
    GenericPayload payload = GenericPayload::fromValues(Uncounted(&copies));
    const void* place = &payload.peek<Uncounted>(0);
    copies = 0;
    genericPayloadWrapper(remember)(stop_token(), std::move(payload));
    EXPECT_EQ(received, place);

    payload = GenericPayload::fromValues(1, Uncounted(&copies));
    place = &payload.peek<Uncounted>(1);
    copies = 0;
    genericPayloadWrapper(rememberSecond)(stop_token(), std::move(payload));
    EXPECT_EQ(received, place);

    payload = GenericPayload::fromPackedArguments(std::tuple<int, Uncounted>(1, &copies));
    place = &std::get<1>(payload.peek<std::tuple<int, Uncounted>>(0));
    copies = 0;
    genericPayloadWrapper(rememberSecond)(stop_token(), std::move(payload));
    EXPECT_EQ(received, place);
    EXPECT_EQ(copies, 0);
}

TEST(PayloadAdapterReferenceTest, ChecksTheTypeBehindAConstantReference) {
    const auto length = [](const std::string& text, const std::int64_t& more) {
        return static_cast<std::int64_t>(text.size()) + more;
    };
    GenericPayload answer = genericPayloadWrapper(length)(
        stop_token(), GenericPayload::fromValues(std::string("four"), std::int64_t{1}));
    EXPECT_EQ(answer.take<std::int64_t>(0), 5);
}

TEST(PayloadAdapterReferenceTest, AnswersWithACopyOfAReferredResult) {
    const std::string kept = "kept";
    const auto refer = [&](int) -> const std::string& { return kept; };
    GenericPayload answer =
        genericPayloadWrapper(refer)(stop_token(), GenericPayload::fromValues(1));
    EXPECT_NE(&answer.peek<std::string>(0), &kept);
    EXPECT_EQ(answer.take<std::string>(0), "kept");
}

} // namespace
} // namespace agent::orvi::core::detail
