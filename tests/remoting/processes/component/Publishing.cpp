#include "remoting/processes/component/Publishing.hpp"

#include "remoting/processes/component/DuplexDevice.hpp"
#include "remoting/processes/component/ForeignService.hpp"
#include "remoting/processes/component/HeldAnswers.hpp"
#include "remoting/processes/component/RelayedDevice.hpp"

#include "support/SparseDevice.hpp"

#include <boost/uuid/string_generator.hpp>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

using namespace streambuf::test;

std::chrono::milliseconds millisecondsOf(const Command& command, const char* key, int fallback) {
    return std::chrono::milliseconds(command.number(key, fallback));
}

EndpointOptions optionsOf(const Command& command) {
    EndpointOptions options;
    options.runtimeDirectory = command.text("directory");
    options.callOrder =
        command.number("concurrent", 0) != 0 ? CallOrder::concurrent : CallOrder::oneAtATime;
    options.positionPerConnection = command.number("positions", 0) != 0;
    options.limits.callsInFlight = static_cast<std::size_t>(
        command.number("calls", static_cast<std::int64_t>(options.limits.callsInFlight)));
    options.limits.wantedFilters = static_cast<std::size_t>(
        command.number("look-ups", static_cast<std::int64_t>(options.limits.wantedFilters)));
    options.threads = static_cast<std::size_t>(
        command.number("threads", static_cast<std::int64_t>(options.threads)));
    options.keepaliveTime = millisecondsOf(command, "keepalive", 10000);
    options.keepaliveTimeout = millisecondsOf(command, "timeout", 5000);
    if (command.has("listen")) {
        options.local = false;
        options.listen = {command.text("listen")};
        options.plainLoopback = true;
    }
    return options;
}

/// Leave a device the operations that "modes" has: Read, Write, seekOff, seekPos; all without it.
Operations withModes(Operations device, const Command& command) {
    if (!command.has("modes")) {
        return device;
    }
    const std::string modes = command.text("modes");
    const auto lacks = [&](char mode) { return modes.find(mode) == std::string::npos; };
    if (lacks('r')) {
        device.read = {};
    }
    if (lacks('w')) {
        device.write = {};
    }
    if (lacks('o')) {
        device.seekoff = {};
    }
    if (lacks('p')) {
        device.seekpos = {};
    }
    return device;
}

/// Make the operations of the kind of device that is asked for.
///
/// @param source receives what must live as long as they do.
Operations deviceOfKind(const Command& command, std::shared_ptr<void>& source) {
    const std::string kind = command.text("kind");
    if (kind == "memory") {
        return bothOf(RecordingDevice(pattern(static_cast<std::size_t>(command.number("size")))));
    }
    if (kind == "sparse") {
        return bothOf(SparseDevice(command.number("size")));
    }
    if (kind == "duplex") {
        return duplexDevice();
    }
    if (kind == "relayed") {
        return relayedDevice(command.text("socket"), source);
    }
    throw std::invalid_argument("there is no kind of device \"" + kind + "\"");
}

boost::uuids::uuid uuidOf(const Command& command) {
    return boost::uuids::string_generator()(command.text("uuid"));
}

} // namespace

