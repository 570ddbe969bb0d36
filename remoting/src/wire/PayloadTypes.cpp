#include "wire/PayloadTypes.hpp"

#include <array>

namespace agent::orvi::remoting::details {
namespace {

constexpr std::array travellingTypes = {
    v1::INT64, v1::INT32, v1::TEXT, v1::INT64_INT32, v1::INT64_INT32_INT32};

} // namespace

v1::Type wireType(std::uint64_t typeHash) {
    for (const v1::Type type : travellingTypes) {
        if (details::typeHash(type) == typeHash) {
            return type;
        }
    }
    return v1::OTHER;
}

std::uint64_t typeHash(v1::Type type) {
    return withType(type, []<class T>(const T*) { return core::GenericPayload::typeHash<T>(); });
}

} // namespace agent::orvi::remoting::details
