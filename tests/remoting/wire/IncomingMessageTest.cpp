#include "remoting/wire/Frames.hpp"

#include "allocations/LargestAllocation.hpp"
#include "support/ThrowsExactly.hpp"

#include <orvi/remoting/Errors.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using streambuf::test::throwsExactly;

constexpr std::uint64_t anyTrust = std::numeric_limits<std::uint64_t>::max();

v1::Slot slotOf(v1::Type type, const std::vector<std::int64_t>& numbers = {}) {
    v1::Slot slot;
    slot.set_type(type);
    slot.mutable_numbers()->Add(numbers.begin(), numbers.end());
    return slot;
}

v1::Slot textOf(std::uint64_t length) {
    v1::Slot slot = slotOf(v1::TEXT);
    slot.set_length(length);
    return slot;
}

void begin(
    IncomingMessage& message, const std::vector<v1::Slot>& slots,
    std::uint64_t trustedBytes = anyTrust) {
    v1::Request request;
    request.mutable_slots()->Add(slots.begin(), slots.end());
    message.begin(request.slots());
    message.reserve(trustedBytes);
}

void append(IncomingMessage& message, const std::string& data) {
    const std::string bytes = encoded(encodeFrame(v1::Frame(), bytesOf(data)));
    SlicedInput input(bytes, 1000);
    FrameReader reader(input, bytes.size());
    v1::Frame head;
    reader.readHead(head);
    message.append(reader);
}

void expectRefused(const v1::Slot& slot, const std::string& why) {
    IncomingMessage message;
    EXPECT_THAT(
        [&] { begin(message, {slot}); },
        throwsExactly<ProtocolError>("A slot of a message does not fit its type: " + why + '.'))
        << slot.DebugString();
}

TEST(IncomingMessageTest, IsCompleteAtOnceWithoutTexts) {
    IncomingMessage message;
    begin(message, {slotOf(v1::INT64, {5}), textOf(0)});
    EXPECT_TRUE(message.complete());
    EXPECT_EQ(message.byteCount(), 0U);
    GenericPayload payload = message.take();
    EXPECT_EQ(payload.take<std::int64_t>(0), 5);
    EXPECT_EQ(payload.take<std::string>(1), "");
}

TEST(IncomingMessageTest, IsCompleteWithTheLastByteOfTheLastText) {
    IncomingMessage message;
    begin(message, {textOf(3), slotOf(v1::INT32, {-7}), textOf(0), textOf(4)});
    EXPECT_EQ(message.byteCount(), 7U);
    append(message, "ab");
    EXPECT_FALSE(message.complete());
    append(message, "cABC"); // one frame may end one text and start the next
    EXPECT_FALSE(message.complete());
    append(message, "D");
    EXPECT_TRUE(message.complete());
    GenericPayload payload = message.take();
    EXPECT_EQ(payload.take<std::string>(0), "abc");
    EXPECT_EQ(payload.take<int>(1), -7);
    EXPECT_EQ(payload.take<std::string>(2), "");
    EXPECT_EQ(payload.take<std::string>(3), "ABCD");
}

TEST(IncomingMessageTest, StartsAfresh) {
    IncomingMessage message;
    begin(message, {textOf(3)});
    append(message, "ab");
    begin(message, {slotOf(v1::INT32, {1})});
    EXPECT_TRUE(message.complete());
    EXPECT_EQ(message.take().size(), 1U);
    begin(message, {textOf(1)});
    append(message, "x");
    EXPECT_EQ(message.take().take<std::string>(0), "x");
}

TEST(IncomingMessageTest, RefusesMoreDataThanWereAnnounced) {
    const auto tooMuch = throwsExactly<ProtocolError>("A message has more data than it announced.");
    IncomingMessage message;
    begin(message, {textOf(3)});
    EXPECT_THAT([&] { append(message, "abcd"); }, tooMuch);
    begin(message, {});
    EXPECT_THAT([&] { append(message, "a"); }, tooMuch);
}

