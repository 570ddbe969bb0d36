#pragma once

#include <string>
#include <vector>

namespace agent::orvi::remoting {

/// Who may call what. Of an ordered list, the first rule that fits decides; where none fits, the
/// call is allowed. A value.
///
/// The texts are patterns, in which "*" stands for any characters, none included, and every other
/// character for itself.
struct AccessRule {
    /// The peer: "uid:1000" for a process of that user on this machine; over TLS each name that its
    /// certificate carries, as "dns:reader.example.org", "uri:spiffe://…", "ip:…", "email:…", or
    /// "cn:reader" for the subject's common name; "loopback" for a connection without TLS.
    std::string identity = "*";

    /// The service's name, for instance "orviStreambuf_*".
    std::string service = "*";

    /// The method: "read", "write", "seekoff", "seekpos" or another one the service has.
    std::string method = "*";

    /// Whether what fits is allowed.
    bool allow = true;
};

/// Make the rules under which every peer may read and seek but nothing else.
inline std::vector<AccessRule> readOnly() {
    return {
        {"*", "*", "read", true},
        {"*", "*", "seekoff", true},
        {"*", "*", "seekpos", true},
        {"*", "*", "*", false}};
}

} // namespace agent::orvi::remoting
