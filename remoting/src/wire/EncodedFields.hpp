#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>

#include <cstdint>
#include <string_view>

/// The outer form of encoded messages: fields, each with a tag.
namespace agent::orvi::remoting::details {

/// How the encoding of a field goes on after its tag.
enum class FieldForm : std::uint32_t { varint = 0, fixed64 = 1, length = 2, fixed32 = 5 };

/// Return the tag of a field.
constexpr std::uint32_t tagOf(int field, FieldForm form) noexcept {
    return static_cast<std::uint32_t>(field) << 3U | static_cast<std::uint32_t>(form);
}

/// Return the number of the field that a tag starts.
constexpr int fieldOf(std::uint32_t tag) noexcept {
    return static_cast<int>(tag >> 3U);
}

/// Read the tag of the next field.
///
/// @return 0 at the end, and for a tag that is encoded in more bytes than a tag has: of these, the
///         library's own reader of single tags drops what is too much.
std::uint32_t readTag(google::protobuf::io::CodedInputStream& input);

/// Skip a field after its tag.
///
/// @return false when it is malformed or a group, which no message of the protocol has.
bool skipField(google::protobuf::io::CodedInputStream& input, std::uint32_t tag);

/// Say whether the fields of an encoded message, and of the messages in it, are as long as they
/// claim to be and not nested deeper than `maximumMessageDepth`.
///
/// Generated code reserves memory for a text before it finds that the text cannot be there.
bool isWellFormed(std::string_view message, const google::protobuf::Descriptor& type);

} // namespace agent::orvi::remoting::details
