#include "wire/PayloadCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <algorithm>
#include <cassert>
#include <future>
#include <limits>
#include <type_traits>
#include <utility>

namespace agent::orvi::remoting::details {
namespace {

using core::GenericPayload;

static_assert(
    std::numeric_limits<int>::digits == 31 && sizeof(std::size_t) == sizeof(std::uint64_t),
    "what travels as 32 bits is an int, and a text may be as long as memory allows");

ProtocolError unfit(const char* what) {
    return ProtocolError(std::string("A slot of a message does not fit its type: ") + what + '.');
}

template <class Number>
Number numberFrom(const v1::Slot& slot, int index) {
    const std::int64_t number = slot.numbers(index);
    if (number < std::numeric_limits<Number>::min() ||
        number > std::numeric_limits<Number>::max()) {
        throw unfit("a number is out of range");
    }
    return static_cast<Number>(number);
}

/// Reads the value of a slot; one specialisation for each kind of type.
template <class T>
struct SlotValue {
    static constexpr int numbers = 1;

    static T from(const v1::Slot& slot) { return numberFrom<T>(slot, 0); }
};

template <>
struct SlotValue<std::string> {
    static constexpr int numbers = 0;

    static std::string from(const v1::Slot&) { return {}; }
};

template <class... Numbers>
struct SlotValue<std::tuple<Numbers...>> {
    static constexpr int numbers = sizeof...(Numbers);

    static std::tuple<Numbers...> from(const v1::Slot& slot) {
        return [&]<int... Index>(std::integer_sequence<int, Index...>) {
            return std::tuple<Numbers...>(numberFrom<Numbers>(slot, Index)...);
        }
        (std::make_integer_sequence<int, numbers>());
    }
};

template <class T>
constexpr bool isComposite = false;

template <class... Elements>
constexpr bool isComposite<std::tuple<Elements...>> = true;

/// Return a slot with a value, for any type.
template <class T>
GenericPayload valueSlot(bool packed, T value) {
    if constexpr (isComposite<T>) {
        if (packed) {
            return GenericPayload::fromPackedArguments(std::move(value));
        }
    }
    return GenericPayload::fromValues(std::move(value));
}

template <class T>
GenericPayload filledSlot(const v1::Slot& slot) {
    if constexpr (std::is_same_v<T, ForeignValue>) {
        return valueSlot(false, ForeignValue());
    } else {
        if (slot.numbers_size() != SlotValue<T>::numbers) {
            throw unfit("it has too many numbers or too few");
        }
        return valueSlot(slot.packed(), SlotValue<T>::from(slot));
    }
}

template <class T>
GenericPayload emptySlot(const v1::Slot& slot) {
    GenericPayload payload = valueSlot(slot.packed(), T());
    payload.take<T>(0);
    return payload;
}

template <class T>
GenericPayload slotFrom(const v1::Slot& slot) {
    switch (slot.state()) {
    case v1::Slot::FILLED:
        return filledSlot<T>(slot);
    case v1::Slot::EMPTY:
        return emptySlot<T>(slot);
    case v1::Slot::FUTURE:
        return GenericPayload::fromFuture(std::promise<T>().get_future());
    default:
        return valueSlot(false, ForeignValue()); // of a later version
    }
}

void check(const v1::Slot& slot) {
    const bool filled = slot.state() == v1::Slot::FILLED;
    const bool mayBePacked =
        slot.type() != v1::INT64 && slot.type() != v1::INT32 && slot.type() != v1::TEXT;
    if (slot.length() > 0 && (slot.type() != v1::TEXT || !filled)) {
        throw unfit("it announces data");
    }
    if (slot.packed() && !mayBePacked) {
        throw unfit("it cannot hold all arguments");
    }
}

} // namespace

void IncomingMessage::begin(const google::protobuf::RepeatedPtrField<v1::Slot>& slots) {
    *this = IncomingMessage();
    if (static_cast<std::size_t>(slots.size()) > maximumSlots) {
        throw ProtocolError("A message has too many slots.");
    }
    for (const v1::Slot& slot : slots) {
        check(slot);
        addSlot(slot);
    }
}

void IncomingMessage::addSlot(const v1::Slot& slot) {
    payload.append(withType(slot.type(), [&]<class T>(const T*) { return slotFrom<T>(slot); }));
    if (slot.length() > 0) {
        if (slot.length() > std::numeric_limits<std::uint64_t>::max() - totalBytes) {
            throw ProtocolError("The texts of a message are too long.");
        }
        totalBytes += slot.length();
        texts.push_back({&payload.edit<std::string>(payload.size() - 1), slot.length()});
    }
}

void IncomingMessage::reserve(std::uint64_t trustedBytes) {
    for (const Text& each : texts) {
        const std::uint64_t trusted = std::min(each.length, trustedBytes);
        each.value->reserve(trusted);
        trustedBytes -= trusted;
    }
}

void IncomingMessage::append(FrameReader& frame) {
    while (frame.dataSize() > 0) {
        if (complete()) {
            throw ProtocolError("A message has more data than it announced.");
        }
        const Text& current = texts[text];
        const std::uint64_t missing = current.length - current.value->size();
        appendTo(current, frame, std::min<std::uint64_t>(missing, frame.dataSize()));
        if (current.value->size() == current.length) {
            ++text;
        }
    }
}

/// Read the next `count` bytes of a text.
void IncomingMessage::appendTo(const Text& current, FrameReader& frame, std::size_t count) {
    constexpr std::size_t growth = 8;
    std::string& value = *current.value;
    const std::size_t present = value.size();
    const std::size_t size = present + count;
    if (size > value.capacity()) {
        value.reserve(std::min<std::uint64_t>(current.length, size * growth));
    }
    bool read = false;
    value.resize_and_overwrite(size, [&](char* characters, std::size_t) noexcept {
        read = frame.tryReadData(characters + present, count);
        return read ? size : present;
    });
    if (!read) {
        throw ProtocolError("A frame is malformed.");
    }
}

GenericPayload IncomingMessage::take() {
    assert(complete());
    return std::exchange(*this, IncomingMessage()).payload;
}

} // namespace agent::orvi::remoting::details
