#include "imports/StreamErrors.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>

namespace agent::orvi::remoting::details {
namespace {

using Kind = StreamEnd::Kind;

std::exception_ptr
lost(PeerLost::Cause cause, const std::string& peer, const char* what, const std::string& text) {
    return std::make_exception_ptr(
        PeerLost(cause, "Peer " + peer + what + (text.empty() ? "." : ": " + text)));
}

} // namespace

std::exception_ptr errorOf(const StreamEnd& end, const std::string& peer) noexcept try {
    const std::string about = "Peer " + peer + ": " + end.text;
    switch (end.kind) {
    case Kind::finished:
        return std::make_exception_ptr(
            core::ServiceUnavailable("Peer " + peer + " has closed its endpoint."));
    case Kind::terminated:
        return lost(PeerLost::Cause::terminated, peer, " has terminated", end.text);
    case Kind::unresponsive:
        return lost(PeerLost::Cause::unresponsive, peer, " does not respond", end.text);
    case Kind::protocolError:
        return std::make_exception_ptr(ProtocolError(about));
    case Kind::versionMismatch:
        return std::make_exception_ptr(VersionMismatch(about));
    case Kind::accessDenied:
        return std::make_exception_ptr(AccessDenied(about));
    case Kind::limitExceeded:
        return std::make_exception_ptr(LimitExceeded(about));
    default:
        return lost(PeerLost::Cause::disconnected, peer, " is disconnected", end.text);
    }

} catch (...) {

    return std::current_exception(); // no memory for the text
}

} // namespace agent::orvi::remoting::details
