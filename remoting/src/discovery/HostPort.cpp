#include "discovery/HostPort.hpp"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace agent::orvi::remoting::details {
namespace {

bool isLetterOrDigit(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9');
}

/// Names are not checked more closely than that they can be told from the rest of the text: the
/// name service has the last word.
bool isName(std::string_view text) {
    constexpr std::size_t longestName = 253;
    return !text.empty() && text.size() <= longestName &&
           std::all_of(text.begin(), text.end(), [](char character) {
               return isLetterOrDigit(character) || character == '.' || character == '-' ||
                      character == '_' || static_cast<unsigned char>(character) >= 0x80;
           });
}

bool isAddressWithColons(std::string_view text) {
    const auto percent = text.find('%');
    if (percent != std::string_view::npos) {
        const auto scope = text.substr(percent + 1);
        if (!isName(scope)) {
            return false;
        }
    }
    in6_addr parsed{};
    return ::inet_pton(AF_INET6, std::string(text.substr(0, percent)).c_str(), &parsed) == 1;
}

bool parsePort(std::string_view text, std::uint16_t& port) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

HostPort parseHostPort(const std::string& text) {
    const std::string_view whole = text;
    const auto colon = whole.rfind(':');
    HostPort result;
    if (colon != std::string_view::npos && parsePort(whole.substr(colon + 1), result.port)) {
        auto host = whole.substr(0, colon);
        const bool bracketed = host.starts_with('[') && host.ends_with(']') && host.size() > 1;
        if (bracketed) {
            host = host.substr(1, host.size() - 2);
        }
        if (bracketed ? isAddressWithColons(host) : isName(host)) {
            result.host = host;
            return result;
        }
    }
    throw std::invalid_argument('"' + text + R"(" is neither "host:port" nor "[address]:port")");
}

std::string toText(const HostPort& hostPort) {
    const bool brackets = hostPort.host.find(':') != std::string::npos;
    return (brackets ? "[" + hostPort.host + "]" : hostPort.host) + ":" +
           std::to_string(hostPort.port);
}

} // namespace agent::orvi::remoting::details
