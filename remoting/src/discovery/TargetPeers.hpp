#pragma once

#include "discovery/HostPort.hpp"
#include "discovery/Housekept.hpp"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

/// One address of a target. A value.
struct TargetAddress {
    std::string target;   ///< The target as it was given.
    std::string hostName; ///< The target's host as it was given: whom the certificate must name.
    HostPort numeric;     ///< Where to connect.

    /// Return the numeric address as text: "192.0.2.1:443" or "[2001:db8::1]:443".
    std::string address() const { return toText(numeric); }

    bool operator==(const TargetAddress&) const = default;
};

/// Finds the addresses of the targets an importer was given.
///
/// Names are resolved on threads of their own, at most one for each target at a time, since a name
/// service may take long to answer. At its end nothing waits for them.
///
/// Thread safety: thread-safe.
class TargetPeers {
public:
    /// Receives all addresses of a target, at least one, each time it was resolved. Where it throws
    /// what is derived from std::exception, the target has failed with its text.
    using Resolved =
        std::function<void(const std::string& target, const std::vector<TargetAddress>& addresses)>;

    /// Receives why a target could not be resolved. It is tried again after a while.
    using Failed = std::function<void(const std::string& target, const std::string& reason)>;

    /// Finds the numeric addresses of a host; may block, and throws what is derived from
    /// std::exception. Called on any thread.
    using Resolver = std::function<std::vector<HostPort>(const HostPort& host)>;

    /// How long to wait before the next attempt: the initial time, doubled with each attempt up to
    /// the longest, and varied by up to a fifth so that peers do not all come at once.
    struct Backoff {
        std::chrono::milliseconds initial{250};
        std::chrono::milliseconds longest{30000};
    };

    /// Start to resolve. Both callbacks run on the housekeeping thread.
    ///
    /// @param targets each "host:port" or "[address]:port"; those given twice count once.
    ///
    /// @throws std::invalid_argument for one that is neither, or has port 0, with it in the text.
    TargetPeers(
        Housekeeper& housekeeper, const std::vector<std::string>& targets, Resolved resolved,
        Failed failed);

    /// The same with another name service and other times.
    TargetPeers(
        Housekeeper& housekeeper, const std::vector<std::string>& targets, Resolved resolved,
        Failed failed, Resolver resolver, Backoff backoff);

    /// When this returns, no callback is running and none comes any more; from inside of a
    /// callback, that one is the last.
    ~TargetPeers();

    TargetPeers(const TargetPeers&) = delete;
    TargetPeers& operator=(const TargetPeers&) = delete;

    /// Resolve a target again, after a while that grows with each attempt. Nothing happens when
    /// that is going to happen anyway, or for a target that is not known.
    void retry(const std::string& target);

    /// Take note that an address of a target was of use: the next attempt follows soon again.
    void connected(const std::string& target);

private:
    class State;
    Housekept<State> state;
};

} // namespace agent::orvi::remoting::details
