#pragma once

#include "discovery/Housekept.hpp"
#include "discovery/RuntimeDirectory.hpp"

#include <filesystem>
#include <functional>

namespace agent::orvi::remoting::details {

/// Follows which endpoints there are in a runtime directory.
///
/// Their files are watched, not polled. Only where the system allows no more watches, and while the
/// directory cannot be used, is it looked at once a second. What dead processes left behind is
/// removed. A directory that is removed is made again, some seconds later in the worst case.
///
/// A process that is killed while a forked child of it lives on leaves no trace that can be
/// watched: who has lost the connection to an endpoint therefore asks for it to be checked.
///
/// Thread safety: thread-safe.
class LocalPeers {
public:
    /// Receives the path of an endpoint's socket, on the housekeeping thread. For each endpoint,
    /// `found` is called once, and `gone` once after it.
    using Report = std::function<void(const std::filesystem::path& socket)>;

    /// What to do with the endpoints of this very process.
    enum class OwnEndpoints { leaveOut, report };

    /// Start to follow. Does not wait for anything.
    ///
    /// @throws std::system_error when the directory cannot be used.
    LocalPeers(
        Housekeeper& housekeeper, const RuntimeDirectory& directory, Report found, Report gone,
        OwnEndpoints ownEndpoints = OwnEndpoints::leaveOut);

    /// When this returns, no report is running and none comes any more; from inside of a report,
    /// that one is the last.
    ~LocalPeers();

    LocalPeers(const LocalPeers&) = delete;
    LocalPeers& operator=(const LocalPeers&) = delete;

    /// Look whether the process behind a socket still lives. If not, its files are removed, and
    /// `gone` is called if `found` was. Does not wait for it.
    void check(const std::filesystem::path& socket);

private:
    class State;
    Housekept<State> state;
};

} // namespace agent::orvi::remoting::details
