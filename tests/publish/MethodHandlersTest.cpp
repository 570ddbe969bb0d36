#include "publish/MethodHandlers.hpp"

#include "allocations/FailingAllocation.hpp"
#include "payload/GenericPayloadTestAccess.hpp"
#include "payload/PayloadAdapters.hpp"
#include "support/DeviceError.hpp"
#include "support/RecordingDevice.hpp"
#include "support/ThrowsExactly.hpp"

#include <orvi/core/ExportedFunction.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cwchar>
#include <future>
#include <ios>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

using core::BadAnyCast;
using core::GenericPayload;
using core::detail::GenericPayloadTestAccess;
using foundation::concurrent::threadpool::stop_token;
using std::ios_base;
using test::Operation;
using test::Reply;
using test::throwsExactly;
using testing::ElementsAre;
using testing::IsEmpty;

using SeekOffTuple = std::tuple<std::int64_t, int, int>;
using SeekPosTuple = std::tuple<std::int64_t, int>;

constexpr std::int64_t beyondFourGiB = (std::int64_t{1} << 32) + 1234;

template <class T>
GenericPayload futureOf(T value) {
    std::promise<T> promise;
    promise.set_value(std::move(value));
    return GenericPayload::fromFuture(promise.get_future());
}

template <class T>
GenericPayload taken(GenericPayload payload, std::size_t index) {
    payload.take<T>(index);
    return payload;
}

/// The four handlers over one recording device, in the form in which the framework calls them.
class MethodHandlersTest : public testing::Test {
protected:
    test::RecordingDevice device{"0123456789"};

    core::PayloadFunction read =
        core::detail::genericPayloadWrapper(details::ReadHandler{device.read()});
    core::PayloadFunction write =
        core::detail::genericPayloadWrapper(details::WriteHandler{device.write()});
    core::PayloadFunction seekoff =
        core::detail::genericPayloadWrapper(details::SeekOffHandler{device.seekoff()});
    core::PayloadFunction seekpos =
        core::detail::genericPayloadWrapper(details::SeekPosHandler{device.seekpos()});

    template <class T>
    static T answerOf(const core::PayloadFunction& handler, GenericPayload arguments) {
        GenericPayload answer = handler(stop_token(), std::move(arguments));
        EXPECT_EQ(answer.size(), 1u);
        EXPECT_FALSE(answer.isPackedArguments(0));
        return answer.take<T>(0);
    }

    template <class Exception>
    void expectRefused(
        const core::PayloadFunction& handler, GenericPayload arguments, const std::string& text) {
        EXPECT_THAT(
            [&] { handler(stop_token(), std::move(arguments)); }, throwsExactly<Exception>(text));
        EXPECT_THAT(device.calls(), IsEmpty());
    }

    void expectBadCast(const core::PayloadFunction& handler, GenericPayload arguments) {
        expectRefused<BadAnyCast>(handler, std::move(arguments), "Bad any_cast");
    }
};

TEST_F(MethodHandlersTest, ReadAnswersWithTheDevicesCharacters) {
    EXPECT_EQ(answerOf<std::string>(read, GenericPayload::fromValues(std::int64_t{4})), "0123");
    EXPECT_THAT(device.calls(), ElementsAre(test::readCall(4)));
}

TEST_F(MethodHandlersTest, ReadPassesEveryCountOnUnchanged) {
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    device.always(Operation::read, Reply::with(2));
    for (const std::int64_t count : {std::int64_t{0}, std::int64_t{-1}, smallest, largest}) {
        EXPECT_EQ(answerOf<std::string>(read, GenericPayload::fromValues(count)).size(), 2u);
    }
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            test::readCall(0), test::readCall(-1), test::readCall(smallest),
                            test::readCall(largest)));
}

TEST_F(MethodHandlersTest, ReadIgnoresFurtherSlots) {
    answerOf<std::string>(read, GenericPayload::fromValues(std::int64_t{5}, 7));
    answerOf<std::string>(
        read, GenericPayload::fromValues(std::int64_t{6}, std::string("anything"), 1.5));
    EXPECT_THAT(device.calls(), ElementsAre(test::readCall(5), test::readCall(6)));
}

