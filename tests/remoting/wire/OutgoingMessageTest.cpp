#include "remoting/wire/Frames.hpp"

#include "support/ThrowsExactly.hpp"

#include <orvi/remoting/Errors.hpp>

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using streambuf::test::throwsExactly;

template <class T>
std::future<T> ready(T value) {
    std::promise<T> promise;
    promise.set_value(std::move(value));
    return promise.get_future();
}

v1::Frame headOf(OutgoingMessage message) {
    return readFrame(encoded(message.next())).head;
}

v1::Slot onlySlot(GenericPayload payload) {
    const v1::Frame head = headOf(OutgoingMessage::answer(std::move(payload)));
    EXPECT_EQ(head.answer().slots_size(), 1);
    return head.answer().slots(0);
}

std::vector<std::int64_t> numbersOf(const v1::Slot& slot) {
    return {slot.numbers().begin(), slot.numbers().end()};
}

TEST(OutgoingMessageTest, NamesTheMethodAndSaysWhetherSomebodyWaits) {
    for (const bool oneWay : {false, true}) {
        const v1::Frame head = headOf(OutgoingMessage::request("seekoff", oneWay, {}));
        EXPECT_EQ(head.request().method(), "seekoff");
        EXPECT_EQ(head.request().one_way(), oneWay);
        EXPECT_EQ(head.request().slots_size(), 0);
    }
}

TEST(OutgoingMessageTest, DescribesTheValueOfEachType) {
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    const v1::Slot number = onlySlot(GenericPayload::fromValues(least));
    EXPECT_EQ(number.type(), v1::INT64);
    EXPECT_EQ(numbersOf(number), std::vector{least});

    const v1::Slot code = onlySlot(GenericPayload::fromValues(-1));
    EXPECT_EQ(code.type(), v1::INT32);
    EXPECT_EQ(numbersOf(code), std::vector<std::int64_t>{-1});

    const v1::Slot text = onlySlot(GenericPayload::fromValues(std::string("five!")));
    EXPECT_EQ(text.type(), v1::TEXT);
    EXPECT_EQ(text.length(), 5U);

    const v1::Slot two = onlySlot(GenericPayload::fromValues(std::tuple<std::int64_t, int>(1, 2)));
    EXPECT_EQ(two.type(), v1::INT64_INT32);
    EXPECT_FALSE(two.packed());
    EXPECT_EQ(numbersOf(two), (std::vector<std::int64_t>{1, 2}));

    const v1::Slot three =
        onlySlot(GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int, int>(3, 4, 5)));
    EXPECT_EQ(three.type(), v1::INT64_INT32_INT32);
    EXPECT_TRUE(three.packed());
    EXPECT_EQ(numbersOf(three), (std::vector<std::int64_t>{3, 4, 5}));
}

TEST(OutgoingMessageTest, DescribesEmptySlots) {
    GenericPayload payload = GenericPayload::fromValues(std::string("taken"));
    payload.take<std::string>(0);
    const v1::Slot slot = onlySlot(std::move(payload));
    EXPECT_EQ(slot.type(), v1::TEXT);
    EXPECT_EQ(slot.state(), v1::Slot::EMPTY);
    EXPECT_EQ(slot.length(), 0U);
}

TEST(OutgoingMessageTest, NamesTheSlotWhoseTypeDoesNotTravel) {
    const auto unsupported = throwsExactly<UnsupportedType>(
        "Slot 1 holds a value of a type that cannot be sent to another process.");
    const auto payload = [] { return GenericPayload::fromValues(1, 2.5); };
    EXPECT_THAT([&] { OutgoingMessage::request("read", false, payload()); }, unsupported);
    EXPECT_THAT([&] { OutgoingMessage::answer(payload()); }, unsupported);
    EXPECT_THAT(
        [] {
            OutgoingMessage::answer(
                GenericPayload::fromPackedArguments(std::tuple<std::string, int>("x", 1)));
        },
        throwsExactly<UnsupportedType>(
            "Slot 0 holds a value of a type that cannot be sent to another process."));
}

