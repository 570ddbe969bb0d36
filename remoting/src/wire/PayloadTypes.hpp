#pragma once

#include "wire/Messages.hpp"

#include <payload/GenericPayload.hpp>

#include <cstdint>
#include <string>
#include <tuple>

namespace agent::orvi::remoting::details {

/// The type of a slot whose type does not travel. No method takes or returns it.
struct ForeignValue {};

/// Return the name of a type in the protocol, OTHER when it does not travel.
///
/// @param typeHash as `core::GenericPayload::typeHash` makes them.
v1::Type wireType(std::uint64_t typeHash);

/// Return the hash of the type that a name stands for; that of `ForeignValue` for OTHER and names
/// that a later version has added.
std::uint64_t typeHash(v1::Type type);

/// Call `visit` with a null pointer to the type that a name of the protocol stands for.
template <class Visit>
decltype(auto) withType(v1::Type type, const Visit& visit) {
    switch (type) {
    case v1::INT64:
        return visit(static_cast<std::int64_t*>(nullptr));
    case v1::INT32:
        return visit(static_cast<int*>(nullptr));
    case v1::TEXT:
        return visit(static_cast<std::string*>(nullptr));
    case v1::INT64_INT32:
        return visit(static_cast<std::tuple<std::int64_t, int>*>(nullptr));
    case v1::INT64_INT32_INT32:
        return visit(static_cast<std::tuple<std::int64_t, int, int>*>(nullptr));
    default:
        return visit(static_cast<ForeignValue*>(nullptr));
    }
}

} // namespace agent::orvi::remoting::details