TEST_F(MethodHandlersTest, ReadRefusesWhatIsNoCount) {
    expectRefused<std::out_of_range>(read, GenericPayload(), "Invalid GenericPayload index");
    expectRefused<std::runtime_error>(
        read, taken<std::int64_t>(GenericPayload::fromValues(std::int64_t{5}), 0),
        "GenericPayload empty at index");
    expectBadCast(read, GenericPayload::fromValues(5));
    expectBadCast(read, GenericPayload::fromValues(std::string("5")));
    expectBadCast(read, GenericPayload::fromPackedArguments(std::tuple<std::int64_t>(5)));
    expectRefused<std::runtime_error>(
        read, futureOf(std::int64_t{5}), "Polymorphic types are not supported with futures");
}

TEST_F(MethodHandlersTest, WriteAnswersWithTheDevicesCount) {
    const std::string data("a\0\xff\n", 4);
    EXPECT_EQ(answerOf<std::int64_t>(write, GenericPayload::fromValues(data)), 4);
    device.onCall(Operation::write, 2, Reply::with(1));
    device.onCall(Operation::write, 3, Reply::with(-1));
    device.onCall(Operation::write, 4, Reply::with(beyondFourGiB));
    EXPECT_EQ(answerOf<std::int64_t>(write, GenericPayload::fromValues(data)), 1);
    EXPECT_EQ(answerOf<std::int64_t>(write, GenericPayload::fromValues(data)), -1);
    EXPECT_EQ(answerOf<std::int64_t>(write, GenericPayload::fromValues(data)), beyondFourGiB);
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            test::writeCall(data), test::writeCall(data), test::writeCall(data),
                            test::writeCall(data)));
}

TEST_F(MethodHandlersTest, WriteHandsTheDataOverInPlace) {
    const std::string* received = nullptr;
    const auto handler = core::detail::genericPayloadWrapper(
        details::WriteHandler{[&](const std::string& data) -> std::int64_t {
            received = &data;
            return 0;
        }});
    GenericPayload arguments = GenericPayload::fromValues(std::string("data"));
    const std::string* const place = &arguments.peek<std::string>(0);
    answerOf<std::int64_t>(handler, std::move(arguments));
    EXPECT_EQ(received, place);
}

TEST_F(MethodHandlersTest, WriteIgnoresFurtherSlots) {
    answerOf<std::int64_t>(write, GenericPayload::fromValues(std::string("data"), 1, 2));
    EXPECT_THAT(device.calls(), ElementsAre(test::writeCall("data")));
}

TEST_F(MethodHandlersTest, WriteRefusesWhatIsNoText) {
    expectRefused<std::out_of_range>(write, GenericPayload(), "Invalid GenericPayload index");
    expectRefused<std::runtime_error>(
        write, taken<std::string>(GenericPayload::fromValues(std::string("x")), 0),
        "GenericPayload empty at index");
    expectBadCast(write, GenericPayload::fromValues("a pointer to characters"));
    expectBadCast(write, GenericPayload::fromValues(std::int64_t{1}, std::string("x")));
    expectRefused<std::runtime_error>(
        write, futureOf(std::string("x")), "Polymorphic types are not supported with futures");
}

TEST_F(MethodHandlersTest, SeekOffDecodesDirectionAndMode) {
    struct Case {
        int direction;
        int mode;
        ios_base::seekdir decodedDirection;
        ios_base::openmode decodedMode;
    };

    constexpr int smallest = std::numeric_limits<int>::min();
    constexpr int largest = std::numeric_limits<int>::max();
    constexpr auto both = ios_base::in | ios_base::out;
    for (const Case& code :
         {Case{0, 0, ios_base::cur, both}, Case{1, 1, ios_base::beg, ios_base::in},
          Case{2, 2, ios_base::end, ios_base::out}, Case{1, 2, ios_base::beg, ios_base::out},
          Case{2, 0, ios_base::end, both}, Case{0, 1, ios_base::cur, ios_base::in},
          Case{7, -3, ios_base::cur, both}, Case{-1, 3, ios_base::cur, both},
          Case{3, 16, ios_base::cur, both}, Case{smallest, largest, ios_base::cur, both},
          Case{largest, smallest, ios_base::cur, both}}) {
        SCOPED_TRACE(testing::Message() << code.direction << ", " << code.mode);
        const test::Call expected = test::seekOffCall(10, code.decodedDirection, code.decodedMode);
        answerOf<std::int64_t>(
            seekoff, GenericPayload::fromValues(std::int64_t{10}, code.direction, code.mode));
        answerOf<std::int64_t>(
            seekoff,
            GenericPayload::fromPackedArguments(SeekOffTuple(10, code.direction, code.mode)));
        EXPECT_THAT(device.takeCalls(), ElementsAre(expected, expected));
    }
}

