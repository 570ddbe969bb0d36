/// Payloads of any shape, as foreign callers may make them, into every method of a published
/// device.
///
/// Property: whatever the payload is, exactly one side of the completion handler is called, once,
/// before the call returns. A payload of the right shape reaches the device, with the arguments
/// that it holds and seek arguments within the device's contract, and is answered with the device's
/// result or, where the device throws, the neutral one. Any other shape is answered with the error
/// that GenericPayload and the adapters document, and the device sees nothing.

#include "Input.hpp"
#include "Target.hpp"

#include "support/Registry.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <payload/GenericPayload.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <cstdint>
#include <exception>
#include <future>
#include <ios>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <variant>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using core::GenericPayload;
using Offset = std::int64_t;
using Arguments = std::variant<
    std::monostate, Offset, std::string, std::tuple<Offset, int, int>, std::tuple<Offset, int>>;

/// What the device does in the call that is under way, and what it saw of it.
struct Device {
    bool fails = false;
    Offset number = 0;
    std::string text;
    Arguments seen;
    int calls = 0;

    template <class Result>
    Result answer(Arguments arguments, Result result) {
        ++calls;
        seen = std::move(arguments);
        if (fails) {
            throw std::runtime_error("The device fails.");
        }
        return result;
    }
};

Device device;

bool isMode(int mode) {
    return mode == std::ios_base::in || mode == std::ios_base::out ||
           mode == (std::ios_base::in | std::ios_base::out);
}

bool isDirection(int direction) {
    return direction == std::ios_base::beg || direction == std::ios_base::cur ||
           direction == std::ios_base::end;
}

streambuf::StreamBuffer publish(const boost::uuids::uuid& uuid) {
    return streambuf::makeDevice(
        uuid, [](Offset count) { return device.answer(count, device.text); },
        [](const std::string& data) { return device.answer(data, device.number); },
        [](Offset offset, int direction, int mode) -> std::streampos {
            require(isDirection(direction), "a device is told one of the three directions");
            require(isMode(mode), "a device is told one of the three modes");
            return device.answer(std::tuple(offset, direction, mode), device.number);
        },
        [](std::streampos position, int mode) -> std::streampos {
            require(isMode(mode), "a device is told one of the three modes");
            return device.answer(std::tuple(Offset{position}, mode), device.number);
        },
        16);
}

/// One slot, described beside its payload.
struct Slot {
    std::uint64_t type;
    bool empty;
    bool future;
    bool packed;
    Arguments value; ///< Of slots that a method of the device may take.
};

/// Makes a payload and its description at once.
class Payload {
public:
    explicit Payload(Input& input) {
        const std::size_t count = input.below(16) < 15 ? input.below(5) : input.below(70);
        // Slots that the input does not describe are all alike: some of them will do.
        for (std::size_t index = 0; index < count && (index < 4 || !input.empty()); ++index) {
            addAny(input);
        }
    }

    GenericPayload payload;
    std::vector<Slot> slots;

private:
    void addAny(Input& input) {
        const std::uint8_t form = input.byte();
        const std::size_t state = (form >> 4U) % 8;
        switch (form % 10) {
        case 0:
        case 1:
            return add<Offset>(input.signedNumber(), state);
        case 2:
        case 3:
            return add<int>(static_cast<int>(input.number()), state);
        case 4:
            return add<std::string>(input.text(20), state);
        case 5:
            return addPacked(
                std::tuple(
                    input.signedNumber(), static_cast<int>(input.number()),
                    static_cast<int>(input.number())),
                state);
        case 6:
            return addPacked(
                std::tuple(input.signedNumber(), static_cast<int>(input.number())), state);
        case 7:
            return add<unsigned long>(input.number(), state);
        case 8:
            return add<std::vector<std::string>>({input.text(9)}, state);
        default:
            return addPacked(std::tuple(input.signedNumber()), state);
        }
    }

    template <class T>
    void add(T value, std::size_t state) {
        if (state == 1) {
            std::promise<T> promise;
            promise.set_value(value);
            append(GenericPayload::fromFuture(promise.get_future()), value, true, false, state);
        } else if (state == 2) {
            append(
                GenericPayload::fromFuture(std::promise<T>().get_future()), value, true, false, 0);
        } else {
            append(GenericPayload::fromValues(value), value, false, false, state);
        }
    }

    template <class... Elements>
    void addPacked(std::tuple<Elements...> value, std::size_t state) {
        if (state % 2 == 0) {
            append(GenericPayload::fromPackedArguments(value), value, false, true, state);
        } else {
            add(value, state / 2);
        }
    }

    template <class T>
    void append(GenericPayload slot, const T& value, bool future, bool packed, std::size_t state) {
        const bool empty = state == 6 || state == 7;
        if (empty && state == 6) {
            slot.take<T>(0);
        } else if (empty) {
            slot.takeSlot(0);
        }
        payload.append(std::move(slot));
        Arguments known;
        if constexpr (
            std::is_same_v<T, Offset> || std::is_same_v<T, std::string> ||
            std::is_same_v<T, std::tuple<Offset, int, int>> ||
            std::is_same_v<T, std::tuple<Offset, int>>) {
            known = value;
        } else if constexpr (std::is_same_v<T, int>) {
            known = Offset{value};
        }
        slots.push_back({GenericPayload::typeHash<T>(), empty, future, packed, std::move(known)});
    }
};

/// What the outcome of a call must be: an error's type and text, or none.
struct Expected {
    const std::type_info* error = nullptr;
    std::string text;
    Arguments arguments;
};

Expected refused(const std::type_info& type, const char* text) {
    return {&type, text, {}};
}

