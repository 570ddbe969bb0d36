#include "wire/AnyFrame.hpp"

#include "wire/ErrorTypes.hpp"

#include <bit>
#include <utility>

namespace agent::orvi::fuzz {
namespace {

constexpr int deepest = 18; // a little more than is allowed

void fillValue(Input& input, v1::Value& value, int levels);

void fillMap(Input& input, v1::ValueMap& map, int levels) {
    map.set_kind(static_cast<v1::ValueMap::Kind>(input.below(4)));
    for (std::size_t count = input.below(4); count > 0; --count) {
        v1::Property& entry = *map.add_entries();
        entry.set_key(input.text(6));
        fillValue(input, *entry.mutable_value(), levels - 1);
    }
}

void fillValue(Input& input, v1::Value& value, int levels) {
    switch (input.below(levels > 0 ? 11 : 8)) {
    case 0:
        value.set_text(input.text(30));
        break;
    case 1:
        value.set_flag(input.oneIn(2));
        break;
    case 2:
        value.set_int32(static_cast<int>(input.number()));
        break;
    case 3:
        value.set_int64(input.signedNumber());
        break;
    case 4:
        value.set_uint32(static_cast<std::uint32_t>(input.number()));
        break;
    case 5:
        value.set_uint64(input.number());
        break;
    case 6:
        value.set_number(std::bit_cast<double>(input.number()));
        break;
    case 7:
        for (std::size_t count = input.below(4); count > 0; --count) {
            value.mutable_texts()->add_texts(input.text(9));
        }
        break;
    case 8:
        value.mutable_list();
        for (std::size_t count = input.below(4); count > 0; --count) {
            fillValue(input, *value.mutable_list()->add_values(), levels - 1);
        }
        break;
    case 9:
        fillMap(input, *value.mutable_map(), levels);
        break;
    default:
        break; // of a later version
    }
}

void fillInterface(Input& input, v1::Interface& description) {
    description.set_name(input.oneIn(8) ? input.text(6) : anyServiceName(input));
    description.set_major(static_cast<std::uint32_t>(input.number()));
    description.set_minor(input.byte());
    for (std::size_t count = input.below(4); count > 0; --count) {
        v1::Entry& entry = *description.add_metadata();
        entry.set_key(input.text(12));
        entry.set_value(input.text(12));
    }
    for (std::size_t count = input.below(6); count > 0; --count) {
        v1::Method& method = *description.add_methods();
        method.set_name(
            input.oneIn(4) ? input.text(8)
                           : input.oneOf<const char*>({"read", "write", "seekoff", "seekpos"}));
        method.set_result(static_cast<v1::Type>(input.below(8)));
        for (std::size_t argument = input.below(4); argument > 0; --argument) {
            method.add_arguments(static_cast<v1::Type>(input.below(8)));
        }
        method.set_marker(static_cast<v1::Method::Marker>(input.below(4)));
    }
}

void fillRequest(Input& input, v1::Request& request) {
    request.set_method(
        input.oneIn(4) ? input.text(20)
                       : input.oneOf<const char*>({"read", "write", "seekoff", "seekpos"}));
    request.set_one_way(input.oneIn(4));
    fillSlots(input, *request.mutable_slots(), input.oneIn(2));
}

} // namespace

void fillSlots(Input& input, google::protobuf::RepeatedPtrField<v1::Slot>& slots, bool honest) {
    const std::size_t most = honest ? 4 : 80;
    for (std::size_t count = input.below(4) < 3 ? input.below(4) : input.below(most); count > 0;
         --count) {
        v1::Slot& slot = *slots.Add();
        const auto type = static_cast<v1::Type>(input.below(honest ? 6 : 8));
        slot.set_type(type);
        const std::size_t state = input.below(16);
        slot.set_state(static_cast<v1::Slot::State>(state < 12 ? 0 : state - 12));
        const bool filled = slot.state() == v1::Slot::FILLED;
        const bool isTuple = type == v1::INT64_INT32 || type == v1::INT64_INT32_INT32;
        slot.set_packed((isTuple || !honest) && input.oneIn(3));
        constexpr std::size_t counts[] = {0, 1, 1, 0, 2, 3, 0, 0};
        std::size_t numbers = filled ? counts[static_cast<std::size_t>(type)] : 0;
        if (!honest && input.oneIn(4)) {
            numbers = input.below(5);
        }
        for (std::size_t index = 0; index < numbers; ++index) {
            const auto number = input.signedNumber();
            const bool isWide = index == 0 && type != v1::INT32;
            slot.add_numbers(isWide || !honest ? number : static_cast<int>(number));
        }
        if (type == v1::TEXT && filled) {
            slot.set_length(honest ? input.below(600) : input.number());
        } else if (!honest && input.oneIn(8)) {
            slot.set_length(input.number());
        }
    }
}

std::string anyServiceName(Input& input) {
    return input.oneOf<const char*>({"orviStreambuf_1", "orviStreambuf_2", "orviStreambuf_3"});
}

std::string anyFilter(Input& input) {
    switch (input.below(6)) {
    case 0:
        return "(orvi.servicename=*)";
    case 1:
        return "(&(orvi.servicename=" + anyServiceName(input) + ")(size>=1))";
    case 2:
        return "(!(orvi.servicename=" + anyServiceName(input) + "))";
    case 3:
        return input.text(40);
    default:
        return "(orvi.servicename=" + anyServiceName(input) + ")";
    }
}

void fillOffer(Input& input, v1::Offer& offer) {
    offer.set_service(input.below(4));
    if (!input.oneIn(8)) {
        v1::Property& name = *offer.add_properties();
        name.set_key("orvi.servicename");
        name.mutable_value()->set_text(anyServiceName(input));
    }
    for (std::size_t count = input.below(5); count > 0; --count) {
        v1::Property& property = *offer.add_properties();
        property.set_key(
            input.oneIn(2)
                ? input.text(10)
                : input.oneOf<const char*>(
                      {"size", "service.ranking", "service.id", "objectclass", "Service.Scope",
                       "endpoint.id", "service.imported", "service.exported.interfaces"}));
        fillValue(input, *property.mutable_value(), deepest);
    }
    if (!input.oneIn(8)) {
        fillInterface(input, *offer.mutable_interface());
    }
}

void fillFailure(Input& input, v1::Failure& failure) {
    const auto types = remoting::details::errorTypes();
    failure.set_type(
        input.oneIn(4) ? input.text(12) : std::string(types[input.below(types.size())].name));
    failure.set_text(input.text(40));
    failure.set_known(!input.oneIn(4));
    if (input.oneIn(2)) {
        failure.set_category(
            input.oneOf<const char*>({"generic", "system", "iostream", "future", "other"}));
    }
    failure.set_code(
        input.oneIn(2) ? static_cast<int>(input.number()) : static_cast<int>(input.below(16)));
}

v1::Frame anyFrame(Input& input) {
    v1::Frame frame;
    switch (input.below(11)) {
    case 0:
        frame.mutable_hello()->set_major(input.oneIn(8) ? input.byte() : 1);
        frame.mutable_hello()->set_minor(static_cast<std::uint32_t>(input.number()));
        frame.mutable_hello()->set_framework(input.text(12));
        frame.mutable_hello()->set_endpoint(input.text(12));
        frame.mutable_hello()->set_service(input.number());
        break;
    case 1:
        frame.mutable_want()->set_id(input.below(8));
        frame.mutable_want()->set_filter(anyFilter(input));
        break;
    case 2:
        frame.mutable_unwant()->set_id(input.below(8));
        break;
    case 3:
        fillOffer(input, *frame.mutable_offer());
        break;
    case 4:
        frame.mutable_withdrawal()->set_service(input.below(4));
        frame.mutable_withdrawal()->set_unwanted(input.oneIn(2));
        break;
    case 5:
        frame.mutable_settled()->set_id(input.below(8));
        break;
    case 6:
        fillRequest(input, *frame.mutable_request());
        break;
    case 7:
        fillSlots(input, *frame.mutable_answer()->mutable_slots(), input.oneIn(2));
        break;
    case 8:
        fillFailure(input, *frame.mutable_failure());
        break;
    case 9:
        frame.mutable_abandon();
        break;
    default:
        break; // of a later version, or data alone
    }
    return frame;
}

std::string encoded(v1::Frame head, std::string data) {
    head.set_data(std::move(data)); // the highest number: the last field
    return head.SerializeAsString();
}

std::uint64_t announced(const google::protobuf::RepeatedPtrField<v1::Slot>& slots) {
    std::uint64_t bytes = 0;
    for (const v1::Slot& slot : slots) {
        bytes += slot.length();
    }
    return bytes;
}

} // namespace agent::orvi::fuzz