TEST_F(MethodHandlersTest, SeekOffAnswersWithTheNewPosition) {
    const auto from = [](std::int64_t offset, int direction) {
        return GenericPayload::fromValues(offset, direction, 1);
    };
    EXPECT_EQ(answerOf<std::int64_t>(seekoff, from(3, 1)), 3);
    EXPECT_EQ(answerOf<std::int64_t>(seekoff, from(-1, 0)), 2);
    EXPECT_EQ(answerOf<std::int64_t>(seekoff, from(-4, 2)), 6);
    EXPECT_EQ(answerOf<std::int64_t>(seekoff, from(-1, 1)), -1);
    device.onCall(Operation::seekoff, 5, Reply::with(beyondFourGiB));
    EXPECT_EQ(answerOf<std::int64_t>(seekoff, from(-beyondFourGiB, 2)), beyondFourGiB);
    EXPECT_EQ(
        device.calls().back(), test::seekOffCall(-beyondFourGiB, ios_base::end, ios_base::in));
}

TEST_F(MethodHandlersTest, SeekOffRefusesEveryOtherShape) {
    const std::int64_t offset = 10;
    expectBadCast(seekoff, GenericPayload());
    expectBadCast(seekoff, GenericPayload::fromValues(offset));
    expectBadCast(seekoff, GenericPayload::fromValues(offset, 1));
    expectBadCast(seekoff, GenericPayload::fromValues(offset, 1, 1, 1));
    expectBadCast(seekoff, GenericPayload::fromValues(SeekOffTuple(10, 1, 1)));
    expectBadCast(seekoff, GenericPayload::fromPackedArguments(SeekPosTuple(10, 1)));
    expectBadCast(seekoff, GenericPayload::fromValues(10, 1, 1));
    expectBadCast(seekoff, GenericPayload::fromValues(offset, offset, 1));
    expectBadCast(seekoff, GenericPayload::fromValues(offset, 1, offset));
}

TEST_F(MethodHandlersTest, SeekOffRunsTheSlotChecks) {
    const GenericPayload whole = GenericPayload::fromValues(std::int64_t{10}, 1, 1);
    expectRefused<std::runtime_error>(
        seekoff, taken<std::int64_t>(whole, 0), "GenericPayload empty at index");
    for (const std::size_t slot : {1u, 2u}) {
        expectRefused<std::runtime_error>(
            seekoff, taken<int>(whole, slot), "GenericPayload empty at index");
    }
    const GenericPayload packed = GenericPayload::fromPackedArguments(SeekOffTuple(10, 1, 1));
    expectRefused<std::runtime_error>(
        seekoff, taken<SeekOffTuple>(packed, 0), "GenericPayload empty at index");
    expectRefused<std::out_of_range>(
        seekoff, GenericPayloadTestAccess::withoutPackedFlags(packed),
        "invalid vector<bool> subscript");
    expectRefused<std::out_of_range>(
        seekoff, GenericPayloadTestAccess::withoutTypes(packed), "invalid vector subscript");
    // A future is one slot without the packed flag.
    expectBadCast(seekoff, futureOf(SeekOffTuple(10, 1, 1)));
}

TEST_F(MethodHandlersTest, SeekPosDecodesTheMode) {
    struct Case {
        int mode;
        ios_base::openmode decoded;
    };

    constexpr auto both = ios_base::in | ios_base::out;
    for (const Case& code :
         {Case{0, both}, Case{1, ios_base::in}, Case{2, ios_base::out}, Case{3, both},
          Case{-3, both}, Case{8, both}, Case{16, both}}) {
        SCOPED_TRACE(code.mode);
        answerOf<std::int64_t>(seekpos, GenericPayload::fromValues(std::int64_t{7}, code.mode));
        answerOf<std::int64_t>(
            seekpos, GenericPayload::fromPackedArguments(SeekPosTuple(7, code.mode)));
        EXPECT_THAT(
            device.takeCalls(),
            ElementsAre(test::seekPosCall(7, code.decoded), test::seekPosCall(7, code.decoded)));
    }
}

TEST_F(MethodHandlersTest, SeekPosAnswersWithTheNewPosition) {
    device.onCall(Operation::seekpos, 1, Reply::with(1234));
    EXPECT_EQ(
        answerOf<std::int64_t>(seekpos, GenericPayload::fromValues(std::int64_t{1234}, 1)), 1234);
    EXPECT_EQ(answerOf<std::int64_t>(seekpos, GenericPayload::fromValues(beyondFourGiB, 2)), -1);
    EXPECT_THAT(
        device.calls(), ElementsAre(
                            test::seekPosCall(1234, ios_base::in),
                            test::seekPosCall(beyondFourGiB, ios_base::out)));
}

