#pragma once

#include <cstddef>
#include <string_view>

namespace agent::orvi::remoting::details {

/// Return the beginning of a text, which does not end inside of an UTF-8 character.
std::string_view cutText(std::string_view text, std::size_t maximum);

} // namespace agent::orvi::remoting::details
