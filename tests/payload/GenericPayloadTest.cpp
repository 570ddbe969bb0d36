#include "payload/GenericPayload.hpp"

#include "allocations/AllocationCounter.hpp"
#include "payload/GenericPayloadTestAccess.hpp"
#include "support/FutureErrorOf.hpp"
#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <future>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

namespace agent::orvi::core {
namespace {

using detail::GenericPayloadTestAccess;
using orvi::test::AllocationCounter;
using streambuf::test::throwsExactly;

template <class T>
std::future<T> ready(T value) {
    std::promise<T> promise;
    promise.set_value(std::move(value));
    return promise.get_future();
}

template <class T>
std::future<T> failing(const std::string& text) {
    std::promise<T> promise;
    promise.set_exception(std::make_exception_ptr(std::domain_error(text)));
    return promise.get_future();
}

template <class T>
auto checking(const GenericPayload& payload, std::size_t index, bool forbidFutures) {
    return [&payload, index, forbidFutures] {
        payload.check(index, GenericPayload::typeHash<T>(), forbidFutures);
    };
}

template <class T>
auto taking(GenericPayload& payload, std::size_t index) {
    return [&payload, index] { payload.take<T>(index); };
}

/// A value that counts how often it was copied.
struct CopyCounting {
    explicit CopyCounting(int* copies)
        : copies(copies) {}

    CopyCounting(const CopyCounting& other)
        : copies(other.copies) {
        ++*copies;
    }

    CopyCounting(CopyCounting&&) = default;
    CopyCounting& operator=(const CopyCounting&) = delete;
    CopyCounting& operator=(CopyCounting&&) = delete;
    ~CopyCounting() = default;

