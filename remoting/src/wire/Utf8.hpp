#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace agent::orvi::remoting::details {

/// Say whether a text is UTF-8, as the protocol demands of names.
bool isUtf8(std::string_view text);

/// Return a text with each byte that is no UTF-8 replaced by U+FFFD.
std::string toUtf8(std::string_view text);

/// Return the longest beginning of a text that has at most `maximum` bytes and does not end inside
/// of a character.
std::string_view cutText(std::string_view text, std::size_t maximum);

} // namespace agent::orvi::remoting::details
