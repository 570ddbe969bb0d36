#include "grpc/StatusCodes.hpp"

#include "wire/CutText.hpp"
#include "wire/FrameLimits.hpp"

#include <algorithm>
#include <array>
#include <string>

namespace agent::orvi::remoting::details {
namespace {

using Kind = StreamEnd::Kind;

/// gRPC has one code for every way in which a connection ends; only its text says which.
bool tellsOfSilence(const std::string& text) {
    constexpr std::array signs{"keepalive", "ping timeout", "timed out", "ETIMEDOUT"};
    return std::any_of(signs.begin(), signs.end(), [&](const char* sign) {
        return text.find(sign) != std::string::npos;
    });
}

Kind kindOf(const grpc::Status& status) {
    switch (status.error_code()) {
    case grpc::StatusCode::OK:
        return Kind::finished;
    case grpc::StatusCode::INVALID_ARGUMENT:
    case grpc::StatusCode::INTERNAL:
    case grpc::StatusCode::OUT_OF_RANGE:
        return Kind::protocolError;
    case grpc::StatusCode::FAILED_PRECONDITION:
    case grpc::StatusCode::UNIMPLEMENTED:
        return Kind::versionMismatch;
    case grpc::StatusCode::PERMISSION_DENIED:
    case grpc::StatusCode::UNAUTHENTICATED:
        return Kind::accessDenied;
    case grpc::StatusCode::RESOURCE_EXHAUSTED:
        return Kind::limitExceeded;
    case grpc::StatusCode::DEADLINE_EXCEEDED:
        return Kind::unresponsive;
    default:
        return tellsOfSilence(status.error_message()) ? Kind::unresponsive : Kind::disconnected;
    }
}

grpc::StatusCode codeOf(Kind kind) {
    switch (kind) {
    case Kind::finished:
        return grpc::StatusCode::OK;
    case Kind::protocolError:
        return grpc::StatusCode::INVALID_ARGUMENT;
    case Kind::versionMismatch:
        return grpc::StatusCode::FAILED_PRECONDITION;
    case Kind::accessDenied:
        return grpc::StatusCode::PERMISSION_DENIED;
    case Kind::limitExceeded:
        return grpc::StatusCode::RESOURCE_EXHAUSTED;
    case Kind::cancelled:
        return grpc::StatusCode::CANCELLED;
    default:
        return grpc::StatusCode::UNAVAILABLE;
    }
}

} // namespace

grpc::Status toStatus(const StreamEnd& end) {
    if (end.kind == Kind::finished) {
        return grpc::Status::OK;
    }
    return {codeOf(end.kind), std::string(cutText(end.text, maximumEndText))};
}

StreamEnd fromStatus(const grpc::Status& status) {
    return {kindOf(status), status.error_message()};
}

} // namespace agent::orvi::remoting::details