TEST_F(MethodHandlersTest, SeekPosMakesThePositionWithAnInitialConversionState) {
    std::streampos received;
    const auto handler = core::detail::genericPayloadWrapper(
        details::SeekPosHandler{[&](std::streampos position, int) {
            received = position;
            return position;
        }});
    EXPECT_EQ(
        answerOf<std::int64_t>(handler, GenericPayload::fromValues(beyondFourGiB, 1)),
        beyondFourGiB);
    EXPECT_EQ(std::streamoff(received), beyondFourGiB);
    const std::mbstate_t state = received.state();
    EXPECT_NE(std::mbsinit(&state), 0);
}

TEST_F(MethodHandlersTest, SeekPosRefusesEveryOtherShape) {
    const std::int64_t position = 10;
    expectBadCast(seekpos, GenericPayload());
    expectBadCast(seekpos, GenericPayload::fromValues(position));
    expectBadCast(seekpos, GenericPayload::fromValues(position, 1, 1));
    expectBadCast(seekpos, GenericPayload::fromValues(SeekPosTuple(10, 1)));
    expectBadCast(seekpos, GenericPayload::fromPackedArguments(SeekOffTuple(10, 1, 1)));
    expectBadCast(seekpos, GenericPayload::fromValues(10, 1));
    expectBadCast(seekpos, GenericPayload::fromValues(position, position));
}

TEST_F(MethodHandlersTest, SeekPosRunsTheSlotChecks) {
    const GenericPayload whole = GenericPayload::fromValues(std::int64_t{10}, 1);
    expectRefused<std::runtime_error>(
        seekpos, taken<std::int64_t>(whole, 0), "GenericPayload empty at index");
    expectRefused<std::runtime_error>(
        seekpos, taken<int>(whole, 1), "GenericPayload empty at index");
    const GenericPayload packed = GenericPayload::fromPackedArguments(SeekPosTuple(10, 1));
    expectRefused<std::out_of_range>(
        seekpos, GenericPayloadTestAccess::withoutPackedFlags(packed),
        "invalid vector<bool> subscript");
    expectBadCast(seekpos, futureOf(SeekPosTuple(10, 1)));
}

TEST_F(MethodHandlersTest, CatchNothing) {
    for (const Operation operation :
         {Operation::read, Operation::write, Operation::seekoff, Operation::seekpos}) {
        device.always(operation, Reply::throwing(test::DeviceError("out of paper")));
    }
    const std::int64_t number = 1;
    EXPECT_THAT(
        [&] { read(stop_token(), GenericPayload::fromValues(number)); },
        throwsExactly<test::DeviceError>("out of paper"));
    EXPECT_THAT(
        [&] { write(stop_token(), GenericPayload::fromValues(std::string("x"))); },
        throwsExactly<test::DeviceError>("out of paper"));
    EXPECT_THAT(
        [&] { seekoff(stop_token(), GenericPayload::fromValues(number, 1, 1)); },
        throwsExactly<test::DeviceError>("out of paper"));
    EXPECT_THAT(
        [&] { seekpos(stop_token(), GenericPayload::fromValues(number, 1)); },
        throwsExactly<test::DeviceError>("out of paper"));
}

TEST_F(MethodHandlersTest, LetAFailingAllocationOfTheAnswerOut) {
    const auto handler = core::detail::genericPayloadWrapper(
        details::WriteHandler{[](const std::string&) -> std::int64_t {
            orvi::test::failNextAllocation();
            return 1;
        }});
    GenericPayload arguments = GenericPayload::fromValues(std::string("x"));
    EXPECT_THROW(handler(stop_token(), std::move(arguments)), std::bad_alloc);
}

TEST_F(MethodHandlersTest, KeepTheirOwnCopyOfTheOperation) {
    int calls = 0;
    ReadFunction operation = [&calls](std::int64_t) { return std::to_string(++calls); };
    const auto handler = core::detail::genericPayloadWrapper(details::ReadHandler{operation});
    operation = nullptr;
    EXPECT_EQ(answerOf<std::string>(handler, GenericPayload::fromValues(std::int64_t{1})), "1");
    EXPECT_EQ(answerOf<std::string>(handler, GenericPayload::fromValues(std::int64_t{1})), "2");
}

} // namespace
} // namespace agent::orvi::streambuf
