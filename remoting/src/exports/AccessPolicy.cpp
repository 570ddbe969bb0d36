#include "exports/AccessPolicy.hpp"

#include <algorithm>

namespace agent::orvi::remoting::details {

bool matches(std::string_view pattern, std::string_view text) noexcept {
    // The last star takes as many characters as the rest of the pattern leaves it: no other star
    // ever has to be tried again.
    std::size_t afterStar = std::string_view::npos;
    std::size_t triedAt = 0;
    std::size_t p = 0;
    std::size_t t = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            afterStar = ++p;
            triedAt = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (afterStar != std::string_view::npos) {
            p = afterStar;
            t = ++triedAt;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool AccessPolicy::allows(
    const PeerNames& peer, std::string_view service, std::string_view method) const noexcept {
    for (const AccessRule& rule : rules) {
        const bool fits = matches(rule.service, service) && matches(rule.method, method) &&
                          (rule.identity == "*" ||
                           std::any_of(peer.begin(), peer.end(), [&](const std::string& name) {
                               return matches(rule.identity, name);
                           }));
        if (fits) {
            return rule.allow;
        }
    }
    return true;
}

} // namespace agent::orvi::remoting::details
