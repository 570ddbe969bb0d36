#include "payload/GenericPayload.hpp"

#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <stdexcept>
#include <string>
#include <tuple>

namespace agent::orvi::core {
namespace {

using streambuf::test::throwsExactly;

std::future<std::string> ready(std::string value) {
    std::promise<std::string> promise;
    promise.set_value(std::move(value));
    return promise.get_future();
}

/// A slot of each kind: a value, all arguments, a future, and one that was taken.
GenericPayload oneOfEach() {
    GenericPayload payload = GenericPayload::fromValues(std::int64_t{1});
    payload.append(GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int>(2, 3)));
    payload.append(GenericPayload::fromFuture(ready("later")));
    payload.append(GenericPayload::fromValues(4));
    payload.take<int>(3);
    return payload;
}

TEST(GenericPayloadSlotsTest, TellTheirTypeWhateverTheyHold) {
    const GenericPayload payload = oneOfEach();
    ASSERT_EQ(payload.size(), 4U);
    EXPECT_EQ(payload.slotType(0), GenericPayload::typeHash<std::int64_t>());
    EXPECT_EQ(payload.slotType(1), (GenericPayload::typeHash<std::tuple<std::int64_t, int>>()));
    EXPECT_EQ(payload.slotType(2), GenericPayload::typeHash<std::string>());
    EXPECT_EQ(payload.slotType(3), GenericPayload::typeHash<int>());
}

TEST(GenericPayloadSlotsTest, TellWhetherTheyAreEmptyAndHoldAFuture) {
    GenericPayload payload = oneOfEach();
    for (std::size_t index = 0; index < payload.size(); ++index) {
        EXPECT_EQ(payload.isEmpty(index), index == 3) << index;
        EXPECT_EQ(payload.holdsFuture(index), index == 2) << index;
        EXPECT_EQ(payload.isPackedArguments(index), index == 1) << index;
    }
    EXPECT_EQ(payload.take<std::string>(2), "later");
    EXPECT_TRUE(payload.isEmpty(2));
    EXPECT_TRUE(payload.holdsFuture(2));
}

TEST(GenericPayloadSlotsTest, AreOutOfRangeFromTheSizeOn) {
    GenericPayload payload = oneOfEach();
    const auto outOfRange = throwsExactly<std::out_of_range>("Invalid GenericPayload index");
    EXPECT_THAT([&] { payload.slotType(4); }, outOfRange);
    EXPECT_THAT([&] { payload.isEmpty(4); }, outOfRange);
    EXPECT_THAT([&] { payload.holdsFuture(4); }, outOfRange);
    EXPECT_THAT([&] { payload.takeSlot(4); }, outOfRange);
    EXPECT_THAT([&] { payload.edit<int>(4); }, outOfRange);
    EXPECT_EQ(payload.size(), 4U);
}

TEST(GenericPayloadSlotsTest, AreChangedInPlace) {
    GenericPayload payload = GenericPayload::fromValues(std::string("before"));
    std::string& text = payload.edit<std::string>(0);
    text = "after";
    EXPECT_EQ(payload.peek<std::string>(0), "after");
    EXPECT_EQ(&payload.peek<std::string>(0), &text);
}

TEST(GenericPayloadSlotsTest, AreChangedInPlaceOnlyAsTheTypeThatTheyHold) {
    GenericPayload payload = oneOfEach();
    EXPECT_THAT([&] { payload.edit<int>(0); }, throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(
        [&] { payload.edit<std::string>(2); },
        throwsExactly<std::runtime_error>("Polymorphic types are not supported with futures"));
    EXPECT_THAT(
        [&] { payload.edit<int>(3); },
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
}

TEST(GenericPayloadSlotsTest, FollowThoseThatAreThereAlready) {
    GenericPayload payload;
    for (std::int64_t number = 0; number < 70; ++number) {
        GenericPayload added = GenericPayload::fromValues(number);
        payload.append(std::move(added));
        EXPECT_EQ(added.size(), 0U); // NOLINT(bugprone-use-after-move): that is the promise
    }
    ASSERT_EQ(payload.size(), 70U);
    for (std::size_t index = 0; index < 70; ++index) {
        EXPECT_EQ(payload.peek<std::int64_t>(index), static_cast<std::int64_t>(index));
    }
}

TEST(GenericPayloadSlotsTest, OfAnAppendedPayloadAreCopiedAsAnyOther) {
    GenericPayload payload = GenericPayload::fromValues(1);
    payload.append(GenericPayload::fromValues(std::string("text")));
    GenericPayload copy = payload;
    copy.edit<std::string>(1) = "changed";
    EXPECT_EQ(payload.peek<std::string>(1), "text");
}

TEST(GenericPayloadSlotsTest, LeaveWithTheirKindAndLeaveAnEmptySlotBehind) {
    GenericPayload payload = oneOfEach();
    GenericPayload value = payload.takeSlot(0);
    GenericPayload packed = payload.takeSlot(1);
    GenericPayload future = payload.takeSlot(2);
    const GenericPayload empty = payload.takeSlot(3);
    EXPECT_EQ(value.take<std::int64_t>(0), 1);
    EXPECT_TRUE(packed.isPackedArguments(0));
    EXPECT_EQ((packed.take<std::tuple<std::int64_t, int>>(0)), std::tuple(2, 3));
    EXPECT_TRUE(future.holdsFuture(0));
    EXPECT_EQ(future.take<std::string>(0), "later");
    EXPECT_TRUE(empty.isEmpty(0));
    EXPECT_EQ(empty.slotType(0), GenericPayload::typeHash<int>());
    ASSERT_EQ(payload.size(), 4U);
    for (std::size_t index = 0; index < payload.size(); ++index) {
        EXPECT_TRUE(payload.isEmpty(index)) << index;
    }
}

} // namespace
} // namespace agent::orvi::core
