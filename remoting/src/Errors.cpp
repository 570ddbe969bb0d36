#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/TlsFiles.hpp>

#include <utility>

namespace agent::orvi::remoting {

RemoteError::RemoteError(std::string typeName, const std::string& text)
    : std::runtime_error(text)
    , remoteType(std::move(typeName)) {}

PeerLost::PeerLost(Cause cause, const std::string& text)
    : std::runtime_error(text)
    , lossCause(cause) {}

// Out of line, so that the types' run-time information exists once, in this library.
RemoteError::~RemoteError() = default;
PeerLost::~PeerLost() = default;
ProtocolError::~ProtocolError() = default;
VersionMismatch::~VersionMismatch() = default;
AccessDenied::~AccessDenied() = default;
LimitExceeded::~LimitExceeded() = default;
TimeLimitExceeded::~TimeLimitExceeded() = default;
UnsupportedType::~UnsupportedType() = default;
UnusableTlsFile::~UnusableTlsFile() = default;

} // namespace agent::orvi::remoting
