#include "commands/Commands.hpp"

#include "streams/FileDevice.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"
#include "terminal/Signals.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/uuid_io.hpp>

#include <memory>
#include <stdexcept>
#include <vector>

namespace agent::orvi::tool {
namespace {

using Device = std::shared_ptr<FileDevice>;

std::vector<Device> openFiles(const PublishOptions& options) {
    const auto access = options.write ? FileDevice::Access::readAndWrite : FileDevice::Access::read;
    const auto answer = options.live ? FileDevice::Answer::asItArrives : FileDevice::Answer::whole;
    std::vector<Device> devices;
    for (const std::string& file : options.files) {
        devices.push_back(
            file == "-" ? FileDevice::standardInput(answer)
                        : FileDevice::open(file, access, answer));
    }
    return devices;
}

streambuf::StreamBuffer
offer(const Device& device, const boost::uuids::uuid& uuid, const PublishOptions& options) {
    streambuf::WriteFunction write;
    streambuf::SeekOffFunction seekoff;
    streambuf::SeekPosFunction seekpos;
    if (options.write) {
        write = [device](const std::string& data) { return device->write(data); };
    }
    if (device->canSeek()) {
        seekoff = [device](std::int64_t offset, int direction, int mode) {
            return device->seekoff(offset, direction, mode);
        };
        seekpos = [device](std::streampos position, int mode) {
            return device->seekpos(position, mode);
        };
    }
    return streambuf::makeDevice(
        uuid, [device](std::int64_t count) { return device->read(count); }, write, seekoff, seekpos,
        options.bufferSize);
}

std::vector<remoting::AccessRule> accessRules(const PublishOptions& options) {
    std::vector<remoting::AccessRule> rules;
    for (const std::string& peer : options.readOnlyPeers) {
        for (remoting::AccessRule rule : remoting::readOnly()) {
            rule.identity = peer;
            rules.push_back(rule);
        }
    }
    for (const std::string& peer : options.allowedPeers) {
        rules.push_back({.identity = peer});
    }
    if (!options.allowedPeers.empty()) {
        rules.push_back({.allow = false});
    }
    return rules;
}

remoting::EndpointOptions endpointOptions(const PublishOptions& options) {
    remoting::EndpointOptions result;
    result.local = options.network.local;
    result.runtimeDirectory = options.network.runtimeDirectory;
    result.listen = options.listen;
    result.tls = options.network.tls;
    result.plainLoopback = options.network.plainLoopback;
    result.positionPerConnection = true;
    result.access = accessRules(options);
    return result;
}

remoting::Endpoint makeEndpoint(const PublishOptions& options) {
    try {
        return remoting::Endpoint(endpointOptions(options));
    } catch (const remoting::UnusableTlsFile&) {
        throw; // the command line may well be right
    } catch (const std::invalid_argument& reason) {
        throw CommandFailure(ExitCode::wrongUsage, reason.what());
    }
}

/// Ends the reads that wait when it goes: a stream that is withdrawn waits for those that run.
class Interruption {
public:
    explicit Interruption(const std::vector<Device>& devices)
        : devices(devices) {}

    ~Interruption() {
        for (const Device& device : devices) {
            device->interrupt();
        }
    }

    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

private:
    const std::vector<Device>& devices;
};

void tell(const PublishOptions& options, const remoting::Endpoint& endpoint) {
    if (!options.listen.empty()) {
        for (const std::string& address : endpoint.addresses()) {
            warn("listening on " + address);
        }
    }
    try {
        for (const auto& uuid : options.uuids) {
            writeOutput(boost::uuids::to_string(uuid) + '\n');
        }
    } catch (const OutputClosed&) {
        // Who wanted only the first ones still wants them served.
    }
}

} // namespace

int publish(const PublishOptions& options) {
    const std::vector<Device> devices = openFiles(options);
    std::vector<streambuf::StreamBuffer> published;
    for (std::size_t i = 0; i < devices.size(); ++i) {
        published.push_back(offer(devices[i], options.uuids[i], options));
    }
    // It comes after the endpoint's end: an interrupted read would be the end of the data to a
    // peer.
    const Interruption interruption(devices);
    remoting::Endpoint endpoint = makeEndpoint(options);
    tell(options, endpoint);
    const int signal = awaitSignal();
    endOnSignal(); // who sends a second one does not want to wait
    endpoint.close();
    return ExitCode::signalled + signal;
}

} // namespace agent::orvi::tool
