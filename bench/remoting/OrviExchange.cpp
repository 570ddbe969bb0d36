#include "remoting/Certificates.hpp"
#include "remoting/Exchange.hpp"
#include "remoting/OrviClient.hpp"
#include "remoting/ServedBytes.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <unistd.h>

#include <cstdint>
#include <ios>
#include <memory>
#include <string>
#include <vector>

namespace agent::orvi::bench {
namespace {

constexpr std::ios_base::openmode modeOf(Direction direction) {
    return direction == Direction::read ? std::ios_base::in : std::ios_base::out;
}

/// A device over memory whose position is the number of calls that have read or written.
///
/// Thread safety: its operations are called one at a time, as an endpoint does by default.
streambuf::StreamBuffer publish(const boost::uuids::uuid& uuid, std::size_t bufferSize) {
    struct State {
        ServedBytes bytes;
        std::int64_t calls = 0;
    };

    const auto state = std::make_shared<State>();
    return streambuf::makeDevice(
        uuid,
        [state](std::int64_t count) {
            ++state->calls;
            const auto size = static_cast<std::size_t>(count);
            return std::string(state->bytes.next(size), size);
        },
        [state](const std::string& data) {
            ++state->calls;
            return static_cast<std::int64_t>(data.size());
        },
        [state](std::int64_t, int, int) -> std::streampos { return state->calls; },
        [state](std::streampos position, int) {
            state->bytes.restart();
            return position;
        },
        bufferSize);
}

class OrviExchange final : public Exchange {
public:
    OrviExchange(const remoting::ImporterOptions& options, Transfer transfer)
        : transfer(transfer)
        , importer(options)
        , buffer(streambuf::makeDevice(uuidFor(transfer.size), streambuf::noCloseFunction()))
        , bytes(transfer.size, 'w') {
        buffer.pubseekpos(0, modeOf(transfer.direction));
        callsBefore = position();
        prime();
    }

    void call() override {
        const auto size = static_cast<std::streamsize>(transfer.size);
        expectAll(
            transfer.direction == Direction::read ? buffer.sgetn(bytes.data(), size) == size
                                                  : buffer.sputn(bytes.data(), size) == size);
    }

    std::string_view received() const override { return {bytes.data(), bytes.size()}; }

    std::size_t arrived(std::size_t) override {
        // What prepared the buffer has been a call, too, or becomes one by this look.
        const std::int64_t calls = position() - callsBefore - 1;
        prime();
        callsBefore += calls + 1;
        return static_cast<std::size_t>(calls);
    }

private:
    /// Bring the buffer into a state in which every transfer of its own size is one call of that
    /// size: one character left to read, or none left to fill.
    void prime() {
        const auto size = static_cast<std::streamsize>(transfer.size);
        expectAll(
            transfer.direction == Direction::read ? buffer.sgetn(bytes.data(), size - 1) == size - 1
                                                  : buffer.sputn(bytes.data(), size) == size);
    }

    std::int64_t position() {
        return buffer.pubseekoff(0, std::ios_base::cur, modeOf(transfer.direction));
    }

    const Transfer transfer;
    remoting::Importer importer;
    streambuf::StreamBuffer buffer;
    std::vector<char> bytes;
    std::int64_t callsBefore = 0;
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
    std::vector<streambuf::StreamBuffer> devices;
    for (const std::size_t size : transferSizes) {
        devices.push_back(publish(uuidFor(size), size));
    }
    for (std::size_t device = 0; device < connectableDevices; ++device) {
        devices.push_back(publish(uuidOfConnectable(device), transferSizes[0]));
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