TEST(OutgoingMessageTest, LetsAForeignTypePassWhereItsValueDoesNotTravelAnyway) {
    GenericPayload payload = GenericPayload::fromValues(2.5);
    payload.take<double>(0);
    payload.append(GenericPayload::fromFuture(ready(2.5)));
    const v1::Frame head = headOf(OutgoingMessage::request("read", false, std::move(payload)));
    EXPECT_EQ(head.request().slots(0).type(), v1::OTHER);
    EXPECT_EQ(head.request().slots(0).state(), v1::Slot::EMPTY);
    EXPECT_EQ(head.request().slots(1).type(), v1::OTHER);
    EXPECT_EQ(head.request().slots(1).state(), v1::Slot::FUTURE);
}

TEST(OutgoingMessageTest, SendsFuturesOfARequestAsSuchWithoutWaiting) {
    std::promise<std::string> never;
    const v1::Frame head = headOf(
        OutgoingMessage::request("write", false, GenericPayload::fromFuture(never.get_future())));
    EXPECT_EQ(head.request().slots(0).type(), v1::TEXT);
    EXPECT_EQ(head.request().slots(0).state(), v1::Slot::FUTURE);
}

TEST(OutgoingMessageTest, SendsWhatTheFuturesOfAnAnswerDeliver) {
    GenericPayload payload =
        GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int>(1, 2));
    std::promise<std::string> promise;
    payload.append(GenericPayload::fromFuture(promise.get_future()));
    payload.append(GenericPayload::fromFuture(ready(std::int64_t{7})));
    payload.append(GenericPayload::fromValues(8));
    payload.take<int>(3);
    payload.append(GenericPayload::fromFuture(ready(9)));
    payload.take<int>(4);
    std::thread provider([&] { promise.set_value("later"); });
    GenericPayload result = received(framesOf(OutgoingMessage::answer(std::move(payload))));
    provider.join();

    ASSERT_EQ(result.size(), 5U);
    EXPECT_TRUE(result.isPackedArguments(0));
    EXPECT_EQ((result.take<std::tuple<std::int64_t, int>>(0)), std::tuple(1, 2));
    EXPECT_FALSE(result.holdsFuture(1));
    EXPECT_EQ(result.take<std::string>(1), "later");
    EXPECT_EQ(result.take<std::int64_t>(2), 7);
    EXPECT_TRUE(result.isEmpty(3));
    EXPECT_TRUE(result.isEmpty(4));
}

TEST(OutgoingMessageTest, FailsAsTheFutureOfAnAnswerFails) {
    std::promise<std::int64_t> promise;
    promise.set_exception(std::make_exception_ptr(std::domain_error("not today")));
    EXPECT_THAT(
        [&] { OutgoingMessage::answer(GenericPayload::fromFuture(promise.get_future())); },
        throwsExactly<std::domain_error>("not today"));
}

TEST(OutgoingMessageTest, RefusesFuturesOfForeignTypesInAnAnswer) {
    EXPECT_THAT(
        [] { OutgoingMessage::answer(GenericPayload::fromFuture(ready(2.5))); },
        throwsExactly<UnsupportedType>(
            "Slot 0 holds a value of a type that cannot be sent to another process."));
}

TEST(OutgoingMessageTest, RefusesMoreSlotsThanThereMayBe) {
    GenericPayload payload;
    for (std::size_t slot = 0; slot < maximumSlots; ++slot) {
        payload.append(GenericPayload::fromValues(std::tuple<std::int64_t, int, int>(-1, -1, -1)));
    }
    EXPECT_NO_THROW(OutgoingMessage::request("read", false, GenericPayload(payload)));
    payload.append(GenericPayload::fromValues(1));
    EXPECT_THAT(
        [&] { OutgoingMessage::request("read", false, std::move(payload)); },
        throwsExactly<std::length_error>("A payload of 65 slots exceeds the limit of 64 slots."));
}

