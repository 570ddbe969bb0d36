#include "allocations/FailingAllocation.hpp"
#include "remoting/wire/Frames.hpp"

#include "wire/ErrorCodec.hpp"
#include "wire/InterfaceCodec.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/AnyMap.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <future>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;

const std::string longText(1000, 'x');

/// Fail each allocation of an operation: it returns what it returns, or throws `std::bad_alloc`.
///
/// @param shown makes a result comparable.
/// @return how many allocations have failed.
template <class Operation, class Show>
std::size_t expectWholeOrNothing(const Operation& operation, const Show& shown) {
    const auto expected = shown(operation());
    return failEachAllocation([&](FailingAllocation& failure) {
        std::optional<decltype(operation())> result;
        const bool done = failure.allows([&] { result.emplace(operation()); });
        EXPECT_EQ(done, !failure.happened());
        EXPECT_EQ(result.has_value(), done);
        if (done) {
            EXPECT_EQ(shown(*result), expected);
        }
    });
}

std::string serialized(const google::protobuf::Message& message) {
    return message.SerializeAsString();
}

std::string textOf(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return std::string(typeid(exception).name()) + ": " + exception.what();
    }
}

Properties sampleProperties() {
    AnyMap map(AnyMap::ORDERED_MAP);
    map["inner"] = longText;
    map["list"] = std::vector<Any>{Any(1), Any(longText)};
    return {
        {"orvi.servicename", longText},
        {"texts", std::vector<std::string>{longText, "short", longText}},
        {"number", 5L},
        {"map", map}};
}

core::ServiceInterface sampleInterface() {
    const auto number = GenericPayload::typeHash<std::int64_t>();
    std::vector<core::ExportedFunction> methods;
    methods.emplace_back("read", nullptr, number, std::vector{number});
    methods.emplace_back(longText, nullptr, number, std::vector{number, number});
    return {longText, core::APIVersion(1, 2), {{"key", longText}, {longText, "value"}}, methods};
}

TEST(CodecFaults, ARequestIsEncodedWholeOrNotAtAll) {
    const std::size_t failures = expectWholeOrNothing(
        [] {
            return framesOf(OutgoingMessage::request(
                longText, false, GenericPayload::fromValues(std::int64_t{1}, longText, 3)));
        },
        [](const auto& frames) { return frames; });
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, AnAnswerThatWaitsForAFutureIsEncodedWholeOrNotAtAll) {
    const std::size_t failures = expectWholeOrNothing(
        [] {
            std::promise<std::string> promise;
            promise.set_value(longText);
            return framesOf(OutgoingMessage::answer(
                GenericPayload::fromFuture<std::string>(promise.get_future())));
        },
        [](const auto& frames) { return frames; });
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, AMessageIsDecodedWholeOrNotAtAll) {
    const std::vector<std::string> frames = framesOf(
        OutgoingMessage::answer(GenericPayload::fromValues(patternOf(200'000), 7, longText)));
    const std::size_t failures = expectWholeOrNothing(
        [&] {
            return received(
                frames, [] { return std::size_t{70'000}; }, 0);
        },
        [](const GenericPayload& payload) {
            return payload.peek<std::string>(0) + payload.peek<std::string>(2);
        });
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, AHeadInManySlicesIsReadWholeOrNotAtAll) {
    v1::Frame frame;
    // Without lists and maps, for which the generated parser has a fault of its own; see newPart.
    encodeProperties(*frame.mutable_offer(), {{"orvi.servicename", longText}, {"number", 5L}});
    const std::string bytes = encoded(encodeFrame(frame));
    const std::size_t failures =
        expectWholeOrNothing([&] { return readFrame(bytes, 100).head; }, &serialized);
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, PropertiesAreEncodedWholeOrNotAtAll) {
    const Properties properties = sampleProperties();
    const std::size_t failures = expectWholeOrNothing(
        [&] {
            v1::Offer offer;
            encodeProperties(offer, properties);
            return offer;
        },
        &serialized);
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, PropertiesAreDecodedWholeOrNotAtAll) {
    v1::Offer offer;
    encodeProperties(offer, sampleProperties());
    const std::size_t failures = expectWholeOrNothing(
        [&] { return decodeProperties(offer); },
        [](const Properties& properties) {
            v1::Offer again;
            encodeProperties(again, properties);
            return again.SerializeAsString();
        });
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, AnInterfaceIsEncodedWholeOrNotAtAll) {
    const core::ServiceInterface interface = sampleInterface();
    const std::size_t failures =
        expectWholeOrNothing([&] { return encodeInterface(interface); }, &serialized);
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, AnInterfaceIsDecodedWholeOrNotAtAll) {
    const v1::Interface described = encodeInterface(sampleInterface());
    const std::size_t failures = expectWholeOrNothing(
        [&] { return decodeInterface(described, [](const std::string&) { return nullptr; }); },
        [](const core::ServiceInterface& interface) {
            return encodeInterface(interface).SerializeAsString();
        });
    EXPECT_GT(failures, 8U);
}

TEST(CodecFaults, AnErrorIsEncodedWholeOrNotAtAll) {
    const std::vector<std::exception_ptr> errors{
        std::make_exception_ptr(std::runtime_error(longText)),
        std::make_exception_ptr(std::system_error(5, std::generic_category(), longText)),
        std::make_exception_ptr(RemoteError(longText, longText)), std::make_exception_ptr(5)};
    for (const std::exception_ptr& error : errors) {
        const std::size_t failures =
            expectWholeOrNothing([&] { return encodeFailure(error); }, &serialized);
        EXPECT_GT(failures, 1U);
    }
}

TEST(CodecFaults, AnErrorIsDecodedAsItselfOrAsWantOfMemory) {
    const std::vector<std::exception_ptr> errors{
        std::make_exception_ptr(std::runtime_error(longText)),
        std::make_exception_ptr(std::system_error(5, std::generic_category(), longText)),
        std::make_exception_ptr(RemoteError(longText, longText)),
        std::make_exception_ptr(PeerLost(PeerLost::Cause::terminated, longText))};
    for (const std::exception_ptr& error : errors) {
        const v1::Failure encoded = encodeFailure(error);
        const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
            std::exception_ptr decoded;
            if (failure.allows([&] { decoded = decodeFailure(encoded); })) {
                EXPECT_EQ(
                    textOf(decoded),
                    textOf(failure.happened() ? std::make_exception_ptr(std::bad_alloc()) : error));
            }
        });
        EXPECT_GT(failures, 0U);
    }
}

} // namespace
} // namespace agent::orvi::remoting::details::test
