#include "wire/CutText.hpp"

namespace agent::orvi::remoting::details {

std::string_view cutText(std::string_view text, std::size_t maximum) {
    if (text.size() <= maximum) {
        return text;
    }
    const auto continues = [&](std::size_t index) {
        return (static_cast<unsigned char>(text[index]) & 0xC0U) == 0x80U;
    };
    constexpr std::size_t longestCharacter = 4;
    std::size_t end = maximum;
    while (end > 0 && continues(end) && maximum - end < longestCharacter) {
        --end;
    }
    return text.substr(
        0, continues(end) ? maximum : end); // in a text of another encoding: anywhere
}

} // namespace agent::orvi::remoting::details