/// Return what a check of one slot ends with.
std::optional<Expected>
refusal(const std::vector<Slot>& slots, std::size_t index, std::uint64_t type) {
    if (index >= slots.size()) {
        return refused(typeid(std::out_of_range), "Invalid GenericPayload index");
    }
    if (slots[index].empty) {
        return refused(typeid(std::runtime_error), "GenericPayload empty at index");
    }
    if (slots[index].type != type) {
        return refused(typeid(core::BadAnyCast), "Bad any_cast");
    }
    if (slots[index].future) {
        return refused(
            typeid(std::runtime_error), "Polymorphic types are not supported with futures");
    }
    return std::nullopt;
}

int decodedDirection(int code) {
    return code == 1 ? std::ios_base::beg : code == 2 ? std::ios_base::end : std::ios_base::cur;
}

int decodedMode(int code) {
    return code == 1   ? std::ios_base::in
           : code == 2 ? std::ios_base::out
                       : std::ios_base::in | std::ios_base::out;
}

Arguments decoded(const std::tuple<Offset, int, int>& packed) {
    const auto [offset, direction, mode] = packed;
    return std::tuple(offset, decodedDirection(direction), decodedMode(mode));
}

Arguments decoded(const std::tuple<Offset, int>& packed) {
    return std::tuple(std::get<0>(packed), decodedMode(std::get<1>(packed)));
}

template <class First>
Expected expectOne(const std::vector<Slot>& slots) {
    if (auto error = refusal(slots, 0, GenericPayload::typeHash<First>())) {
        return *error;
    }
    return {nullptr, {}, slots[0].value};
}

template <class... Rest>
Expected expectSeveral(const std::vector<Slot>& slots) {
    using All = std::tuple<Offset, Rest...>;
    const std::vector<std::uint64_t> types = {
        GenericPayload::typeHash<Offset>(), GenericPayload::typeHash<Rest>()...};
    if (slots.size() == types.size()) {
        for (std::size_t index = 0; index < types.size(); ++index) {
            if (auto error = refusal(slots, index, types[index])) {
                return *error;
            }
        }
        const auto number = [&](std::size_t index) { return std::get<Offset>(slots[index].value); };
        if constexpr (sizeof...(Rest) == 2) {
            return {
                nullptr,
                {},
                decoded(All(number(0), static_cast<int>(number(1)), static_cast<int>(number(2))))};
        } else {
            return {nullptr, {}, decoded(All(number(0), static_cast<int>(number(1))))};
        }
    }
    if (slots.size() == 1 && slots[0].packed) {
        if (auto error = refusal(slots, 0, GenericPayload::typeHash<All>())) {
            return *error;
        }
        return {nullptr, {}, decoded(std::get<All>(slots[0].value))};
    }
    return refused(typeid(core::BadAnyCast), "Bad any_cast");
}

Expected expected(const std::string& method, const std::vector<Slot>& slots) {
    if (method == "read") {
        return expectOne<Offset>(slots);
    }
    if (method == "write") {
        return expectOne<std::string>(slots);
    }
    if (method == "seekoff") {
        return expectSeveral<int, int>(slots);
    }
    return expectSeveral<int>(slots);
}

void checkResult(const std::string& method, GenericPayload& result) {
    require(result.size() == 1, "a result has one slot");
    if (method == "read") {
        require(
            result.take<std::string>(0) == (device.fails ? "" : device.text),
            "a read answers with what the device has, or with nothing when it fails");
    } else {
        const Offset neutral = method == "write" ? 0 : -1;
        require(
            result.take<Offset>(0) == (device.fails ? neutral : device.number),
            "a call answers with the device's result, or the neutral one when it fails");
    }
}

void checkError(const Expected& wanted, const std::exception_ptr& error) {
    require(wanted.error != nullptr, "a payload of the right shape is no error");
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& reason) {
        require(typeid(reason) == *wanted.error, "a wrong shape is the documented error");
        require(reason.what() == wanted.text, "an error has the documented text");
    }
}

void call(core::Invokable& service, Input& input) {
    const std::string method =
        input.oneOf<const char*>({"read", "write", "seekoff", "seekpos", "seekpos", "close"});
    const bool oneWay = input.oneIn(5);
    device = Device{input.oneIn(4), input.signedNumber(), input.text(40), {}, 0};
    Payload payload(input);

    int answers = 0;
    std::optional<GenericPayload> result;
    std::exception_ptr error;
    service.invoke(
        std::nullopt, method,
        {[&](GenericPayload given) {
             ++answers;
             result = std::move(given);
         },
         [&](std::exception_ptr given) {
             ++answers;
             error = std::move(given);
         }},
        std::move(payload.payload), oneWay);

    require(answers == 1, "a call has one answer");
    if (method == "close") {
        require(device.calls == 0, "there is no such method");
        checkError(
            {&typeid(core::UnknownMethod),
             "Service \"" + service.serviceInterface().name() + "\" has no method \"close\".",
             {}},
            error);
        return;
    }
    const Expected wanted = expected(method, payload.slots);
    if (error) {
        checkError(wanted, error);
        require(device.calls == 0, "what is refused does not reach the device");
        return;
    }
    require(wanted.error == nullptr, "a wrong shape is an error");
    require(device.calls == 1, "a call reaches the device once");
    require(device.seen == wanted.arguments, "the device sees the arguments of the call");
    checkResult(method, *result);
}

} // namespace
} // namespace agent::orvi::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi;
    static const auto uuid = streambuf::test::newUuid();
    static const auto published = fuzz::publish(uuid);
    static const auto service = streambuf::test::invokableOf(uuid);
    fuzz::Input input(bytes, size);
    fuzz::call(*service, input);
    return 0;
}
