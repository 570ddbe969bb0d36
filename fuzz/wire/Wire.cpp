/// Frames as they may arrive from a peer, in slices of any size: any bytes, bytes that are nearly
/// frames, and frames with any contents.
///
/// Property: a frame, and whatever its head describes (a payload, an error, a service's properties
/// and interface), is decoded or refused with ProtocolError. What is decoded can be encoded, and is
/// decoded again to an equal value. The memory that is allocated in one piece is a few times as
/// large as the input, or as what the receiver trusts the peer with.

#include "wire/AnyFrame.hpp"

#include "Target.hpp"

#include "allocations/LargestAllocation.hpp"
#include "remoting/wire/Frames.hpp"
#include "wire/ErrorCodec.hpp"
#include "wire/FrameLimits.hpp"
#include "wire/InterfaceCodec.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/AnyMap.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using namespace remoting::details;
namespace test = remoting::details::test;
using core::GenericPayload;
using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using remoting::ProtocolError;

/// Return what `decode` returns, nothing when it refuses the input. Its allocations are small.
template <class Decode>
auto decoded(std::size_t inputSize, std::uint64_t trusted, const Decode& decode)
    -> std::optional<decltype(decode())> {
    constexpr std::size_t factor = 64;
    constexpr std::size_t always = 4096;
    v1::Frame::descriptor(); // made once, with the first message that is read
    const orvi::test::LargestAllocation largest;
    try {
        auto result = decode();
        require(
            largest.size() <= factor * inputSize + trusted + always,
            "memory is allocated for what has come, not for what is announced");
        return result;
    } catch (const ProtocolError&) {
        require(
            largest.size() <= factor * inputSize + trusted + always,
            "memory is not allocated for what is refused");
        return std::nullopt;
    }
}

bool same(const Any& a, const Any& b);

bool same(const std::vector<Any>& a, const std::vector<Any>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const Any& x, const Any& y) {
        return same(x, y);
    });
}

bool same(const AnyMap& a, const AnyMap& b) {
    return a.GetType() == b.GetType() && a.size() == b.size() &&
           std::all_of(a.begin(), a.end(), [&](const auto& entry) {
               const auto found = b.find(entry.first);
               return found != b.end() && found->first == entry.first &&
                      same(entry.second, found->second);
           });
}

/// Say whether two values are equal, down to the bits of numbers that equal nothing.
bool same(const Any& a, const Any& b) {
    if (a.Type() != b.Type()) {
        return false;
    }
    if (const auto* number = any_cast<double>(&a)) {
        return std::bit_cast<std::uint64_t>(*number) ==
               std::bit_cast<std::uint64_t>(*any_cast<double>(&b));
    }
    if (const auto* values = any_cast<std::vector<Any>>(&a)) {
        return same(*values, *any_cast<std::vector<Any>>(&b));
    }
    if (const auto* map = any_cast<AnyMap>(&a)) {
        return same(*map, *any_cast<AnyMap>(&b));
    }
    return a == b;
}

void checkProperties(const v1::Offer& offer, std::size_t inputSize) {
    const auto properties = decoded(inputSize, 0, [&] { return decodeProperties(offer); });
    if (!properties) {
        return;
    }
    v1::Offer again;
    encodeProperties(again, *properties);
    const Properties second = decodeProperties(again);
    require(
        std::equal(
            properties->begin(), properties->end(), second.begin(), second.end(),
            [](const auto& a, const auto& b) {
                return a.first == b.first && same(a.second, b.second);
            }),
        "properties that have come can go on");
}

void checkInterface(const v1::Interface& description, std::size_t inputSize) {
    const auto noFunction = [](const std::string&) { return core::PayloadFunction(); };
    const auto first =
        decoded(inputSize, 0, [&] { return decodeInterface(description, noFunction); });
    if (!first) {
        return;
    }
    require(first->name() == description.name(), "an interface keeps its name");
    require(
        first->methods().size() == static_cast<std::size_t>(description.methods_size()),
        "an interface keeps its methods");
    const v1::Interface again = encodeInterface(*first);
    require(
        encodeInterface(decodeInterface(again, noFunction)).SerializeAsString() ==
            again.SerializeAsString(),
        "an interface that has come can go on");
}

void checkFailure(const v1::Failure& failure, std::size_t inputSize) {
    const auto error = decoded(inputSize, 0, [&] { return decodeFailure(failure); });
    require(error && *error, "an error is an exception");
    try {
        std::rethrow_exception(*error);
    } catch (const std::exception& reason) {
        require(std::strcmp(reason.what(), failure.text().c_str()) == 0, "an error keeps its text");
    }
    const v1::Failure again = encodeFailure(*error);
    require(
        encodeFailure(decodeFailure(again)).SerializeAsString() == again.SerializeAsString(),
        "an error that has come can go on");
}

/// Say whether two payloads hold the same. Values of types that do not travel are all alike.
bool same(const GenericPayload& a, const GenericPayload& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t index = 0; index < a.size(); ++index) {
        const std::uint64_t type = a.slotType(index);
        if (type != b.slotType(index) || a.isEmpty(index) != b.isEmpty(index) ||
            a.holdsFuture(index) != b.holdsFuture(index) ||
            a.isPackedArguments(index) != b.isPackedArguments(index)) {
            return false;
        }
        if (a.isEmpty(index) || a.holdsFuture(index)) {
            continue;
        }
        const bool equal = withType(wireType(type), [&]<class T>(const T*) {
            if constexpr (std::is_same_v<T, ForeignValue>) {
                return true;
            } else {
                return a.peek<T>(index) == b.peek<T>(index);
            }
        });
        if (!equal) {
            return false;
        }
    }
    return true;
}

