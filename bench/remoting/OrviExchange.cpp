#include "ConnectedStream.hpp"
#include "CountingDevice.hpp"
#include "Readers.hpp"
#include "Sizes.hpp"
#include "remoting/Certificates.hpp"
#include "remoting/Exchanges.hpp"
#include "remoting/OrviClient.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

/// A connected stream, and the importer that finds it.
class OrviExchange final : public Exchange {
public:
    OrviExchange(const remoting::ImporterOptions& options, Transfer transfer)
        : importer(options)
        , stream(uuidFor(transfer.size), transfer) {}

    void call() override { stream.call(); }

    std::string_view received() const override { return stream.received(); }

    std::size_t arrived(std::size_t calls) override { return stream.arrived(calls); }

private:
    remoting::Importer importer;
    ConnectedStream stream;
};

} // namespace

remoting::TlsFiles tlsFilesIn(const std::filesystem::path& folder) {
    const Certificates files = certificatesIn(folder);
    return {files.certificate, files.privateKey, files.authority};
}

std::unique_ptr<Exchange> connectOrvi(const ServerAddress& server, Transfer transfer) {
    return std::make_unique<OrviExchange>(localOptions(server), transfer);
}

std::unique_ptr<Exchange> connectOrviTls(const ServerAddress& server, Transfer transfer) {
    remoting::ImporterOptions options;
    options.local = false;
    options.targets = {server.tls};
    options.tls = tlsFilesIn(server.folder);
    return std::make_unique<OrviExchange>(options, transfer);
}

void serveOrvi(const ServerAddress& address) {
    // The endpoint lets one client at a time call a device.
    std::vector<streambuf::StreamBuffer> devices = publishForReaders(Callers::oneAtATime);
    for (const std::size_t size : sweptSizes) {
        devices.push_back(publishCountingDevice(uuidFor(size), size));
    }
    for (std::size_t device = 0; device < connectableDevices; ++device) {
        devices.push_back(publishCountingDevice(uuidOfConnectable(device), 4 << 10));
    }
    remoting::EndpointOptions options;
    options.runtimeDirectory = runtimeDirectory(address);
    options.listen = {"127.0.0.1:0"};
    options.tls = tlsFilesIn(address.folder);
    const remoting::Endpoint endpoint(options);
    for (const std::string& each : endpoint.addresses()) {
        if (!each.starts_with("unix:")) {
            announce(each);
        }
    }
    for (;;) {
        pause();
    }
}

} // namespace agent::orvi::bench