void Publishing::addVerbs(Verbs& verbs) {
    // directory= [concurrent=1] [positions=1] [calls=] [look-ups=] [threads=]
    // [keepalive= timeout=] [listen=]; over TCP alone when it listens there
    verbs["open-endpoint"] = [this](const Command& command) { return openEndpoint(command); };
    verbs["open-second-endpoint"] = [this](const Command& command) {
        secondEndpoint.emplace(optionsOf(command));
        return secondEndpoint->id();
    };
    verbs["begin-to-close-endpoint"] = [this](const Command&) {
        closing = std::async(std::launch::async, [this] { return closeEndpoint(); });
        return std::string();
    };
    verbs["await-closed-endpoint"] = [this](const Command&) { return closing.get(); };
    verbs["close-endpoint"] = [this](const Command&) { return closeEndpoint(); };
    // name= uuid= kind=memory|sparse|duplex|relayed|file [size=] [socket=] [path=] [modes=rwop]
    // [buffer=]
    verbs["publish"] = [this](const Command& command) { return publish(command); };
    // name= service=
    verbs["publish-foreign"] = [this](const Command& command) { return publishForeign(command); };
    // name=
    verbs["withdraw"] = [this](const Command& command) { return withdraw(command); };
    // name= operation= point=entry|exit|answer|error
    verbs["stop-next"] = [this](const Command& command) { return stopNext(command); };
    // name=
    verbs["await-stopped"] = [this](const Command& command) {
        deviceOf(command).awaitStopped();
        return std::string();
    };
    verbs["await-held"] = [](const Command&) {
        heldAnswers::awaitHeld();
        return std::string();
    };
    // name=
    verbs["release"] = [this](const Command& command) {
        heldAnswers::release();
        deviceOf(command).release();
        return std::string();
    };
    // name=
    verbs["calls"] = [this](const Command& command) { return deviceOf(command).calls(); };
    // name=
    verbs["overlap"] = [this](const Command& command) {
        return std::to_string(deviceOf(command).overlap());
    };
}

std::string Publishing::openEndpoint(const Command& command) {
    endpoint.emplace(optionsOf(command));
    return endpoint->id() + " " + endpoint->addresses().at(0);
}

/// Answer with the milliseconds it has taken.
std::string Publishing::closeEndpoint() {
    const auto start = std::chrono::steady_clock::now();
    endpoint->close();
    const auto time = std::chrono::steady_clock::now() - start;
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

std::string Publishing::publish(const Command& command) {
    Publication publication;
    const auto bufferSize = static_cast<std::size_t>(command.number("buffer", 4096));
    if (command.text("kind") == "file") {
        auto file = std::make_shared<std::fstream>(
            command.text("path"), std::ios_base::in | std::ios_base::out | std::ios_base::binary);
        publication.source = file;
        publication.buffer.emplace(streambuf::makeDevice(uuidOf(command), *file, bufferSize));
    } else {
        publication.device = std::make_shared<ControlledDevice>(
            withModes(deviceOfKind(command, publication.source), command));
        const Operations device = publication.device->operations();
        publication.buffer.emplace(streambuf::makeDevice(
            uuidOf(command), device.read, device.write, device.seekoff, device.seekpos,
            bufferSize));
    }
    publications[command.text("name")] = std::move(publication);
    return "";
}

std::string Publishing::publishForeign(const Command& command) {
    const auto publication = std::make_shared<ForeignService>(command.text("service"));
    publications[command.text("name")].source = publication;
    return "";
}

std::string Publishing::withdraw(const Command& command) {
    const auto publication = publications.extract(command.text("name"));
    if (!publication) {
        throw std::invalid_argument("nothing is published as " + command.text("name"));
    }
    return "";
}

std::string Publishing::stopNext(const Command& command) {
    static const std::map<std::string, ControlledDevice::Point> points = {
        {"entry", ControlledDevice::Point::entry},
        {"exit", ControlledDevice::Point::exit},
        {"answer", ControlledDevice::Point::answer},
        {"error", ControlledDevice::Point::error}};
    deviceOf(command).stopNext(
        operationOf(command.text("operation")), points.at(command.text("point")));
    return "";
}

ControlledDevice& Publishing::deviceOf(const Command& command) {
    const auto& publication = publications.at(command.text("name"));
    if (!publication.device) {
        throw std::invalid_argument(command.text("name") + " is not watched");
    }
    return *publication.device;
}

void Publishing::shutDown() {
    if (endpoint) {
        endpoint->close();
    }
    heldAnswers::release();
    for (const auto& [name, publication] : publications) {
        if (publication.device) {
            publication.device->release();
        }
    }
    publications.clear();
    endpoint.reset();
    secondEndpoint.reset();
}

} // namespace agent::orvi::remoting::test
