#pragma once

#include <string>

namespace agent::orvi::streambuf::test {

/// What a stream buffer returns in place of a character.
inline constexpr int endOfFile = std::char_traits<char>::eof();

} // namespace agent::orvi::streambuf::test
