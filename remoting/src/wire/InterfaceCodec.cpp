#include "wire/InterfaceCodec.hpp"

#include "wire/PayloadTypes.hpp"

#include <orvi/remoting/Errors.hpp>

#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details {
namespace {

v1::Method::Marker wireMarker(std::optional<core::DataMarker> marker) {
    if (!marker) {
        return v1::Method::NONE;
    }
    return *marker == core::DataMarker::source ? v1::Method::SOURCE : v1::Method::SINK;
}

std::optional<core::DataMarker> markerFrom(v1::Method::Marker marker) {
    switch (marker) {
    case v1::Method::SOURCE:
        return core::DataMarker::source;
    case v1::Method::SINK:
        return core::DataMarker::sink;
    default:
        return std::nullopt;
    }
}

void encodeMethod(const core::ExportedFunction& function, v1::Method& method) {
    method.set_name(function.name());
    method.set_result(wireType(function.resultType()));
    for (const std::uint64_t type : function.argumentTypes()) {
        method.add_arguments(wireType(type));
    }
    method.set_marker(wireMarker(function.marker()));
}

core::ExportedFunction decodeMethod(const v1::Method& method, const MakeFunction& makeFunction) {
    std::vector<std::uint64_t> arguments;
    for (const int type : method.arguments()) {
        arguments.push_back(typeHash(static_cast<v1::Type>(type)));
    }
    return {
        method.name(), makeFunction(method.name()), typeHash(method.result()), std::move(arguments),
        markerFrom(method.marker())};
}

/// Collects names that must be there and differ.
class Names {
public:
    void add(std::string_view name) {
        if (name.empty() || !names.insert(name).second) {
            throw ProtocolError("A name in the description of a service is missing or repeated.");
        }
    }

private:
    std::set<std::string_view> names;
};

void checkNames(const v1::Interface& description) {
    Names().add(description.name());
    Names keys;
    for (const v1::Entry& entry : description.metadata()) {
        keys.add(entry.key());
    }
    Names methods;
    for (const v1::Method& method : description.methods()) {
        methods.add(method.name());
    }
}

} // namespace

v1::Interface encodeInterface(const core::ServiceInterface& serviceInterface) {
    v1::Interface description;
    description.set_name(serviceInterface.name());
    description.set_major(serviceInterface.version().major());
    description.set_minor(serviceInterface.version().minor());
    for (const auto& [key, value] : serviceInterface.metadata()) {
        v1::Entry& entry = *description.add_metadata();
        entry.set_key(key);
        entry.set_value(value);
    }
    for (const core::ExportedFunction& function : serviceInterface.methods()) {
        encodeMethod(function, *description.add_methods());
    }
    return description;
}

core::ServiceInterface
decodeInterface(const v1::Interface& description, const MakeFunction& makeFunction) {
    checkNames(description);
    core::ServiceInterface::Metadata metadata;
    for (const v1::Entry& entry : description.metadata()) {
        metadata.emplace_back(entry.key(), entry.value());
    }
    std::vector<core::ExportedFunction> methods;
    for (const v1::Method& method : description.methods()) {
        methods.push_back(decodeMethod(method, makeFunction));
    }
    return {
        description.name(), core::APIVersion(description.major(), description.minor()),
        std::move(metadata), std::move(methods)};
}

} // namespace agent::orvi::remoting::details
