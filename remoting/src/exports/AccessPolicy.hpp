#pragma once

#include "carrier/Carrier.hpp"

#include <orvi/remoting/AccessRule.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace agent::orvi::remoting::details {

/// Say whether a text has the form of a pattern, in which "*" stands for any characters.
bool matches(std::string_view pattern, std::string_view text) noexcept;

/// Decides who may call what. Immutable.
class AccessPolicy {
public:
    explicit AccessPolicy(std::vector<AccessRule> rules)
        : rules(std::move(rules)) {}

    /// Say whether a peer may call a method. Of the rules, the first one that fits decides.
    bool
    allows(const PeerNames& peer, std::string_view service, std::string_view method) const noexcept;

private:
    std::vector<AccessRule> rules;
};

} // namespace agent::orvi::remoting::details