TEST(IncomingMessageTest, NoticesAFrameThatEndsTooEarly) {
    IncomingMessage message;
    begin(message, {textOf(100)});
    SlicedInput input("\x7a\x0f only nine", 4);
    FrameReader reader(input, 17);
    v1::Frame head;
    reader.readHead(head);
    EXPECT_THAT(
        [&] { message.append(reader); }, throwsExactly<ProtocolError>("A frame is malformed."));
    EXPECT_FALSE(message.complete());
}

TEST(IncomingMessageTest, RefusesNumbersThatDoNotFitTheType) {
    const std::string count = "it has too many numbers or too few";
    expectRefused(slotOf(v1::INT64), count);
    expectRefused(slotOf(v1::INT64, {1, 2}), count);
    expectRefused(slotOf(v1::INT32), count);
    expectRefused(slotOf(v1::TEXT, {1}), count);
    expectRefused(slotOf(v1::INT64_INT32, {1}), count);
    expectRefused(slotOf(v1::INT64_INT32, {1, 2, 3}), count);
    expectRefused(slotOf(v1::INT64_INT32_INT32, {1, 2}), count);
    expectRefused(slotOf(v1::INT64_INT32_INT32, {1, 2, 3, 4}), count);

    constexpr std::int64_t above = std::int64_t{std::numeric_limits<int>::max()} + 1;
    constexpr std::int64_t below = std::int64_t{std::numeric_limits<int>::min()} - 1;
    for (const std::int64_t number : {above, below}) {
        expectRefused(slotOf(v1::INT32, {number}), "a number is out of range");
        expectRefused(slotOf(v1::INT64_INT32, {1, number}), "a number is out of range");
        expectRefused(slotOf(v1::INT64_INT32_INT32, {1, 2, number}), "a number is out of range");
    }
}

TEST(IncomingMessageTest, RefusesLengthsOfWhatIsNoText) {
    for (const int type : {0, 1, 2, 4, 5, 6, 100}) {
        v1::Slot slot = slotOf(static_cast<v1::Type>(type));
        slot.set_length(1);
        expectRefused(slot, "it announces data");
    }
    for (const auto state : {v1::Slot::EMPTY, v1::Slot::FUTURE}) {
        v1::Slot slot = textOf(1);
        slot.set_state(state);
        expectRefused(slot, "it announces data");
    }
}

TEST(IncomingMessageTest, RefusesToPackWhatIsNoTuple) {
    for (v1::Slot slot : {slotOf(v1::INT64, {1}), slotOf(v1::INT32, {1}), slotOf(v1::TEXT)}) {
        slot.set_packed(true);
        expectRefused(slot, "it cannot hold all arguments");
    }
}

TEST(IncomingMessageTest, RefusesTooManySlots) {
    IncomingMessage message;
    begin(message, std::vector<v1::Slot>(maximumSlots, slotOf(v1::INT32, {1})));
    EXPECT_EQ(message.take().size(), maximumSlots);
    EXPECT_THAT(
        [&] { begin(message, std::vector<v1::Slot>(maximumSlots + 1, slotOf(v1::INT32, {1}))); },
        throwsExactly<ProtocolError>("A message has too many slots."));
}

TEST(IncomingMessageTest, RefusesLengthsWhoseSumNoNumberHolds) {
    IncomingMessage message;
    begin(message, {textOf(anyTrust - 1), textOf(1)}, 0);
    EXPECT_EQ(message.byteCount(), anyTrust);
    EXPECT_THAT(
        [&] {
            begin(message, {textOf(anyTrust - 1), textOf(2)}, 0);
        },
        throwsExactly<ProtocolError>("The texts of a message are too long."));
}

