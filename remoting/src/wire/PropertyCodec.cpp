#include "wire/PropertyCodec.hpp"

#include "wire/FrameLimits.hpp"
#include "wire/NewPart.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/AnyMap.h>

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>

namespace agent::orvi::remoting::details {
namespace {

using cppmicroservices::Any;
using cppmicroservices::any_map;
using cppmicroservices::AnyMap;
using Texts = std::vector<std::string>;
using Values = std::vector<Any>;

bool encodeValue(const Any& any, int levels, v1::Value& value);

bool encodeTexts(const Texts& texts, int levels, v1::TextList& list) {
    list.mutable_texts()->Add(texts.begin(), texts.end());
    return levels > 0;
}

bool encodeList(const Values& values, int levels, v1::ValueList& list) {
    return levels > 0 && std::all_of(values.begin(), values.end(), [&](const Any& any) {
               return encodeValue(any, levels - 1, *list.add_values());
           });
}

v1::ValueMap::Kind kindOf(const AnyMap& map) {
    switch (map.GetType()) {
    case any_map::ORDERED_MAP:
        return v1::ValueMap::ORDERED;
    case any_map::UNORDERED_MAP:
        return v1::ValueMap::UNORDERED;
    default:
        return v1::ValueMap::UNORDERED_CASE_INSENSITIVE;
    }
}

bool encodeMap(const AnyMap& map, int levels, v1::ValueMap& encoded) {
    encoded.set_kind(kindOf(map));
    return levels > 0 && std::all_of(map.begin(), map.end(), [&](const auto& entry) {
               v1::Property& property = *encoded.add_entries();
               property.set_key(entry.first);
               return encodeValue(entry.second, levels - 1, *property.mutable_value());
           });
}

/// Calls `encode` with the value if it is a T. Returns what `encode` returns, false for other
/// types.
template <class T, class Encode>
bool encodeAs(const Any& any, const Encode& encode) {
    const T* const held = cppmicroservices::any_cast<T>(&any);
    return held != nullptr && encode(*held);
}

/// A setter that always works.
template <class T, class Set>
bool setAs(const Any& any, const Set& set) {
    return encodeAs<T>(any, [&](const T& held) {
        set(held);
        return true;
    });
}

/// @param levels how many levels of lists and maps may follow.
/// @return false when the value, or one in it, does not travel.
bool encodeValue(const Any& any, int levels, v1::Value& value) {
    const auto setInt64 = [&](std::int64_t number) { value.set_int64(number); };
    const auto setUint64 = [&](std::uint64_t number) { value.set_uint64(number); };
    return setAs<std::string>(any, [&](const std::string& text) { value.set_text(text); }) ||
           setAs<bool>(any, [&](bool flag) { value.set_flag(flag); }) ||
           setAs<int>(any, [&](int number) { value.set_int32(number); }) ||
           setAs<long>(any, setInt64) || setAs<long long>(any, setInt64) ||
           setAs<unsigned int>(any, [&](unsigned int number) { value.set_uint32(number); }) ||
           setAs<unsigned long>(any, setUint64) || setAs<unsigned long long>(any, setUint64) ||
           setAs<double>(any, [&](double number) { value.set_number(number); }) ||
           encodeAs<Texts>(
               any,
               [&](const Texts& texts) {
                   return encodeTexts(texts, levels, newPart<v1::TextList>(value));
               }) ||
           encodeAs<Values>(
               any,
               [&](const Values& values) {
                   return encodeList(values, levels, newPart<v1::ValueList>(value));
               }) ||
           encodeAs<AnyMap>(any, [&](const AnyMap& map) {
               return encodeMap(map, levels, newPart<v1::ValueMap>(value));
           });
}

std::optional<Any> decodeValue(const v1::Value& value, int levels);

void checkLevels(int levels) {
    if (levels == 0) {
        throw ProtocolError("The value of a property is nested too deeply.");
    }
}

Any decodeTexts(const v1::TextList& list, int levels) {
    checkLevels(levels);
    return Texts(list.texts().begin(), list.texts().end());
}

std::optional<Any> decodeList(const v1::ValueList& list, int levels) {
    checkLevels(levels);
    Values values;
    for (const v1::Value& each : list.values()) {
        std::optional<Any> value = decodeValue(each, levels - 1);
        if (!value) {
            return std::nullopt;
        }
        values.push_back(*std::move(value));
    }
    return Any(std::move(values));
}

std::optional<AnyMap> emptyMap(v1::ValueMap::Kind kind) {
    switch (kind) {
    case v1::ValueMap::ORDERED:
        return AnyMap(any_map::ORDERED_MAP);
    case v1::ValueMap::UNORDERED:
        return AnyMap(any_map::UNORDERED_MAP);
    case v1::ValueMap::UNORDERED_CASE_INSENSITIVE:
        return AnyMap(any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    default:
        return std::nullopt;
    }
}

std::optional<Any> decodeMap(const v1::ValueMap& encoded, int levels) {
    checkLevels(levels);
    std::optional<AnyMap> map = emptyMap(encoded.kind());
    if (!map) {
        return std::nullopt;
    }
    for (const v1::Property& entry : encoded.entries()) {
        std::optional<Any> value = decodeValue(entry.value(), levels - 1);
        if (!value) {
            return std::nullopt;
        }
        map->emplace(entry.key(), *std::move(value));
    }
    return Any(*std::move(map));
}

/// @return nothing when the value, or one in it, is of a later version.
std::optional<Any> decodeValue(const v1::Value& value, int levels) {
    switch (value.kind_case()) {
    case v1::Value::kText:
        return Any(value.text());
    case v1::Value::kFlag:
        return Any(value.flag());
    case v1::Value::kInt32:
        return Any(static_cast<int>(value.int32()));
    case v1::Value::kInt64:
        return Any(static_cast<long>(value.int64()));
    case v1::Value::kUint32:
        return Any(static_cast<unsigned int>(value.uint32()));
    case v1::Value::kUint64:
        return Any(static_cast<unsigned long>(value.uint64()));
    case v1::Value::kNumber:
        return Any(value.number());
    case v1::Value::kTexts:
        return decodeTexts(value.texts(), levels);
    case v1::Value::kList:
        return decodeList(value.list(), levels);
    case v1::Value::kMap:
        return decodeMap(value.map(), levels);
    default:
        return std::nullopt;
    }
}

/// Keys of service properties are compared without regard to the case of ASCII letters.
std::string foldedKey(std::string key) {
    std::transform(key.begin(), key.end(), key.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                    : character;
    });
    return key;
}

} // namespace

void encodeProperties(v1::Offer& offer, const Properties& properties) {
    std::size_t size = offer.ByteSizeLong();
    for (const auto& [key, value] : properties) {
        v1::Property& property = *offer.add_properties();
        property.set_key(key);
        if (!encodeValue(value, maximumNesting, *property.mutable_value())) {
            offer.mutable_properties()->RemoveLast();
            continue;
        }
        size += property.ByteSizeLong();
        if (size > maximumFrameSize) {
            throw std::length_error(
                "The properties of a service take more than the " +
                std::to_string(maximumFrameSize) + " bytes of a frame.");
        }
    }
}

Properties decodeProperties(const v1::Offer& offer) {
    Properties properties;
    std::set<std::string> keys;
    for (const v1::Property& property : offer.properties()) {
        if (property.key().empty() || !keys.insert(foldedKey(property.key())).second) {
            throw ProtocolError("The key of a property is missing or repeated.");
        }
        if (std::optional<Any> value = decodeValue(property.value(), maximumNesting)) {
            properties.emplace_back(property.key(), *std::move(value));
        }
    }
    return properties;
}

} // namespace agent::orvi::remoting::details
