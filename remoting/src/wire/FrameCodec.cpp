#include "wire/FrameCodec.hpp"

#include "wire/EncodedFields.hpp"

#include <orvi/remoting/Errors.hpp>

#include <array>
#include <cassert>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

using google::protobuf::io::CodedOutputStream;

constexpr std::uint32_t dataTag = tagOf(v1::Frame::kDataFieldNumber, FieldForm::length);
static_assert(dataTag < 0x80, "the tag of the data is one byte");

std::size_t varintSize(std::size_t value) {
    return CodedOutputStream::VarintSize64(value);
}

std::string tooLong(std::size_t size) {
    return "A frame of " + std::to_string(size) + " bytes is longer than the limit of " +
           std::to_string(maximumFrameSize) + " bytes.";
}

ProtocolError malformed() {
    return ProtocolError("A frame is malformed.");
}

/// Return the part of a frame that a field holds.
///
/// The generated accessors that make a part leave the frame with one that is not there when there
/// is no memory for it.
template <class Body>
google::protobuf::Message*
bodyOf(v1::Frame& frame, bool isThere, void (v1::Frame::*give)(Body*), Body* (v1::Frame::*get)()) {
    if (!isThere) {
        (frame.*give)(new Body);
    }
    return (frame.*get)();
}

/// Return the part of a frame that a field holds, null for fields of later versions.
google::protobuf::Message* bodyOf(v1::Frame& frame, int field) {
    using v1::Frame;
    switch (field) {
    case Frame::kHelloFieldNumber:
        return bodyOf(frame, frame.has_hello(), &Frame::set_allocated_hello, &Frame::mutable_hello);
    case Frame::kWantFieldNumber:
        return bodyOf(frame, frame.has_want(), &Frame::set_allocated_want, &Frame::mutable_want);
    case Frame::kUnwantFieldNumber:
        return bodyOf(
            frame, frame.has_unwant(), &Frame::set_allocated_unwant, &Frame::mutable_unwant);
    case Frame::kOfferFieldNumber:
        return bodyOf(frame, frame.has_offer(), &Frame::set_allocated_offer, &Frame::mutable_offer);
    case Frame::kWithdrawalFieldNumber:
        return bodyOf(
            frame, frame.has_withdrawal(), &Frame::set_allocated_withdrawal,
            &Frame::mutable_withdrawal);
    case Frame::kSettledFieldNumber:
        return bodyOf(
            frame, frame.has_settled(), &Frame::set_allocated_settled, &Frame::mutable_settled);
    case Frame::kRequestFieldNumber:
        return bodyOf(
            frame, frame.has_request(), &Frame::set_allocated_request, &Frame::mutable_request);
    case Frame::kAnswerFieldNumber:
        return bodyOf(
            frame, frame.has_answer(), &Frame::set_allocated_answer, &Frame::mutable_answer);
    case Frame::kFailureFieldNumber:
        return bodyOf(
            frame, frame.has_failure(), &Frame::set_allocated_failure, &Frame::mutable_failure);
    case Frame::kAbandonFieldNumber:
        return bodyOf(
            frame, frame.has_abandon(), &Frame::set_allocated_abandon, &Frame::mutable_abandon);
    default:
        return nullptr;
    }
}

bool parse(google::protobuf::Message& message, const void* bytes, int size) {
    return isWellFormed(
               {static_cast<const char*>(bytes), static_cast<std::size_t>(size)},
               *message.GetDescriptor()) &&
           message.ParsePartialFromArray(bytes, size);
}

} // namespace

OutgoingFrame encodeFrame(const v1::Frame& head, Bytes data) {
    assert(head.data().empty());
    const std::size_t headSize = head.ByteSizeLong();
    if (headSize > maximumFrameSize) {
        throw std::length_error(tooLong(headSize));
    }
    return attachData(head.SerializeAsString(), std::move(data));
}

OutgoingFrame attachData(std::string head, Bytes data) {
    if (data.size > 0) {
        const std::size_t size = head.size() + 1 + varintSize(data.size) + data.size;
        if (size > maximumFrameSize) {
            throw std::length_error(tooLong(size));
        }
        std::array<std::uint8_t, 8> prefix{static_cast<std::uint8_t>(dataTag)};
        const std::uint8_t* const end = CodedOutputStream::WriteVarint32ToArray(
            static_cast<std::uint32_t>(data.size), prefix.data() + 1);
        head.append(prefix.cbegin(), prefix.cbegin() + (end - prefix.data()));
    }
    return {std::move(head), std::move(data)};
}

std::size_t dataRoom(std::size_t headSize) noexcept {
    if (headSize + 2 >= maximumFrameSize) {
        return 0;
    }
    const std::size_t room = maximumFrameSize - headSize - 1;
    const std::size_t fitting = room - varintSize(room);
    // A shorter number may have a shorter encoding.
    return varintSize(fitting + 1) + fitting + 1 <= room ? fitting + 1 : fitting;
}

FrameReader::FrameReader(google::protobuf::io::ZeroCopyInputStream& source, std::size_t size)
    : input(&source)
    , frameSize(size) {}

void FrameReader::readHead(v1::Frame& frame) {
    frame.Clear();
    if (frameSize > maximumFrameSize) {
        throw ProtocolError(tooLong(frameSize));
    }
    input.PushLimit(static_cast<int>(frameSize));
    for (std::uint32_t tag = readTag(input); tag != dataTag; tag = readTag(input)) {
        if (tag == 0) {
            if (input.BytesUntilLimit() != 0 || !input.ConsumedEntireMessage()) {
                throw malformed();
            }
            return;
        }
        if (!readField(frame, tag)) {
            throw malformed();
        }
    }
    if (!readDataSize()) {
        throw malformed();
    }
}

void FrameReader::readData(char* destination, std::size_t size) {
    if (!tryReadData(destination, size)) {
        throw malformed();
    }
}

bool FrameReader::tryReadData(char* destination, std::size_t size) noexcept {
    assert(size <= remaining);
    if (!input.ReadRaw(destination, static_cast<int>(size))) {
        return false;
    }
    remaining -= size;
    return true;
}

void FrameReader::skipData() {
    if (!input.Skip(static_cast<int>(std::exchange(remaining, 0)))) {
        throw malformed();
    }
}

bool FrameReader::readField(v1::Frame& frame, std::uint32_t tag) {
    const int field = fieldOf(tag);
    if (tag == tagOf(field, FieldForm::length)) {
        if (google::protobuf::Message* const body = bodyOf(frame, field)) {
            return readMessage(*body);
        }
    }
    return skipField(input, tag);
}

bool FrameReader::readMessage(google::protobuf::Message& message) {
    int size = 0;
    if (!input.ReadVarintSizeAsInt(&size) || size > input.BytesUntilLimit()) {
        return false;
    }
    const void* bytes = nullptr;
    int available = 0;
    if (input.GetDirectBufferPointer(&bytes, &available) && available >= size) {
        return parse(message, bytes, size) && input.Skip(size);
    }
    std::string copy; // heads are short: it is rarely that one lies across two slices
    return input.ReadString(&copy, size) && parse(message, copy.data(), size);
}

bool FrameReader::readDataSize() {
    int size = 0;
    if (!input.ReadVarintSizeAsInt(&size) || size != input.BytesUntilLimit()) {
        return false;
    }
    remaining = static_cast<std::size_t>(size);
    return true;
}

} // namespace agent::orvi::remoting::details
