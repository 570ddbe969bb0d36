#include "wire/EncodedFields.hpp"

#include "wire/FrameLimits.hpp"

namespace agent::orvi::remoting::details {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::io::CodedInputStream;

bool fieldsFit(CodedInputStream& input, const google::protobuf::Descriptor& type, int levels);

/// Check the message of a field, from its length on.
bool messageFits(CodedInputStream& input, const google::protobuf::Descriptor& type, int levels) {
    int size = 0;
    // A limit beyond the one that holds would be cut to it in silence.
    if (levels == 0 || !input.ReadVarintSizeAsInt(&size) || size > input.BytesUntilLimit()) {
        return false;
    }
    const CodedInputStream::Limit outer = input.PushLimit(size);
    const bool fit = fieldsFit(input, type, levels - 1);
    input.PopLimit(outer);
    return fit;
}

bool fieldsFit(CodedInputStream& input, const google::protobuf::Descriptor& type, int levels) {
    while (const std::uint32_t tag = readTag(input)) {
        const FieldDescriptor* const field = type.FindFieldByNumber(fieldOf(tag));
        const bool isMessage = field != nullptr && field->message_type() != nullptr &&
                               tag == tagOf(fieldOf(tag), FieldForm::length);
        if (isMessage ? !messageFits(input, *field->message_type(), levels)
                      : !skipField(input, tag)) {
            return false;
        }
    }
    return input.BytesUntilLimit() == 0 && input.ConsumedEntireMessage();
}

} // namespace

std::uint32_t readTag(CodedInputStream& input) {
    constexpr int longestTag = 5;
    const int start = input.CurrentPosition();
    const std::uint32_t tag = input.ReadTag();
    return input.CurrentPosition() - start <= longestTag ? tag : 0;
}

bool skipField(CodedInputStream& input, std::uint32_t tag) {
    if (fieldOf(tag) == 0) {
        return false;
    }
    int size = 0;
    std::uint64_t number = 0;
    switch (static_cast<FieldForm>(tag & 7U)) {
    case FieldForm::varint:
        return input.ReadVarint64(&number);
    case FieldForm::fixed64:
        return input.Skip(8);
    case FieldForm::length:
        return input.ReadVarintSizeAsInt(&size) && input.Skip(size);
    case FieldForm::fixed32:
        return input.Skip(4);
    default:
        return false;
    }
}

bool isWellFormed(std::string_view message, const google::protobuf::Descriptor& type) {
    const int size = static_cast<int>(message.size());
    CodedInputStream input(reinterpret_cast<const std::uint8_t*>(message.data()), size);
    input.PushLimit(size);
    return fieldsFit(input, type, maximumMessageDepth);
}

} // namespace agent::orvi::remoting::details