    int* copies;
};

template <std::size_t Count>
void expectSlotsInOrder() {
    GenericPayload payload = []<std::size_t... Index>(std::index_sequence<Index...>) {
        return GenericPayload::fromValues(static_cast<std::int64_t>(Index * 10)...);
    }
    (std::make_index_sequence<Count>());
    ASSERT_EQ(payload.size(), Count);
    for (std::size_t index = 0; index < Count; ++index) {
        EXPECT_FALSE(payload.isPackedArguments(index));
        EXPECT_EQ(payload.peek<std::int64_t>(index), static_cast<std::int64_t>(index * 10));
    }
    // Backwards: taking one slot leaves the others where they are.
    for (std::size_t index = Count; index-- > 0;) {
        EXPECT_EQ(payload.take<std::int64_t>(index), static_cast<std::int64_t>(index * 10));
    }
    EXPECT_EQ(payload.size(), Count);
    EXPECT_THAT(
        taking<std::int64_t>(payload, Count),
        throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
}

TEST(GenericPayloadTest, HoldsOneSlotPerValueInOrder) {
    []<std::size_t... Count>(std::index_sequence<Count...>) {
        (expectSlotsInOrder<Count>(), ...);
    }
    (std::make_index_sequence<101>());
}

TEST(GenericPayloadTest, HoldsValuesOfAllTypesOfTheMethodCalls) {
    const std::string text = "data";
    GenericPayload payload = GenericPayload::fromValues(
        std::int64_t{-5}, 7, text, std::tuple<std::int64_t, int>(1, 2),
        std::tuple<std::int64_t, int, int>(3, 4, 5));
    ASSERT_EQ(payload.size(), 5u);
    EXPECT_EQ(payload.take<std::int64_t>(0), -5);
    EXPECT_EQ(payload.take<int>(1), 7);
    EXPECT_EQ(payload.take<std::string>(2), "data");
    EXPECT_EQ((payload.take<std::tuple<std::int64_t, int>>(3)), std::tuple(1, 2));
    EXPECT_EQ((payload.take<std::tuple<std::int64_t, int, int>>(4)), std::tuple(3, 4, 5));
}

TEST(GenericPayloadTest, HoldsACopyOfWhatItWasBuiltFrom) {
    std::string text = "before";
    const GenericPayload payload = GenericPayload::fromValues(text);
    text = "after";
    EXPECT_EQ(payload.peek<std::string>(0), "before");
}

TEST(GenericPayloadTest, CopiesAnArgumentOnceAndMovesItOutOfTheSlot) {
    int copies = 0;
    const CopyCounting value(&copies);
    GenericPayload payload = GenericPayload::fromValues(value);
    EXPECT_EQ(copies, 1);
    GenericPayload moved = std::move(payload);
    moved.peek<CopyCounting>(0);
    moved.take<CopyCounting>(0);
    EXPECT_EQ(copies, 1);
}

TEST(GenericPayloadTest, ChecksTheIndexFirst) {
    GenericPayload empty;
    for (const std::size_t index : {std::size_t{0}, std::numeric_limits<std::size_t>::max()}) {
        EXPECT_THAT(
            taking<int>(empty, index),
            throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
        EXPECT_THAT(
            checking<int>(empty, index, true),
            throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
    }
    GenericPayload one = GenericPayload::fromValues(1);
    EXPECT_THAT(
        taking<std::string>(one, 1),
        throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
}

TEST(GenericPayloadTest, ChecksForAnEmptySlotBeforeItsType) {
    GenericPayload payload = GenericPayload::fromValues(1, 2);
    payload.take<int>(0);
    EXPECT_THAT(
        taking<std::string>(payload, 0),
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
    EXPECT_THAT(
        checking<std::string>(payload, 0, true),
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
    EXPECT_EQ(payload.take<int>(1), 2);
}

TEST(GenericPayloadTest, TakesASlotOnlyOnce) {
    GenericPayload payload = GenericPayload::fromValues(std::int64_t{1});
    EXPECT_EQ(payload.take<std::int64_t>(0), 1);
    EXPECT_THAT(
        taking<std::int64_t>(payload, 0),
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
    EXPECT_EQ(payload.size(), 1u);
}

TEST(GenericPayloadTest, ChecksTheTypeBeforeWhetherTheSlotHoldsAFuture) {
    const GenericPayload payload = GenericPayload::fromFuture(ready(1));
    EXPECT_THAT(checking<std::string>(payload, 0, true), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(
        checking<int>(payload, 0, true),
        throwsExactly<std::runtime_error>("Polymorphic types are not supported with futures"));
    EXPECT_NO_THROW(payload.check(0, GenericPayload::typeHash<int>(), false));
}

TEST(GenericPayloadTest, DoesNotConvertBetweenTypes) {
    GenericPayload payload = GenericPayload::fromValues(std::int64_t{5}, 6, std::string("text"));
    EXPECT_THAT(taking<int>(payload, 0), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(taking<std::uint64_t>(payload, 0), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(taking<std::int64_t>(payload, 1), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(taking<const char*>(payload, 2), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THROW(payload.take<int>(0), std::bad_any_cast);
}

TEST(GenericPayloadTest, StaysAsItWasAfterAFailedCheck) {
    GenericPayload payload = GenericPayload::fromValues(std::int64_t{5}, std::string("text"));
    EXPECT_ANY_THROW(payload.take<int>(0));
    EXPECT_ANY_THROW(payload.take<std::int64_t>(1));
    EXPECT_ANY_THROW(payload.take<std::int64_t>(2));
    EXPECT_ANY_THROW(payload.peek<int>(0));
    EXPECT_ANY_THROW(payload.check(0, GenericPayload::typeHash<int>(), true));
    EXPECT_EQ(payload.size(), 2u);
    EXPECT_EQ(payload.take<std::int64_t>(0), 5);
    EXPECT_EQ(payload.take<std::string>(1), "text");
}

TEST(GenericPayloadTest, ReadsASlotInPlace) {
    const GenericPayload payload = GenericPayload::fromValues(std::string("text"));
    const std::string& first = payload.peek<std::string>(0);
    EXPECT_EQ(first, "text");
    EXPECT_EQ(&payload.peek<std::string>(0), &first);
}

TEST(GenericPayloadFutureTest, DeliversTheValueAndEmptiesTheSlot) {
    GenericPayload payload = GenericPayload::fromFuture(ready(std::string("later")));
    EXPECT_EQ(payload.size(), 1u);
    EXPECT_FALSE(payload.isPackedArguments(0));
    EXPECT_EQ(payload.take<std::string>(0), "later");
    EXPECT_THAT(
        taking<std::string>(payload, 0),
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
}

TEST(GenericPayloadFutureTest, WaitsForAValueFromAnotherThread) {
    std::promise<std::int64_t> promise;
    GenericPayload payload = GenericPayload::fromFuture(promise.get_future());
    std::promise<void> started;
    std::thread provider([&, start = started.get_future()] {
        start.wait();
        promise.set_value(42);
    });
    started.set_value();
    EXPECT_EQ(payload.take<std::int64_t>(0), 42);
    provider.join();
}

TEST(GenericPayloadFutureTest, RethrowsWhatTheFutureThrowsAndEmptiesTheSlot) {
    GenericPayload payload = GenericPayload::fromFuture(failing<std::int64_t>("no value today"));
    EXPECT_THAT(
        taking<std::int64_t>(payload, 0), throwsExactly<std::domain_error>("no value today"));
    EXPECT_THAT(
        taking<std::int64_t>(payload, 0),
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
}

TEST(GenericPayloadFutureTest, ReportsABrokenPromiseAndEmptiesTheSlot) {
    GenericPayload payload = GenericPayload::fromFuture(std::promise<int>().get_future());
    EXPECT_EQ(
        streambuf::test::futureErrorOf(taking<int>(payload, 0)), std::future_errc::broken_promise);
    EXPECT_THAT(
        taking<int>(payload, 0),
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
}

TEST(GenericPayloadFutureTest, StaysInTheSlotWhenItIsForbiddenOrOfAnotherType) {
    GenericPayload payload = GenericPayload::fromFuture(ready(std::int64_t{8}));
    EXPECT_THAT(
        [&] { payload.peek<std::int64_t>(0); },
        throwsExactly<std::runtime_error>("Polymorphic types are not supported with futures"));
    EXPECT_THAT(taking<int>(payload, 0), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(
        taking<std::future<std::int64_t>>(payload, 0), throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_EQ(payload.take<std::int64_t>(0), 8);
}

TEST(GenericPayloadPackedTest, HoldsAllArgumentsInOneFlaggedSlot) {
    GenericPayload payload =
        GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int>(9, 1));
    EXPECT_EQ(payload.size(), 1u);
    EXPECT_TRUE(payload.isPackedArguments(0));
    EXPECT_EQ((payload.peek<std::tuple<std::int64_t, int>>(0)), std::tuple(9, 1));
    EXPECT_EQ((payload.take<std::tuple<std::int64_t, int>>(0)), std::tuple(9, 1));
}

TEST(GenericPayloadPackedTest, RefusesTheFlagOfASlotThatIsNotThere) {
    const GenericPayload payload = GenericPayload::fromValues(1);
    EXPECT_THAT(
        [&] { payload.isPackedArguments(1); },
        throwsExactly<std::out_of_range>("invalid vector<bool> subscript"));
}

TEST(GenericPayloadArraysTest, AreReadWithTheirBoundsTested) {
    const GenericPayload whole = GenericPayload::fromValues(1);
    EXPECT_THAT(
        [&] { GenericPayloadTestAccess::withoutPackedFlags(whole).isPackedArguments(0); },
        throwsExactly<std::out_of_range>("invalid vector<bool> subscript"));
    EXPECT_THAT(
        checking<int>(GenericPayloadTestAccess::withoutTypes(whole), 0, true),
        throwsExactly<std::out_of_range>("invalid vector subscript"));
    EXPECT_THAT(
        checking<int>(GenericPayloadTestAccess::withoutFutureFlags(whole), 0, true),
        throwsExactly<std::out_of_range>("invalid vector<bool> subscript"));
}

TEST(GenericPayloadArraysTest, MissingFutureFlagsLeaveTheSlotFilled) {
    GenericPayload payload =
        GenericPayloadTestAccess::withoutFutureFlags(GenericPayload::fromValues(1));
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_THAT(
            taking<int>(payload, 0),
            throwsExactly<std::out_of_range>("invalid vector<bool> subscript"));
    }
}

TEST(GenericPayloadTypeHashTest, IsBoostsHashOfTheTypesName) {
    const auto boostHash = []<class T>(T*) {
        return boost::typeindex::ctti_type_index::type_id<T>().hash_code();
    };
    using Pair = std::tuple<std::int64_t, int>;
    using Triple = std::tuple<std::int64_t, int, int>;
    EXPECT_EQ(GenericPayload::typeHash<int>(), boostHash(static_cast<int*>(nullptr)));
    EXPECT_EQ(
        GenericPayload::typeHash<std::int64_t>(), boostHash(static_cast<std::int64_t*>(nullptr)));
    EXPECT_EQ(
        GenericPayload::typeHash<std::string>(), boostHash(static_cast<std::string*>(nullptr)));
    EXPECT_EQ(GenericPayload::typeHash<Pair>(), boostHash(static_cast<Pair*>(nullptr)));
    EXPECT_EQ(GenericPayload::typeHash<Triple>(), boostHash(static_cast<Triple*>(nullptr)));
    const std::set<std::uint64_t> distinct = {
        GenericPayload::typeHash<int>(), GenericPayload::typeHash<std::int64_t>(),
        GenericPayload::typeHash<std::string>(), GenericPayload::typeHash<Pair>(),
        GenericPayload::typeHash<Triple>()};
    EXPECT_EQ(distinct.size(), 5u);
}

/// The shortest of several measurements, in nanoseconds per call: what disturbs a measurement only
/// makes it longer.
double shortestTime(std::uint64_t (*function)()) {
    constexpr int calls = 2000;
    std::uint64_t (*volatile opaque)() = function;
    double shortest = std::numeric_limits<double>::max();
    for (int round = 0; round < 20; ++round) {
        const auto start = std::chrono::steady_clock::now();
        for (int call = 0; call < calls; ++call) {
            opaque();
        }
        const std::chrono::duration<double, std::nano> spent =
            std::chrono::steady_clock::now() - start;
        shortest = std::min(shortest, spent.count() / calls);
    }
    return shortest;
}

TEST(GenericPayloadTypeHashTest, IsComputedOncePerType) {
    using Nested = std::tuple<
        std::tuple<std::string, std::tuple<std::string, std::string>>,
        std::tuple<std::string, std::tuple<std::string, std::string>>,
        std::tuple<std::string, std::tuple<std::string, std::string>>>;
    const double computed = shortestTime([]() -> std::uint64_t {
        return boost::typeindex::ctti_type_index::type_id<Nested>().hash_code();
    });
    const double kept = shortestTime(&GenericPayload::typeHash<Nested>);
    EXPECT_LT(kept * 5, computed);
}

TEST(GenericPayloadAllocationTest, TakesNoMoreThanTheValuesThemselves) {
    const std::string longText(1000, 'x');
    AllocationCounter counter;
    GenericPayload one = GenericPayload::fromValues(std::int64_t{1});
    EXPECT_LE(counter.count(), 1u);

    AllocationCounter three;
    const GenericPayload arguments = GenericPayload::fromValues(std::int64_t{1}, 2, 3);
    EXPECT_LE(three.count(), 3u);

    AllocationCounter text;
    GenericPayload data = GenericPayload::fromValues(longText);
    EXPECT_LE(text.count(), 2u);

    AllocationCounter none;
    GenericPayload moved = std::move(one);
    one = std::move(moved);
    one.take<std::int64_t>(0);
    const std::string taken = data.take<std::string>(0);
    EXPECT_EQ(none.count(), 0u);
    EXPECT_EQ(taken, longText);
}

} // namespace
} // namespace agent::orvi::core
