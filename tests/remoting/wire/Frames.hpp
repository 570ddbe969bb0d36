#pragma once

#include "remoting/wire/SlicedInput.hpp"

#include "wire/FrameCodec.hpp"
#include "wire/PayloadCodec.hpp"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {

/// Return the bytes that a frame is on the way.
inline std::string encoded(const OutgoingFrame& frame) {
    return frame.head + std::string(frame.data.data, frame.data.size);
}

/// Return bytes that a frame can refer to.
inline Bytes bytesOf(std::string text) {
    auto owner = std::make_shared<const std::string>(std::move(text));
    const char* const data = owner->data();
    const std::size_t size = owner->size();
    return {std::move(owner), data, size};
}

/// Return all frames of a message, encoded.
inline std::vector<std::string> framesOf(OutgoingMessage message) {
    std::vector<std::string> frames;
    while (message.hasNext()) {
        frames.push_back(encoded(message.next()));
    }
    return frames;
}

/// A decoded frame.
struct ReadFrame {
    v1::Frame head;
    std::string data;
};

/// Read a frame whose bytes come in slices of a size.
inline ReadFrame readFrame(std::string_view bytes, std::size_t sliceSize = 1000) {
    SlicedInput input(bytes, sliceSize);
    FrameReader reader(input, bytes.size());
    ReadFrame frame;
    reader.readHead(frame.head);
    frame.data.resize(reader.dataSize());
    reader.readData(frame.data.data(), frame.data.size());
    return frame;
}

/// Return the slots of a request or an answer.
inline const google::protobuf::RepeatedPtrField<v1::Slot>& slotsOf(const v1::Frame& frame) {
    return frame.has_request() ? frame.request().slots() : frame.answer().slots();
}

/// Put a request or an answer together from its frames.
inline core::GenericPayload received(
    const std::vector<std::string>& frames, const std::function<std::size_t()>& sliceSize,
    std::uint64_t trustedBytes = std::numeric_limits<std::uint64_t>::max()) {
    IncomingMessage message;
    for (const std::string& bytes : frames) {
        SlicedInput input(bytes, sliceSize);
        FrameReader reader(input, bytes.size());
        v1::Frame head;
        reader.readHead(head);
        if (&bytes == &frames.front()) {
            message.begin(slotsOf(head));
            message.reserve(trustedBytes);
        }
        message.append(reader);
    }
    return message.take();
}

inline core::GenericPayload received(const std::vector<std::string>& frames) {
    return received(frames, [] { return std::size_t{4096}; });
}

/// Return text of a length in which no part equals its neighbours.
inline std::string patternOf(std::size_t length) {
    std::minstd_rand random(static_cast<unsigned>(length) + 1);
    std::string text(length, '\0');
    for (char& character : text) {
        character = static_cast<char>(random() >> 7);
    }
    return text;
}

/// Return the seed of a random test, which ORVI_TEST_SEED replays.
inline std::uint64_t seedOfThisRun() {
    if (const char* const given = std::getenv("ORVI_TEST_SEED")) {
        return std::stoull(given);
    }
    return std::random_device()();
}

} // namespace agent::orvi::remoting::details::test
