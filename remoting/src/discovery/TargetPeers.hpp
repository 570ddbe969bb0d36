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

/// Finds the addresses of the targets an importer was given, and says when to connect to each.
///
/// Each address of each target is tried again on its own, so that one at which nobody is does not
/// hold up another. An address that several targets have is given for one of them at a time: where
/// it fails for one, since it must identify itself otherwise, it may be right for the next.
///
/// Names are resolved on threads of their own, at most one for each target at a time, since a name
/// service may take long to answer. At its end nothing waits for them. They are resolved anew when
/// an address was lost, so that they may change; their former addresses are tried meanwhile.
///
/// Thread safety: thread-safe.
class TargetPeers {
public:
    /// What is called on the housekeeping thread.
    struct Callbacks {
        /// Receives an address to connect to. It is not given again, for any target, before `lost`
        /// was called for it. Where this throws, it is lost.
        std::function<void(const TargetAddress& address)> due;

        /// Receives all addresses of a target, at least one, each time it was resolved: after `due`
        /// for those that can be connected to at once. Where it throws what is derived from
        /// std::exception, the target has failed with its text.
        std::function<void(const std::string& target, const std::vector<TargetAddress>& addresses)>
            resolved;

        /// Receives why a target could not be resolved. It is tried again after a while.
        std::function<void(const std::string& target, const std::string& reason)> failed;
    };

    /// Finds the numeric addresses of a host; may block, and throws what is derived from
    /// std::exception. Called on any thread.
    using Resolver = std::function<std::vector<HostPort>(const HostPort& host)>;

    /// How long to wait before the next attempt: the initial time, doubled with each attempt up to
    /// the longest, and varied by up to a fifth so that peers do not all come at once.
    struct Backoff {
        std::chrono::milliseconds initial{250};
        /// Whoever waits for an endpoint that comes back waits for 20 seconds by default.
        std::chrono::milliseconds longest{5000};
    };

    /// Start to resolve.
    ///
    /// @param targets each "host:port" or "[address]:port"; those given twice count once.
    ///
    /// @throws std::invalid_argument for one that is neither, or has port 0, with it in the text.
    TargetPeers(
        Housekeeper& housekeeper, const std::vector<std::string>& targets, Callbacks callbacks);

    /// The same with another name service and other times.
    TargetPeers(
        Housekeeper& housekeeper, const std::vector<std::string>& targets, Callbacks callbacks,
        Resolver resolver, Backoff backoff);

    /// When this returns, no callback is running and none comes any more; from inside of a
    /// callback, that one is the last.
    ~TargetPeers();

    TargetPeers(const TargetPeers&) = delete;
    TargetPeers& operator=(const TargetPeers&) = delete;

    /// Take note that an address that was due could not be connected to, or is connected no more.
    /// It is due again after a while, which grows with each attempt that was in vain.
    ///
    /// @param wasUseful whether the connection was not in vain.
    void lost(const TargetAddress& address, bool wasUseful);

    /// Make the next attempts now, since somebody has begun to wait for what they may find.
    void hurry();

private:
    class State;
    Housekept<State> state;
};

} // namespace agent::orvi::remoting::details