/// Send a payload that has come on, and compare what comes of it with `original`.
void checkPayload(GenericPayload payload, const GenericPayload& original) {
    std::vector<std::string> frames;
    try {
        frames = test::framesOf(OutgoingMessage::request("method", false, std::move(payload)));
    } catch (const remoting::UnsupportedType&) {
        return; // of a later version
    }
    require(
        same(test::received(frames, [] { return std::size_t{7}; }), original),
        "a payload that has come can go on");
}

/// Takes the frames of one stream.
class Receiver {
public:
    explicit Receiver(Input& input)
        : sliceSize(input.below(200) + 1)
        , trusted(input.oneIn(4) ? 0 : input.below(4096)) {}

    void receive(const std::string& bytes) {
        arrived += bytes.size();
        test::SlicedInput source(bytes, sliceSize);
        FrameReader reader(source, bytes.size());
        v1::Frame head;
        const auto read = decoded(bytes.size(), 0, [&] {
            reader.readHead(head);
            return true;
        });
        if (!read) {
            return;
        }
        const std::string data = checkFrame(head, bytes);
        switch (head.body_case()) {
        case v1::Frame::kOffer:
            checkProperties(head.offer(), bytes.size());
            if (head.offer().has_interface()) {
                checkInterface(head.offer().interface(), bytes.size());
            }
            break;
        case v1::Frame::kFailure:
            checkFailure(head.failure(), bytes.size());
            break;
        case v1::Frame::kRequest:
        case v1::Frame::kAnswer:
            begin(test::slotsOf(head));
            append(reader, data);
            break;
        case v1::Frame::BODY_NOT_SET:
            append(reader, data);
            break;
        default:
            break;
        }
    }

private:
    /// Encode a frame again and compare what comes of it. Returns its data.
    std::string checkFrame(const v1::Frame& head, const std::string& bytes) const {
        v1::Frame known;
        require(known.ParseFromString(bytes), "a frame that is read is a message");
        const std::string data = known.data();
        const test::ReadFrame again =
            test::readFrame(test::encoded(encodeFrame(head, test::bytesOf(data))), sliceSize);
        require(
            again.head.SerializeAsString() == head.SerializeAsString() && again.data == data,
            "a frame that has come can go on");
        return data;
    }

    void begin(const google::protobuf::RepeatedPtrField<v1::Slot>& slots) {
        texts.clear();
        active = decoded(arrived, trusted, [&] {
                     message.begin(slots);
                     message.reserve(trusted);
                     return true;
                 }).has_value();
        expectedBytes = active ? announced(slots) : 0;
        require(
            message.byteCount() == expectedBytes || !active, "a message is as long as announced");
    }

    void append(FrameReader& reader, const std::string& data) {
        if (!active) {
            return;
        }
        const bool fits = texts.size() + data.size() <= expectedBytes;
        const auto appended = decoded(arrived, trusted, [&] {
            message.append(reader);
            return true;
        });
        require(appended.has_value() == fits, "data are taken as far as they were announced");
        active = fits;
        if (!fits) {
            return;
        }
        texts += data;
        require(
            message.complete() == (texts.size() == expectedBytes),
            "a message is complete with its last byte");
        if (message.complete()) {
            active = false;
            finish();
        }
    }

    void finish() {
        GenericPayload payload = message.take();
        std::string delivered;
        GenericPayload copy;
        for (std::size_t index = 0; index < payload.size(); ++index) {
            const bool isText = payload.slotType(index) == GenericPayload::typeHash<std::string>();
            if (isText && !payload.isEmpty(index) && !payload.holdsFuture(index)) {
                delivered += payload.peek<std::string>(index);
            }
        }
        require(delivered == texts, "texts arrive as they were sent");
        try {
            copy = payload;
        } catch (const std::logic_error&) {
            return; // it holds a future, which cannot be copied
        }
        checkPayload(std::move(payload), copy);
    }

    const std::size_t sliceSize;
    const std::uint64_t trusted;
    std::size_t arrived = 0;
    IncomingMessage message;
    bool active = false;
    std::uint64_t expectedBytes = 0;
    std::string texts;
};

/// Return the next frame, or what is nearly one.
std::string nextFrame(Input& input) {
    const std::size_t way = input.below(8);
    if (way == 0) {
        return input.text(300);
    }
    std::string bytes = encoded(anyFrame(input), input.text(300));
    if (way == 1 && !bytes.empty()) {
        bytes[input.below(bytes.size())] = static_cast<char>(input.byte());
    } else if (way == 2 && !bytes.empty()) {
        bytes.resize(input.below(bytes.size()));
    } else if (way == 3) {
        bytes.insert(input.below(bytes.size() + 1), input.text(8));
    }
    return bytes;
}

} // namespace
} // namespace agent::orvi::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi::fuzz;
    Input input(bytes, size);
    if (input.oneIn(4)) {
        Receiver(input).receive(std::string(input.rest()));
        return 0;
    }
    Receiver receiver(input);
    while (!input.empty()) {
        receiver.receive(nextFrame(input));
    }
    return 0;
}
