/// Service properties as a foreign provider may publish them, read by the connecting makeDevice.
///
/// Property: makeDevice returns a stream buffer with the operations and the buffer size that the
/// properties state, or throws what its documentation names: BadAnyCastException for what is
/// missing or no text, std::invalid_argument and std::out_of_range for a size that is no number,
/// std::length_error and std::bad_alloc for one that cannot be had. It holds on to nothing then.

#include "allocations/SmallMachine.hpp"

#include "Input.hpp"
#include "Target.hpp"

#include "connect/RegisteredService.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace agent::orvi::fuzz {
namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::ServiceProperties;

/// What is stated about a device. Nothing: the property is missing or is no text.
struct Stated {
    std::optional<std::string> bufferSize;
    std::optional<std::string> operations[4];
};

constexpr const char* operationKeys[] = {"hasRead", "hasWrite", "hasSeekOff", "hasSeekPos"};

std::string sizeText(Input& input) {
    switch (input.below(6)) {
    case 0:
        return std::to_string(input.number());
    case 1:
        return std::to_string(input.below(70000));
    case 2:
        return "-" + std::to_string(input.number());
    case 3:
        return input.oneOf<const char*>({" 7", "+7", "0x10", "", "-", "007", "1e3", "16 bytes"});
    case 4:
        return std::string(input.below(40), '9');
    default:
        return input.text(24);
    }
}

std::string flagText(Input& input) {
    if (input.oneIn(4)) {
        return input.oneOf<const char*>({"TRUE", "true ", "1", "", "tru", "yes", "t"});
    }
    return input.oneIn(3) ? "false" : "true";
}

/// Return something that is no text.
Any strangeValue(Input& input) {
    switch (input.below(10)) {
    case 0:
        return static_cast<int>(input.number());
    case 1:
        return static_cast<long>(input.number());
    case 2:
        return input.oneIn(2);
    case 3:
        return static_cast<double>(input.number());
    case 4:
        return std::vector<std::string>{input.text(5)};
    case 5:
        return std::vector<Any>{std::string("true")};
    case 6:
        return AnyMap({{"true", std::string("true")}});
    case 7:
        return static_cast<char>(input.byte());
    case 8:
        return static_cast<std::size_t>(input.number());
    default:
        return {};
    }
}

std::optional<std::string>
state(Input& input, ServiceProperties& properties, const char* key, std::string text) {
    const std::string name = std::string("orvi.serviceproperty.") + key;
    const std::size_t way = input.below(16);
    if (way == 0) {
        return std::nullopt;
    }
    if (way == 1) {
        properties[name] = strangeValue(input);
        return std::nullopt;
    }
    properties[name] = text;
    return text;
}

/// Return the size that a text states, as the C library reads it; nothing when makeDevice must
/// refuse it with an error of type `error`.
std::optional<std::uint64_t> sizeOf(const std::string& text, const std::type_info*& error) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long size = std::strtoull(text.c_str(), &end, 10);
    if (end == text.c_str()) {
        error = &typeid(std::invalid_argument);
        return std::nullopt;
    }
    if (errno == ERANGE) {
        error = &typeid(std::out_of_range);
        return std::nullopt;
    }
    return size;
}

/// Return the type of the error that makeDevice must end with, null when it must succeed.
const std::type_info* expectedError(const Stated& stated, std::uint64_t& size) {
    if (!stated.bufferSize) {
        return &typeid(cppmicroservices::BadAnyCastException);
    }
    for (const auto& operation : stated.operations) {
        if (!operation) {
            return &typeid(cppmicroservices::BadAnyCastException);
        }
    }
    const std::type_info* error = nullptr;
    const auto number = sizeOf(*stated.bufferSize, error);
    if (!number) {
        return error;
    }
    size = *number;
    const bool needsBuffer = stated.operations[0] == "true" || stated.operations[1] == "true";
    if (!needsBuffer) {
        return nullptr;
    }
    if (size > std::string().max_size()) {
        return &typeid(std::length_error);
    }
    return size >= test::SmallMachine::largestPiece ? &typeid(std::bad_alloc) : nullptr;
}

void checkBuffer(
    const streambuf::details::StreamBufferImpl& record, const Stated& stated, std::uint64_t size) {
    const bool has[] = {
        static_cast<bool>(record.read), static_cast<bool>(record.write),
        static_cast<bool>(record.seekoff), static_cast<bool>(record.seekpos)};
    for (std::size_t index = 0; index < std::size(has); ++index) {
        require(
            has[index] == (stated.operations[index] == "true"),
            "a device has the operations that are stated, and no other");
    }
    require(record.getBuffer.size() == (has[0] ? size : 0), "a get area is as large as stated");
    require(record.putBuffer.size() == (has[1] ? size : 0), "a put area is as large as stated");
}

} // namespace
} // namespace agent::orvi::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi;
    using namespace agent::orvi::fuzz;
    static const auto uuid = streambuf::test::newUuid();
    Input input(bytes, size);
    ServiceProperties properties;
    properties["orvi.servicename"] = streambuf::test::serviceNameOf(uuid);
    Stated stated;
    stated.bufferSize = state(input, properties, "bufferSize", sizeText(input));
    for (std::size_t index = 0; index < std::size(operationKeys); ++index) {
        stated.operations[index] = state(input, properties, operationKeys[index], flagText(input));
    }
    std::uint64_t bufferSize = 0;
    const std::type_info* const wanted = expectedError(stated, bufferSize);

    streambuf::test::RegisteredService service(properties);
    bool closed = false;
    const test::SmallMachine machine;
    try {
        const auto connected =
            streambuf::makeDevice(uuid, [&](const boost::uuids::uuid&) { closed = true; });
        require(wanted == nullptr, "properties that make no device are refused");
        checkBuffer(*streambuf::details::StreamBufferAccess::record(connected), stated, bufferSize);
    } catch (const std::exception& error) {
        require(wanted != nullptr && typeid(error) == *wanted, "a refusal is a documented error");
        require(!closed, "what was not connected is not closed");
    }
    require(closed == (wanted == nullptr), "what was connected is closed once");
    require(service.release().expired(), "nothing holds on to the service");
    return 0;
}
