#include "wire/ErrorCodec.hpp"
#include "wire/NewPart.hpp"
#include "wire/PayloadCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <algorithm>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

using core::GenericPayload;
using Slots = google::protobuf::RepeatedPtrField<v1::Slot>;

UnsupportedType unsupported(std::size_t slot) {
    return UnsupportedType(
        "Slot " + std::to_string(slot) +
        " holds a value of a type that cannot be sent to another process.");
}

void describe(std::int64_t number, v1::Slot& slot) {
    slot.add_numbers(number);
}

void describe(const std::string& text, v1::Slot& slot) {
    slot.set_length(text.size());
}

template <class... Numbers>
void describe(const std::tuple<Numbers...>& numbers, v1::Slot& slot) {
    std::apply([&](const Numbers... number) { (slot.add_numbers(number), ...); }, numbers);
}

void describeSlot(const GenericPayload& payload, std::size_t index, v1::Slot& slot) {
    const v1::Type type = wireType(payload.slotType(index));
    slot.set_type(type);
    slot.set_packed(payload.isPackedArguments(index));
    if (payload.isEmpty(index)) {
        slot.set_state(v1::Slot::EMPTY);
    } else if (payload.holdsFuture(index)) {
        slot.set_state(v1::Slot::FUTURE);
    } else {
        withType(type, [&]<class T>(const T*) {
            if constexpr (std::is_same_v<T, ForeignValue>) {
                throw unsupported(index);
            } else {
                describe(payload.peek<T>(index), slot);
            }
        });
    }
}

void describe(const GenericPayload& payload, Slots& slots) {
    if (payload.size() > maximumSlots) {
        throw std::length_error(
            "A payload of " + std::to_string(payload.size()) + " slots exceeds the limit of " +
            std::to_string(maximumSlots) + " slots.");
    }
    slots.Reserve(static_cast<int>(payload.size()));
    for (std::size_t index = 0; index < payload.size(); ++index) {
        describeSlot(payload, index, *slots.Add());
    }
}

bool waits(const GenericPayload& payload, std::size_t index) {
    return payload.holdsFuture(index) && !payload.isEmpty(index);
}

/// Return a slot with the value that its future delivers.
GenericPayload resolvedSlot(GenericPayload& payload, std::size_t index) {
    return withType(wireType(payload.slotType(index)), [&]<class T>(const T*) -> GenericPayload {
        if constexpr (std::is_same_v<T, ForeignValue>) {
            throw unsupported(index);
        } else {
            return GenericPayload::fromValues(payload.take<T>(index));
        }
    });
}

GenericPayload resolved(GenericPayload&& payload) {
    bool anyWaits = false;
    for (std::size_t index = 0; index < payload.size(); ++index) {
        anyWaits = anyWaits || waits(payload, index);
    }
    if (!anyWaits) {
        return std::move(payload);
    }
    GenericPayload result;
    for (std::size_t index = 0; index < payload.size(); ++index) {
        result.append(
            waits(payload, index) ? resolvedSlot(payload, index) : payload.takeSlot(index));
    }
    return result;
}

} // namespace

OutgoingMessage
OutgoingMessage::request(const std::string& method, bool oneWay, GenericPayload&& arguments) {
    v1::Frame frame;
    auto& request = newPart<v1::Request>(frame);
    request.set_method(method);
    request.set_one_way(oneWay);
    describe(arguments, *request.mutable_slots());
    return {frame, std::move(arguments)};
}

OutgoingMessage OutgoingMessage::answer(GenericPayload&& result) {
    GenericPayload payload = resolved(std::move(result));
    v1::Frame frame;
    describe(payload, *newPart<v1::Answer>(frame).mutable_slots());
    return {frame, std::move(payload)};
}

OutgoingMessage OutgoingMessage::failure(const std::exception_ptr& error) {
    v1::Frame frame;
    newPart<v1::Failure>(frame) = encodeFailure(error);
    return {frame, GenericPayload()};
}

OutgoingMessage::OutgoingMessage(const v1::Frame& first, GenericPayload&& values)
    : head(encodeFrame(first).head) {
    const Slots& slots = first.has_request() ? first.request().slots() : first.answer().slots();
    for (const v1::Slot& each : slots) {
        totalBytes += each.length();
    }
    if (totalBytes > 0) {
        payload = std::make_shared<const GenericPayload>(std::move(values));
        findText();
    }
}

OutgoingFrame OutgoingMessage::next() {
    std::string first = std::exchange(head, {});
    headSent = true;
    Bytes data = text == nullptr ? Bytes() : nextData(dataRoom(first.size()));
    return attachData(std::move(first), std::move(data));
}

/// Find the next text that is not empty, from `slot` on.
void OutgoingMessage::findText() {
    text = nullptr;
    offset = 0;
    for (; slot < payload->size() && text == nullptr; ++slot) {
        const bool isText = payload->slotType(slot) == GenericPayload::typeHash<std::string>();
        if (isText && !payload->isEmpty(slot) && !payload->holdsFuture(slot) &&
            !payload->peek<std::string>(slot).empty()) {
            text = &payload->peek<std::string>(slot);
        }
    }
}

Bytes OutgoingMessage::nextData(std::size_t room) {
    Bytes data{payload, text->data() + offset, std::min(room, text->size() - offset)};
    offset += data.size;
    if (offset == text->size()) {
        findText();
    }
    return data;
}

} // namespace agent::orvi::remoting::details
