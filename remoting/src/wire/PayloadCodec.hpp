#pragma once

#include "carrier/Carrier.hpp"
#include "wire/FrameCodec.hpp"
#include "wire/PayloadTypes.hpp"

#include <payload/GenericPayload.hpp>

#include <google/protobuf/repeated_ptr_field.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

/// One request, answer or failure on its way out, cut into frames. The frames refer to the texts of
/// the payload, which live for as long as one of the frames does.
///
/// Thread safety: single-thread; its frames may be used and dropped by any thread.
class OutgoingMessage {
public:
    /// Ask for a method to be run. A slot that holds a future travels as such, without its value.
    ///
    /// @throws UnsupportedType when a slot's type does not travel; the text names the slot.
    /// @throws std::length_error when there are more slots than `maximumSlots` or the method's name
    ///         does not fit a frame.
    static OutgoingMessage
    request(const std::string& method, bool oneWay, core::GenericPayload&& arguments);

    /// Answer with a result. Blocks until the futures in it, if any, are there.
    ///
    /// @throws UnsupportedType when a slot's type does not travel; the text names the slot.
    /// @throws std::length_error when there are more slots than `maximumSlots`.
    /// Exceptions of the futures pass unchanged.
    static OutgoingMessage answer(core::GenericPayload&& result);

    /// Report what was thrown instead. A text that is too long for a frame is cut.
    static OutgoingMessage failure(const std::exception_ptr& error);

    /// Say whether there is another frame. There is always a first one.
    bool hasNext() const noexcept { return !headSent || text != nullptr; }

    /// Return the next frame: the first one says what the message is, all carry data.
    OutgoingFrame next();

    /// Return how many bytes the texts have in total.
    std::uint64_t byteCount() const noexcept { return totalBytes; }

private:
    OutgoingMessage(const v1::Frame& first, core::GenericPayload&& values);

    void findText();
    Bytes nextData(std::size_t room);

    std::string head;
    bool headSent = false;
    std::uint64_t totalBytes = 0;
    std::shared_ptr<const core::GenericPayload> payload; // null when it has no texts
    std::size_t slot = 0;                                // of the text that is under way
    const std::string* text = nullptr;
    std::size_t offset = 0;
};

/// One request or answer that arrives in frames.
///
/// Everything that a peer sends is checked before it is used, and memory is not allocated for what
/// it only announces: it is a few times what has come, at least what the receiver trusts it with.
///
/// Thread safety: single-thread.
class IncomingMessage {
public:
    /// Start with the slots of a request or an answer; whatever was there before is dropped.
    /// Allocates nothing for texts.
    ///
    /// A slot whose type this side does not know holds a value that no method takes. One that held
    /// a future holds a broken one, one that was empty is empty: reading them fails as it would
    /// have failed at the sender.
    ///
    /// @throws ProtocolError when there are more slots than `maximumSlots`, or one has numbers that
    ///         do not fit its type, a length that is not a text's, or the lengths do not fit a
    ///         number of 64 bits.
    void begin(const google::protobuf::RepeatedPtrField<v1::Slot>& slots);

    /// Reserve memory for the texts that were announced, in total at most so many bytes.
    void reserve(std::uint64_t trustedBytes);

    /// Read the data of the next frame into the texts.
    ///
    /// @throws ProtocolError when there are more data than were announced, or the frame ends too
    ///         early.
    void append(FrameReader& frame);

    /// Say whether all data have come.
    bool complete() const noexcept { return text == texts.size(); }

    /// Return how many bytes the texts will have in total.
    std::uint64_t byteCount() const noexcept { return totalBytes; }

    /// Return the payload. Only once it is complete; there is nothing left of it afterwards.
    core::GenericPayload take();

private:
    struct Text {
        std::string* value; // in the payload
        std::uint64_t length;
    };

    void addSlot(const v1::Slot& slot);
    static void appendTo(const Text& current, FrameReader& frame, std::size_t count);

    core::GenericPayload payload;
    std::vector<Text> texts; // those that are not empty
    std::size_t text = 0;    // that is under way
    std::uint64_t totalBytes = 0;
};

} // namespace agent::orvi::remoting::details
