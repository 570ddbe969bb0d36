#pragma once

#include "discovery/Housekept.hpp"
#include "discovery/RuntimeDirectory.hpp"

#include <chrono>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

/// Keeps the times of files in the runtime directory recent, so that what cleans up temporary
/// directories by age leaves them alone.
///
/// Thread safety: thread-safe.
class FreshFiles {
public:
    /// Start to do so. Every few hours are enough for any cleaner.
    FreshFiles(
        Housekeeper& housekeeper, const RuntimeDirectory& directory, std::vector<std::string> files,
        std::chrono::milliseconds interval = std::chrono::hours(1));

    /// Stop to do so.
    ~FreshFiles();

    FreshFiles(const FreshFiles&) = delete;
    FreshFiles& operator=(const FreshFiles&) = delete;

private:
    class State;
    Housekept<State> state;
};

} // namespace agent::orvi::remoting::details
