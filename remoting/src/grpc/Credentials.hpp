#pragma once

#include "grpc/CertificateFiles.hpp"
#include "grpc/ClientConnection.hpp"

#include <orvi/remoting/TlsFiles.hpp>

#include <grpcpp/security/credentials.h>
#include <grpcpp/security/server_credentials.h>
#include <grpcpp/support/channel_arguments.h>

#include <memory>

namespace agent::orvi::remoting::details {

/// Make the settings that every connection has on the importing side.
grpc::ChannelArguments clientArguments(Keepalive keepalive);

/// Both sides show a certificate and check the other one's.
std::shared_ptr<grpc::ChannelCredentials> clientCredentials(const Identification& identification);

/// The files are read again for every connection. Must outlive the server.
///
/// @throws std::system_error, UnusableTlsFile when the files cannot be used now.
std::shared_ptr<grpc::ServerCredentials> serverCredentials(const TlsFiles& files);

} // namespace agent::orvi::remoting::details
