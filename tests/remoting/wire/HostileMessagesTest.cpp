#include "remoting/wire/Frames.hpp"

#include "allocations/LargestAllocation.hpp"
#include "wire/ErrorCodec.hpp"
#include "wire/InterfaceCodec.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/AnyMap.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;

std::string offerFrame() {
    v1::Frame frame;
    v1::Offer& offer = *frame.mutable_offer();
    offer.set_service(7);
    encodeProperties(
        offer, {{"orvi.servicename", Any(std::string("orviStreambuf_1"))},
                {"numbers", Any(std::vector<Any>{Any(1), Any(2L), Any(3.5)})},
                {"map", Any(AnyMap({{"inner", Any(std::vector<std::string>{"a", "b"})}}))}});
    *offer.mutable_interface() = encodeInterface(core::ServiceInterface(
        "orviStreambuf_1", core::APIVersion(1, 0), {{"hasRead", "true"}},
        {core::ExportedFunction(
            "read", nullptr, GenericPayload::typeHash<std::string>(),
            {GenericPayload::typeHash<std::int64_t>()})}));
    return encoded(encodeFrame(frame));
}

/// Return frames of all kinds that carry anything which is looked at.
std::vector<std::string> samples() {
    GenericPayload payload = GenericPayload::fromValues(
        std::int64_t{-3}, 4, std::string("text"), std::tuple<std::int64_t, int>(5, 6),
        std::string("more"));
    std::vector<std::string> frames =
        framesOf(OutgoingMessage::request("seekoff", true, GenericPayload(payload)));
    for (std::string& frame : framesOf(OutgoingMessage::answer(std::move(payload)))) {
        frames.push_back(std::move(frame));
    }
    frames.push_back(encoded(
        OutgoingMessage::failure(
            std::make_exception_ptr(std::system_error(std::make_error_code(std::errc::io_error))))
            .next()));
    frames.push_back(offerFrame());
    return frames;
}

/// Look at everything in a frame as its receiver does.
void consume(const std::string& bytes, std::size_t sliceSize) {
    SlicedInput input(bytes, sliceSize);
    FrameReader reader(input, bytes.size());
    v1::Frame head;
    reader.readHead(head);
    IncomingMessage message;
    message.begin(slotsOf(head));
    message.reserve(1000);
    try {
        std::rethrow_exception(decodeFailure(head.failure()));
    } catch (const std::exception& error) {
        EXPECT_NE(error.what(), nullptr);
    }
    decodeProperties(head.offer());
    if (head.offer().has_interface()) {
        decodeInterface(head.offer().interface(), [](const std::string&) { return nullptr; });
    }
    message.append(reader);
    if (message.complete()) {
        GenericPayload payload = message.take();
        OutgoingMessage::request("again", false, std::move(payload));
    }
}

/// Count what becomes of spoilt frames.
struct Outcomes {
    std::size_t accepted = 0;
    std::size_t refused = 0;
};

/// Expect that a spoilt frame is either understood or refused, without much memory.
void expectHarmless(const std::string& bytes, std::size_t sliceSize, Outcomes& outcomes) {
    const orvi::test::LargestAllocation largest;
    try {
        consume(bytes, sliceSize);
        ++outcomes.accepted;
    } catch (const ProtocolError&) {
        ++outcomes.refused;
    } catch (const UnsupportedType&) {
        ++outcomes.accepted; // a slot of a later version, which cannot be sent again
    }
    EXPECT_LT(largest.size(), 10'000U) << testing::PrintToString(bytes);
}

TEST(HostileMessagesTest, AreSoundBeforeTheyAreSpoilt) {
    for (const std::string& frame : samples()) {
        EXPECT_TRUE(readFrame(frame).head.ByteSizeLong() > 0 || !readFrame(frame).data.empty());
    }
}

TEST(HostileMessagesTest, AreHarmlessWhenAnyBitIsFlipped) {
    Outcomes outcomes;
    for (const std::string& frame : samples()) {
        for (std::size_t bit = 0; bit < 8 * frame.size(); ++bit) {
            std::string spoilt = frame;
            spoilt[bit / 8] = static_cast<char>(spoilt[bit / 8] ^ (1 << bit % 8));
            expectHarmless(spoilt, 5, outcomes);
        }
    }
    EXPECT_GT(outcomes.accepted, 100U);
    EXPECT_GT(outcomes.refused, 100U);
}

TEST(HostileMessagesTest, AreHarmlessWhenTheyAreCutAnywhere) {
    Outcomes outcomes;
    for (const std::string& frame : samples()) {
        for (std::size_t size = 0; size < frame.size(); ++size) {
            expectHarmless(frame.substr(0, size), 3, outcomes);
        }
    }
    EXPECT_GT(outcomes.refused, 100U);
}

TEST(HostileMessagesTest, AreHarmlessWhenManyBytesAreChanged) {
    const std::uint64_t seed = seedOfThisRun();
    RecordProperty("seed", std::to_string(seed));
    std::cout << "seed " << seed << "; replay with ORVI_TEST_SEED=" << seed << '\n';
    const std::vector<std::string> frames = samples();
    Outcomes outcomes;
    for (std::uint64_t run = 0; run < 20'000; ++run) {
        SCOPED_TRACE("replay with ORVI_TEST_SEED=" + std::to_string(seed + run));
        std::mt19937_64 random(seed + run);
        std::string spoilt = frames[random() % frames.size()];
        for (std::size_t change = random() % 6; change < 6; ++change) {
            const std::size_t position = random() % spoilt.size();
            switch (random() % 3) {
            case 0:
                spoilt[position] = static_cast<char>(random());
                break;
            case 1:
                spoilt.insert(position, 1, static_cast<char>(random()));
                break;
            default:
                spoilt.erase(position, spoilt.size() > 1 ? 1 : 0);
                break;
            }
        }
        expectHarmless(spoilt, 1 + random() % 7, outcomes);
    }
    EXPECT_GT(outcomes.accepted, 100U);
    EXPECT_GT(outcomes.refused, 100U);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
