#include "remoting/wire/Frames.hpp"

#include <orvi/remoting/Errors.hpp>
#include <payload/PayloadAdapters.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <future>
#include <iostream>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;

/// The room for data in the first frame of a message of one text.
std::size_t firstRoom(OutgoingMessage message) {
    return message.next().data.size;
}

/// Return lengths around the ends of the first frames.
std::vector<std::size_t> interestingLengths(std::size_t first) {
    const std::size_t further = dataRoom(0);
    std::vector<std::size_t> lengths = {0, 1, 2, 127, 128, 129};
    for (const std::size_t end : {first, first + further, first + 4 * further}) {
        for (const std::size_t length : {end - 1, end, end + 1}) {
            lengths.push_back(length);
        }
    }
    return lengths;
}

TEST(PayloadRoundTripTest, KeepsTextsOfAnyLength) {
    const std::size_t first =
        firstRoom(OutgoingMessage::answer(GenericPayload::fromValues(patternOf(300'000))));
    for (const std::size_t length : interestingLengths(first)) {
        const std::string text = patternOf(length);
        const auto frames = framesOf(OutgoingMessage::answer(GenericPayload::fromValues(text)));
        const std::size_t further = dataRoom(0);
        EXPECT_EQ(
            frames.size(), length <= first ? 1 : 1 + (length - first + further - 1) / further);
        for (const std::uint64_t trusted :
             {std::uint64_t{0}, std::uint64_t{1000}, std::uint64_t{length}}) {
            GenericPayload result = received(
                frames, [] { return std::size_t{8191}; }, trusted);
            ASSERT_EQ(result.size(), 1U);
            EXPECT_EQ(result.take<std::string>(0), text) << length;
        }
    }
}

TEST(PayloadRoundTripTest, KeepsTextsWhoseFramesComeInSmallSlices) {
    const std::string text = patternOf(maximumFrameSize + 10);
    const auto frames =
        framesOf(OutgoingMessage::request("write", true, GenericPayload::fromValues(text)));
    for (std::size_t sliceSize = 1; sliceSize <= 7; ++sliceSize) {
        GenericPayload result = received(frames, [=] { return sliceSize; });
        EXPECT_EQ(result.take<std::string>(0), text) << sliceSize;
    }
}

TEST(PayloadRoundTripTest, KeepsTextsThatAreCutIntoFramesAnywhere) {
    const std::string text = "0123456789";
    v1::Frame head;
    v1::Slot& slot = *head.mutable_answer()->add_slots();
    slot.set_type(v1::TEXT);
    slot.set_length(text.size());
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        for (std::size_t second = cut; second <= text.size(); ++second) {
            GenericPayload result = received(
                {encoded(encodeFrame(head, bytesOf(text.substr(0, cut)))),
                 encoded(encodeFrame({}, bytesOf(text.substr(cut, second - cut)))),
                 encoded(encodeFrame({}, bytesOf(text.substr(second))))});
            EXPECT_EQ(result.take<std::string>(0), text) << cut << ", " << second;
        }
    }
}

template <class T>
void expectKept(const T& value) {
    GenericPayload result =
        received(framesOf(OutgoingMessage::answer(GenericPayload::fromValues(value))));
    ASSERT_EQ(result.size(), 1U);
    EXPECT_FALSE(result.isPackedArguments(0));
    EXPECT_EQ(result.take<T>(0), value);
}

TEST(PayloadRoundTripTest, KeepsNumbersToTheirLimits) {
    using Int64 = std::numeric_limits<std::int64_t>;
    using Int32 = std::numeric_limits<int>;
    for (const std::int64_t number :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, Int64::min(), Int64::max()}) {
        expectKept(number);
        for (const int code : {0, 1, -1, Int32::min(), Int32::max()}) {
            expectKept(code);
            expectKept(std::tuple(number, code));
            expectKept(std::tuple(number, code, ~code));
        }
    }
}

TEST(PayloadRoundTripTest, KeepsWhichSlotHoldsAllArguments) {
    GenericPayload payload =
        GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int>(1, 2));
    payload.append(GenericPayload::fromValues(std::tuple<std::int64_t, int>(3, 4)));
    payload.append(
        GenericPayload::fromPackedArguments(std::tuple<std::int64_t, int, int>(5, 6, 7)));
    payload.take<std::tuple<std::int64_t, int, int>>(2);
    const GenericPayload result =
        received(framesOf(OutgoingMessage::request("seekpos", false, std::move(payload))));
    ASSERT_EQ(result.size(), 3U);
    EXPECT_TRUE(result.isPackedArguments(0));
    EXPECT_FALSE(result.isPackedArguments(1));
    EXPECT_TRUE(result.isPackedArguments(2));
    EXPECT_TRUE(result.isEmpty(2));
}

TEST(PayloadRoundTripTest, KeepsAsManySlotsAsThereMayBe) {
    GenericPayload payload;
    for (std::size_t slot = 0; slot < maximumSlots; ++slot) {
        payload.append(GenericPayload::fromValues(patternOf(slot)));
    }
    GenericPayload result = received(framesOf(OutgoingMessage::answer(std::move(payload))));
    ASSERT_EQ(result.size(), maximumSlots);
    for (std::size_t slot = 0; slot < maximumSlots; ++slot) {
        EXPECT_EQ(result.take<std::string>(slot), patternOf(slot));
    }
}

// What a method makes of a payload must not depend on where it is called from.

using MakePayload = std::function<GenericPayload()>;
using Method =
    std::function<GenericPayload(foundation::concurrent::threadpool::stop_token, GenericPayload)>;

template <class T>
GenericPayload future() {
    return GenericPayload::fromFuture(std::promise<T>().get_future());
}

template <class T>
GenericPayload taken(GenericPayload payload) {
    payload.take<T>(0);
    return payload;
}

GenericPayload joined(GenericPayload first, GenericPayload second) {
    first.append(std::move(second));
    return first;
}

/// Return payloads of all shapes that travel: fit and unfit for any of the methods.
std::vector<MakePayload> shapes() {
    using Two = std::tuple<std::int64_t, int>;
    using Three = std::tuple<std::int64_t, int, int>;
    const auto number = [] { return GenericPayload::fromValues(std::int64_t{5}); };
    const std::vector<MakePayload> slots = {
        number,
        [] { return GenericPayload::fromValues(6); },
        [] { return GenericPayload::fromValues(std::string("text")); },
        [] { return GenericPayload::fromValues(Two(1, 2)); },
        [] { return GenericPayload::fromValues(Three(1, 2, 3)); },
        [] { return GenericPayload::fromPackedArguments(Two(1, 2)); },
        [] { return GenericPayload::fromPackedArguments(Three(1, 2, 3)); },
        [] { return taken<std::int64_t>(GenericPayload::fromValues(std::int64_t{5})); },
        [] { return taken<std::string>(GenericPayload::fromValues(std::string("text"))); },
        [] { return taken<Two>(GenericPayload::fromPackedArguments(Two(1, 2))); },
        [] { return taken<double>(GenericPayload::fromValues(2.5)); },
        [] { return future<std::int64_t>(); },
        [] { return future<int>(); },
        [] { return future<std::string>(); },
        [] { return future<Two>(); },
        [] { return future<double>(); },
    };
    std::vector<MakePayload> all = slots;
    all.emplace_back([] { return GenericPayload(); });
    all.emplace_back([] { return GenericPayload::fromValues(std::int64_t{1}, 2, 3); });
    all.emplace_back([] { return GenericPayload::fromValues(std::int64_t{1}, 2, 3, 4); });
    for (const MakePayload& slot : slots) {
        all.emplace_back([=] { return joined(number(), slot()); });
        all.emplace_back([=] { return joined(joined(number(), slot()), slot()); });
    }
    return all;
}

std::string outcome(const Method& method, GenericPayload payload) {
    try {
        GenericPayload result = method({}, std::move(payload));
        return "returned " + result.take<std::string>(0);
    } catch (const std::exception& exception) {
        return std::string(typeid(exception).name()) + ": " + exception.what();
    }
}

TEST(PayloadRoundTripTest, LetsMethodsSeeWhatTheyWouldSeeLocally) {
    using core::detail::genericPayloadWrapper;
    const std::vector<Method> methods = {
        genericPayloadWrapper([](std::int64_t count) { return std::to_string(count); }),
        genericPayloadWrapper([](const std::string& data) { return data; }),
        genericPayloadWrapper([](std::int64_t position, int mode) {
            return std::to_string(position) + ' ' + std::to_string(mode);
        }),
        genericPayloadWrapper([](std::int64_t offset, int direction, int mode) {
            return std::to_string(offset) + ' ' + std::to_string(direction) + ' ' +
                   std::to_string(mode);
        })};
    std::size_t returned = 0;
    for (std::size_t method = 0; method < methods.size(); ++method) {
        std::size_t shape = 0;
        for (const MakePayload& make : shapes()) {
            const std::string locally = outcome(methods[method], make());
            EXPECT_EQ(
                outcome(
                    methods[method],
                    received(framesOf(OutgoingMessage::request("method", false, make())))),
                locally)
                << "method " << method << ", shape " << shape;
            returned += locally.starts_with("returned") ? 1 : 0;
            ++shape;
        }
    }
    EXPECT_GT(returned, 20U); // else the shapes have lost their variety
}

/// Random payloads that are made twice, and what their slots must hold.
class RandomPayload {
public:
    explicit RandomPayload(std::uint64_t seed)
        : random(seed) {}

    GenericPayload make() {
        GenericPayload payload;
        const std::size_t slots = below(below(2) == 0 ? 4 : maximumSlots + 1);
        for (std::size_t slot = 0; slot < slots; ++slot) {
            payload.append(makeSlot());
        }
        return payload;
    }

private:
    std::size_t below(std::size_t end) { return random() % end; }

    std::int64_t number() { return static_cast<std::int64_t>(random()) >> below(64); }

    int code() { return static_cast<int>(number() >> 32); }

    std::string text() {
        constexpr std::array<std::size_t, 4> limits = {2, 20, 300, 5'000};
        return patternOf(below(below(20) == 0 ? 400'000 : limits[below(limits.size())]));
    }

    GenericPayload makeSlot() {
        switch (below(7)) {
        case 0:
            return GenericPayload::fromValues(number());
        case 1:
            return GenericPayload::fromValues(code());
        case 2:
            return GenericPayload::fromValues(std::tuple(number(), code()));
        case 3:
            return GenericPayload::fromPackedArguments(std::tuple(number(), code(), code()));
        case 4:
            return taken<int>(GenericPayload::fromValues(code()));
        default:
            return GenericPayload::fromValues(text());
        }
    }

    std::mt19937_64 random;
};

template <class T>
bool sameValue(const GenericPayload& a, const GenericPayload& b, std::size_t slot) {
    return a.peek<T>(slot) == b.peek<T>(slot);
}

void expectSameSlot(const GenericPayload& a, const GenericPayload& b, std::size_t slot) {
    ASSERT_EQ(a.slotType(slot), b.slotType(slot));
    ASSERT_EQ(a.isEmpty(slot), b.isEmpty(slot));
    ASSERT_EQ(a.isPackedArguments(slot), b.isPackedArguments(slot));
    ASSERT_FALSE(a.holdsFuture(slot) || b.holdsFuture(slot));
    if (!a.isEmpty(slot)) {
        withType(wireType(a.slotType(slot)), [&]<class T>(const T*) {
            if constexpr (!std::is_same_v<T, ForeignValue>) {
                ASSERT_TRUE(sameValue<T>(a, b, slot));
            }
        });
    }
}

TEST(PayloadRoundTripTest, KeepsRandomPayloads) {
    const std::uint64_t seed = seedOfThisRun();
    RecordProperty("seed", std::to_string(seed));
    std::cout << "seed " << seed << "; replay with ORVI_TEST_SEED=" << seed << '\n';
    for (std::uint64_t run = 0; run < 300; ++run) {
        SCOPED_TRACE("replay with ORVI_TEST_SEED=" + std::to_string(seed + run));
        const GenericPayload expected = RandomPayload(seed + run).make();
        std::minstd_rand random(static_cast<unsigned>(seed + run));
        const std::size_t largestSlice = random() % 2 == 0 ? 7 : 10'000;
        const GenericPayload result = received(
            framesOf(OutgoingMessage::answer(RandomPayload(seed + run).make())),
            [&] { return 1 + random() % largestSlice; }, random() % 1'000'000);
        ASSERT_EQ(result.size(), expected.size());
        for (std::size_t slot = 0; slot < expected.size(); ++slot) {
            ASSERT_NO_FATAL_FAILURE(expectSameSlot(expected, result, slot)) << slot;
        }
    }
}

} // namespace
} // namespace agent::orvi::remoting::details::test
