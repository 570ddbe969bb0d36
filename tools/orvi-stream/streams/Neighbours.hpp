#pragma once

#include "commands/Options.hpp"
#include "streams/StreamDescription.hpp"

#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace agent::orvi::tool {

/// A stream that this process is connected to.
struct ConnectedStream {
    StreamDescription description;
    streambuf::StreamBuffer device;
};

/// The other processes, and the streams that they publish.
///
/// Keep it for as long as a stream from it is in use. Thread safety: thread-safe.
class Neighbours {
public:
    /// Start to look for endpoints.
    ///
    /// @throws CommandFailure for options that make no sense.
    /// @throws std::system_error, remoting::UnusableTlsFile as the constructor of
    ///         `remoting::Importer` does.
    explicit Neighbours(const SearchOptions& options);

    /// Connect to a stream. Blocks until it is found, for the time that the options give.
    ///
    /// @throws CommandFailure when it is not found; why endpoints did not answer has been told.
    ConnectedStream connect(const boost::uuids::uuid& uuid);

    /// Block until all endpoints that are there have said what they offer.
    ///
    /// @return whether none of them failed to; why it did has been told.
    bool awaitAnswers();

    /// Return the address of a stream's endpoint, empty when that is not known any more.
    std::string addressOf(const StreamDescription& stream) const;

private:
    std::vector<remoting::PeerStatus> silentPeers() const;

    const std::chrono::milliseconds timeout;
    remoting::Importer importer;
};

/// Return a time as the options have it, for messages: "2.5 s".
std::string inSeconds(std::chrono::milliseconds time);

} // namespace agent::orvi::tool