TEST(OutgoingMessageTest, RefusesNamesOfMethodsThatDoNotFit) {
    const std::string longest(maximumFrameSize - 8, 'm');
    EXPECT_EQ(
        framesOf(OutgoingMessage::request(longest, false, {})).front().size(), maximumFrameSize);
    EXPECT_THAT(
        [&] { OutgoingMessage::request(longest + 'm', false, {}); },
        throwsExactly<std::length_error>(
            "A frame of 131073 bytes is longer than the limit of 131072 bytes."));
}

TEST(OutgoingMessageTest, StartsTheDataInTheNextFrameWhereTheHeadLeavesNoRoom) {
    const GenericPayload payload = GenericPayload::fromValues(std::string("text"));
    for (std::size_t left = 0; left < 20; ++left) {
        const std::string method(maximumFrameSize - 30 + left, 'm');
        try {
            const auto frames =
                framesOf(OutgoingMessage::request(method, false, GenericPayload(payload)));
            EXPECT_LE(frames.front().size(), maximumFrameSize);
            EXPECT_LE(frames.size(), 2U);
            EXPECT_EQ(received(frames).take<std::string>(0), "text");
        } catch (const std::length_error&) {
            EXPECT_GT(left, 10U);
        }
    }
}

TEST(OutgoingMessageTest, RefersToTheTextsWithoutACopy) {
    std::string text = patternOf(3 * maximumFrameSize);
    const char* expected = text.data();
    OutgoingMessage message =
        OutgoingMessage::request("write", false, GenericPayload::fromValues(std::move(text)));
    while (message.hasNext()) {
        const OutgoingFrame frame = message.next();
        EXPECT_EQ(static_cast<const void*>(frame.data.data), expected);
        expected += frame.data.size;
    }
}

TEST(OutgoingMessageTest, FillsEachFrameButTheLastOfAText) {
    GenericPayload payload =
        GenericPayload::fromValues(patternOf(2 * maximumFrameSize), 1, std::string(), patternOf(5));
    const auto frames = framesOf(OutgoingMessage::answer(std::move(payload)));
    ASSERT_EQ(frames.size(), 4U);
    EXPECT_EQ(frames[0].size(), maximumFrameSize);
    EXPECT_EQ(frames[1].size(), maximumFrameSize);
    EXPECT_EQ(frames[3], "\x7a\x05" + patternOf(5));
}

TEST(OutgoingMessageTest, KeepsTheTextsAliveForAsLongAsAFrameLives) {
    const std::string text = patternOf(maximumFrameSize + 100);
    std::vector<OutgoingFrame> frames;
    {
        OutgoingMessage message = OutgoingMessage::answer(GenericPayload::fromValues(text));
        while (message.hasNext()) {
            frames.push_back(message.next());
        }
    }
    frames.erase(frames.begin());
    EXPECT_EQ(encoded(frames.back()), "\x7a" + encoded(frames.back()).substr(1));
    EXPECT_TRUE(text.ends_with(std::string(frames.back().data.data, frames.back().data.size)));
}

TEST(OutgoingMessageTest, CountsTheBytesOfTheTexts) {
    EXPECT_EQ(OutgoingMessage::answer({}).byteCount(), 0U);
    EXPECT_EQ(OutgoingMessage::answer(GenericPayload::fromValues(7)).byteCount(), 0U);
    EXPECT_EQ(
        OutgoingMessage::answer(
            GenericPayload::fromValues(std::string(10, 'a'), 1, std::string(), std::string("abc")))
            .byteCount(),
        13U);
}

TEST(OutgoingMessageTest, ReportsAFailureInOneFrame) {
    OutgoingMessage message = OutgoingMessage::failure(
        std::make_exception_ptr(std::out_of_range(std::string(1'000'000, 'x'))));
    ASSERT_TRUE(message.hasNext());
    const ReadFrame frame = readFrame(encoded(message.next()));
    EXPECT_FALSE(message.hasNext());
    EXPECT_EQ(message.byteCount(), 0U);
    EXPECT_EQ(frame.head.failure().type(), "std::out_of_range");
    EXPECT_EQ(frame.head.failure().text(), std::string(maximumErrorText, 'x'));
}

} // namespace
} // namespace agent::orvi::remoting::details::test
