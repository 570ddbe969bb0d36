#include "payload/GenericPayload.hpp"

#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace agent::orvi::core {
namespace {

using streambuf::test::throwsExactly;

const char* const refusal = "A GenericPayload that holds a future cannot be copied.";

/// A value whose copying fails when it is told to.
struct Uncopyable {
    explicit Uncopyable(const bool* refuse)
        : refuse(refuse) {}

    Uncopyable(const Uncopyable& other)
        : refuse(other.refuse) {
        if (*refuse) {
            throw std::domain_error("this one cannot be copied now");
        }
    }

    Uncopyable& operator=(const Uncopyable&) = delete;

    const bool* refuse;
};

TEST(GenericPayloadCopyTest, NeverSharesAValue) {
    GenericPayload original =
        GenericPayload::fromValues(std::vector<int>{1, 2, 3}, std::string("text"));
    GenericPayload copy = original;
    EXPECT_NE(&copy.peek<std::vector<int>>(0), &original.peek<std::vector<int>>(0));
    EXPECT_NE(&copy.peek<std::string>(1), &original.peek<std::string>(1));
    EXPECT_EQ(copy.take<std::vector<int>>(0), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(original.take<std::vector<int>>(0), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(original.take<std::string>(1), "text");
    EXPECT_EQ(copy.take<std::string>(1), "text");
}

TEST(GenericPayloadCopyTest, NeverSharesAValueWhenAssigned) {
    GenericPayload original = GenericPayload::fromValues(std::string("original"));
    GenericPayload target = GenericPayload::fromValues(1, 2, 3, 4);
    target = original;
    ASSERT_EQ(target.size(), 1u);
    EXPECT_NE(&target.peek<std::string>(0), &original.peek<std::string>(0));
    EXPECT_EQ(target.take<std::string>(0), "original");
    EXPECT_EQ(original.take<std::string>(0), "original");
}

TEST(GenericPayloadCopyTest, KeepsTypesAndFlags) {
    const GenericPayload packed =
        GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int>(1, 2));
    const GenericPayload copy = packed;
    EXPECT_TRUE(copy.isPackedArguments(0));
    EXPECT_EQ((copy.peek<std::tuple<std::int64_t, int>>(0)), std::tuple(1, 2));
    EXPECT_THAT([&] { copy.peek<int>(0); }, throwsExactly<BadAnyCast>("Bad any_cast"));
}

TEST(GenericPayloadCopyTest, LeavesATakenSlotEmpty) {
    GenericPayload original = GenericPayload::fromValues(1, 2);
    original.take<int>(0);
    GenericPayload copy = original;
    ASSERT_EQ(copy.size(), 2u);
    EXPECT_THAT(
        [&] { copy.take<int>(0); },
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
    EXPECT_EQ(copy.take<int>(1), 2);
}

TEST(GenericPayloadCopyTest, IsRefusedWhileASlotHoldsAFuture) {
    std::promise<int> promise;
    promise.set_value(3);
    GenericPayload original = GenericPayload::fromFuture(promise.get_future());
    GenericPayload target = GenericPayload::fromValues(std::string("kept"));
    EXPECT_THAT([&] { GenericPayload copy(original); }, throwsExactly<std::logic_error>(refusal));
    EXPECT_THAT([&] { target = original; }, throwsExactly<std::logic_error>(refusal));
    EXPECT_EQ(target.take<std::string>(0), "kept");
    EXPECT_EQ(original.take<int>(0), 3);
    EXPECT_EQ(GenericPayload(original).size(), 1u) << "the future is gone, nothing is refused";
}

TEST(GenericPayloadCopyTest, PassesOnWhatAValuesCopyThrowsAndChangesNothing) {
    bool refuse = false;
    const GenericPayload original =
        GenericPayload::fromValues(std::string("first"), Uncopyable(&refuse));
    GenericPayload target = GenericPayload::fromValues(7);
    refuse = true;
    EXPECT_THAT(
        [&] { target = original; },
        throwsExactly<std::domain_error>("this one cannot be copied now"));
    EXPECT_EQ(target.take<int>(0), 7);
    EXPECT_EQ(original.peek<std::string>(0), "first");
}

TEST(GenericPayloadMoveTest, LeavesTheSourceWithoutSlots) {
    static_assert(std::is_nothrow_move_constructible_v<GenericPayload>);
    static_assert(std::is_nothrow_move_assignable_v<GenericPayload>);
    GenericPayload source = GenericPayload::fromValues(1, std::string("two"), 3, 4, 5);
    const std::string* const place = &source.peek<std::string>(1);

    GenericPayload constructed = std::move(source);
    EXPECT_EQ(source.size(), 0u);
    EXPECT_THAT(
        [&] { source.take<int>(0); },
        throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
    EXPECT_EQ(&constructed.peek<std::string>(1), place) << "values move without being touched";

    GenericPayload assigned = GenericPayload::fromValues(9);
    assigned = std::move(constructed);
    EXPECT_EQ(constructed.size(), 0u);
    ASSERT_EQ(assigned.size(), 5u);
    EXPECT_EQ(&assigned.peek<std::string>(1), place);
    EXPECT_EQ(assigned.take<int>(4), 5);
}

TEST(GenericPayloadMoveTest, CarriesFutureAndPackedFlags) {
    std::promise<int> promise;
    GenericPayload future = GenericPayload::fromFuture(promise.get_future());
    GenericPayload packed = GenericPayload::fromPackedArguments(std::tuple<int, int>(1, 2));
    std::swap(future, packed);
    EXPECT_TRUE(future.isPackedArguments(0));
    EXPECT_FALSE(packed.isPackedArguments(0));
    promise.set_value(6);
    EXPECT_EQ(packed.take<int>(0), 6);
}

TEST(GenericPayloadMoveTest, ASourceCanBeFilledAgain) {
    GenericPayload source = GenericPayload::fromPackedArguments(std::tuple<int, int>(1, 2));
    const GenericPayload taken = std::move(source);
    source = GenericPayload::fromValues(std::string("again"));
    EXPECT_FALSE(source.isPackedArguments(0));
    EXPECT_EQ(source.take<std::string>(0), "again");
    EXPECT_EQ(taken.size(), 1u);
}

TEST(GenericPayloadAssignmentTest, ToItselfChangesNothing) {
    GenericPayload payload = GenericPayload::fromValues(1, std::string("two"), 3, 4, 5);
    GenericPayload& alias = payload;
    payload = alias;
    ASSERT_EQ(payload.size(), 5u);
    payload = std::move(alias);
    ASSERT_EQ(payload.size(), 5u);
    EXPECT_FALSE(payload.isPackedArguments(4));
    EXPECT_EQ(payload.take<int>(0), 1);
    EXPECT_EQ(payload.take<std::string>(1), "two");
    EXPECT_EQ(payload.take<int>(4), 5);
}

} // namespace
} // namespace agent::orvi::core