TEST(IncomingMessageTest, HoldsAValueThatNoMethodTakesForTypesOfLaterVersions) {
    IncomingMessage message;
    v1::Slot future = slotOf(static_cast<v1::Type>(50));
    future.set_state(v1::Slot::FUTURE);
    v1::Slot empty = slotOf(static_cast<v1::Type>(50));
    empty.set_state(v1::Slot::EMPTY);
    v1::Slot otherState = slotOf(v1::INT32);
    otherState.set_state(static_cast<v1::Slot::State>(9));
    begin(
        message,
        {slotOf(v1::OTHER, {1, 2}), slotOf(static_cast<v1::Type>(50)), future, empty, otherState});
    GenericPayload payload = message.take();
    ASSERT_EQ(payload.size(), 5U);
    for (const std::size_t slot : {0U, 1U, 2U, 4U}) {
        EXPECT_THAT(
            [&] { payload.take<int>(slot); }, throwsExactly<core::BadAnyCast>("Bad any_cast"))
            << slot;
    }
    EXPECT_THAT(
        [&] { payload.take<int>(3); },
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
}

TEST(IncomingMessageTest, HoldsABrokenFutureWhereThereWasOne) {
    IncomingMessage message;
    v1::Slot slot = slotOf(v1::TEXT);
    slot.set_state(v1::Slot::FUTURE);
    begin(message, {slot});
    GenericPayload payload = message.take();
    EXPECT_THAT(
        [&] { payload.peek<std::string>(0); },
        throwsExactly<std::runtime_error>("Polymorphic types are not supported with futures"));
    EXPECT_THROW(payload.take<std::string>(0), std::future_error);
}

TEST(IncomingMessageMemoryTest, IsNotAllocatedForWhatIsOnlyAnnounced) {
    for (const std::uint64_t length : {std::uint64_t{1} << 20, std::uint64_t{1} << 40, anyTrust}) {
        IncomingMessage message;
        const orvi::test::LargestAllocation largest;
        begin(message, {textOf(length)}, 10'000);
        EXPECT_GE(largest.size(), 10'000U);
        EXPECT_LE(largest.size(), 20'000U);
    }
}

TEST(IncomingMessageMemoryTest, IsTrustedInTotalNotForEachText) {
    IncomingMessage message;
    const std::vector<v1::Slot> slots(maximumSlots, textOf(10'000));
    const orvi::test::LargestAllocation largest;
    begin(message, slots, 15'000);
    EXPECT_LE(largest.size(), 20'000U);
    std::size_t reserved = 0;
    append(message, patternOf(20'000));
    for (int frame = 0; frame < 31; ++frame) {
        append(message, patternOf(20'000));
    }
    GenericPayload payload = message.take();
    for (std::size_t slot = 0; slot < maximumSlots; ++slot) {
        const std::string text = payload.take<std::string>(slot);
        EXPECT_EQ(text, patternOf(20'000).substr(slot % 2 * 10'000, 10'000)) << slot;
        reserved += text.capacity();
    }
    EXPECT_GE(reserved, 64U * 10'000U);
}

TEST(IncomingMessageMemoryTest, GrowsWithWhatArrives) {
    constexpr std::size_t frameData = 100'000;
    IncomingMessage message;
    begin(message, {textOf(std::uint64_t{1} << 40)}, 0);
    const std::string data = patternOf(frameData);
    for (std::size_t frame = 1; frame <= 100; ++frame) {
        const orvi::test::LargestAllocation largest;
        append(message, data);
        EXPECT_LE(largest.size(), 8 * frame * frameData + 1000);
    }
}

TEST(IncomingMessageMemoryTest, IsAllocatedOnceForWhatIsTrusted) {
    constexpr std::size_t length = 1'000'000;
    IncomingMessage message;
    begin(message, {textOf(length)}, length);
    const orvi::test::LargestAllocation largest;
    std::size_t frameMemory = 0;
    {
        const std::string data = patternOf(100'000);
        for (int frame = 0; frame < 10; ++frame) {
            append(message, data);
        }
        frameMemory = largest.size();
    }
    EXPECT_LT(frameMemory, length / 2); // the frames themselves, nothing for the text
    EXPECT_EQ(message.take().take<std::string>(0).size(), length);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
