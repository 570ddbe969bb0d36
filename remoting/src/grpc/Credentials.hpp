#pragma once

#include "grpc/ClientConnection.hpp"

#include <orvi/remoting/TlsFiles.hpp>

#include <grpcpp/security/credentials.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/support/channel_arguments.h>

#include <memory>

namespace agent::orvi::remoting::details {

/// Make the settings that every connection has on the importing side.
grpc::ChannelArguments clientArguments(Keepalive keepalive);

/// Both sides show a certificate and check the other one's. The files are read again when they
/// change.
///
/// @throws std::system_error when a file cannot be read, with its path.
std::shared_ptr<grpc::ChannelCredentials> clientCredentials(const TlsFiles& files);
std::shared_ptr<grpc::ServerCredentials> serverCredentials(const TlsFiles& files);

} // namespace agent::orvi::remoting::details
