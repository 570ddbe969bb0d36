#include "wire/Utf8.hpp"

#include <boost/locale/utf.hpp>

namespace agent::orvi::remoting::details {
namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;

/// Return how many bytes the character at the beginning of a text has, 0 when it is none.
std::size_t characterSize(std::string_view text) {
    const char* position = text.data();
    const auto character = Utf8::decode(position, text.data() + text.size());
    const bool valid =
        character != boost::locale::utf::illegal && character != boost::locale::utf::incomplete;
    return valid ? static_cast<std::size_t>(position - text.data()) : 0;
}

} // namespace

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t size = characterSize(text);
        if (size == 0) {
            return false;
        }
        text.remove_prefix(size);
    }
    return true;
}

std::string toUtf8(std::string_view text) {
    constexpr std::string_view replacement = "\xEF\xBF\xBD";
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t size = characterSize(text);
        result += size == 0 ? replacement : text.substr(0, size);
        text.remove_prefix(size == 0 ? 1 : size);
    }
    return result;
}

std::string_view cutText(std::string_view text, std::size_t maximum) {
    if (text.size() <= maximum) {
        return text;
    }
    std::size_t end = maximum;
    // In a text that is not UTF-8 the search for a character's beginning must end somewhere.
    while (end > 0 && maximum - end < Utf8::max_width && Utf8::is_trail(text[end])) {
        --end;
    }
    return text.substr(0, Utf8::is_trail(text[end]) ? maximum : end);
}

} // namespace agent::orvi::remoting::details
