#pragma once

#include <orvi/remoting_export.hpp>

#include <stdexcept>
#include <string>

/// What a call on a service of another process can end with, beside what the service itself throws.
///
/// Exceptions of the standard library and of this project's libraries come back as what they were
/// at the publisher, type and text. Only what follows is made by the way between the processes.
namespace agent::orvi::remoting {

/// The method threw an exception of a type that does not travel.
class ORVI_REMOTING_EXPORT RemoteError : public std::runtime_error {
public:
    /// @param typeName the type's name at the publisher; empty when it threw something without one.
    /// @param text the exception's text there.
    RemoteError(std::string typeName, const std::string& text);
    ~RemoteError() override;

    /// Return the name of the exception's type at the publisher.
    const std::string& typeName() const noexcept { return remoteType; }

private:
    std::string remoteType;
};

/// The connection to the publisher's process has ended: the call may or may not have run there.
/// Every later call over the same stream buffer ends with the same error.
class ORVI_REMOTING_EXPORT PeerLost : public std::runtime_error {
public:
    /// How it was lost.
    enum class Cause {
        terminated,   ///< The peer's process has ended; known on the same machine only.
        disconnected, ///< The connection was closed or reset.
        unresponsive  ///< The peer, or the way to it, has been silent for the keepalive time.
    };

    /// @param cause how it was lost.
    /// @param text names the peer and what is known of it.
    PeerLost(Cause cause, const std::string& text);
    ~PeerLost() override;

    /// Return how the peer was lost.
    Cause cause() const noexcept { return lossCause; }

private:
    Cause lossCause;
};

/// One side has sent what the protocol does not allow: the call may or may not have run. The stream
/// buffer's connection is not used any further: every later call ends with the same error.
class ORVI_REMOTING_EXPORT ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ProtocolError() override;
};

/// The peer speaks another major version of the protocol; nothing was run.
class ORVI_REMOTING_EXPORT VersionMismatch : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~VersionMismatch() override;
};

/// The endpoint does not let this peer do what it asked for; nothing was run.
class ORVI_REMOTING_EXPORT AccessDenied : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~AccessDenied() override;
};

/// The call exceeds a limit of the endpoint, and nothing was run. Or the stream has ended because
/// the endpoint offers more than the importer keeps, or because a frame was too long: then the call
/// may or may not have run, and every later one over the same stream buffer ends with the same
/// error.
class ORVI_REMOTING_EXPORT LimitExceeded : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~LimitExceeded() override;
};

/// The caller's own time limit has passed: the call may or may not have run.
class ORVI_REMOTING_EXPORT TimeLimitExceeded : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~TimeLimitExceeded() override;
};

/// A value of the call is of a type that does not travel. An argument: nothing was sent. The
/// result: the method has run.
class ORVI_REMOTING_EXPORT UnsupportedType : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
    ~UnsupportedType() override;
};

} // namespace agent::orvi::remoting
