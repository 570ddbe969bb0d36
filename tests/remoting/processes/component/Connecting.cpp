#include "remoting/processes/component/Connecting.hpp"

#include "remoting/processes/Checksum.hpp"
#include "support/StreamBuffers.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>
#include <cppmicroservices/LDAPFilter.h>

#include <boost/uuid/string_generator.hpp>

#include <chrono>
#include <ios>
#include <thread>
#include <utility>

namespace agent::orvi::remoting::test {
namespace {

std::string positionText(std::streampos position) {
    return std::to_string(std::streamoff(position));
}

} // namespace

void Connecting::addVerbs(Verbs& verbs) {
    // directory= [keepalive= timeout=] [target=]; over TCP alone when it has a target
    verbs["open-importer"] = [this](const Command& command) { return openImporter(command); };
    // name= uuid=
    verbs["connect"] = [this](const Command& command) { return connect(command); };
    // name= uuid=; goes on until the end
    verbs["look-up"] = [this](const Command& command) { return lookUp(command); };
    // name=; how many it has found
    verbs["count"] = [this](const Command& command) {
        return std::to_string(lookUps.at(command.text("name"))->GetServiceReferences().size());
    };
    // name= count=
    verbs["read"] = [this](const Command& command) { return read(command); };
    // name= size=
    verbs["write"] = [this](const Command& command) { return write(command); };
    // name=
    verbs["sync"] = [this](const Command& command) {
        return std::to_string(bufferOf(command).pubsync());
    };
    // name= offset=
    verbs["seekoff"] = [this](const Command& command) {
        return positionText(bufferOf(command).pubseekoff(
            command.number("offset"), std::ios_base::beg, std::ios_base::in));
    };
    // name= position=
    verbs["seekpos"] = [this](const Command& command) {
        return positionText(
            bufferOf(command).pubseekpos(command.number("position"), std::ios_base::in));
    };
    // name= position=; again and again while the endpoint has no room for the call
    verbs["insist-on-seekpos"] = [&verbs](const Command& command) {
        for (;;) {
            try {
                return verbs.at("seekpos")(command);
            } catch (const LimitExceeded&) {
                std::this_thread::yield();
            }
        }
    };
    // name=
    verbs["disconnect"] = [this](const Command& command) {
        connected.erase(command.text("name"));
        return std::string();
    };
}

std::string Connecting::openImporter(const Command& command) {
    ImporterOptions options;
    options.runtimeDirectory = command.text("directory");
    options.keepaliveTime = std::chrono::milliseconds(command.number("keepalive", 10000));
    options.keepaliveTimeout = std::chrono::milliseconds(command.number("timeout", 5000));
    if (command.has("target")) {
        options.local = false;
        options.targets = {command.text("target")};
        options.plainLoopback = true;
    }
    importer.emplace(options);
    return "";
}

std::string Connecting::connect(const Command& command) {
    const auto uuid = boost::uuids::string_generator()(command.text("uuid"));
    connected.erase(command.text("name"));
    connected.emplace(
        command.text("name"), streambuf::makeDevice(uuid, streambuf::noCloseFunction()));
    return "";
}

std::string Connecting::lookUp(const Command& command) {
    auto tracker = std::make_unique<Tracker>(
        foundation::cppmicroservices::getFramework()->GetBundleContext(),
        cppmicroservices::LDAPFilter(
            "(orvi.servicename=orviStreambuf_" + command.text("uuid") + ")"));
    tracker->Open();
    lookUps[command.text("name")] = std::move(tracker);
    return "";
}

/// Answer with the number of characters and their checksum.
std::string Connecting::read(const Command& command) {
    const std::string characters =
        streambuf::test::take(bufferOf(command), static_cast<std::size_t>(command.number("count")));
    return std::to_string(characters.size()) + " " + std::to_string(checksum(characters));
}

std::string Connecting::write(const Command& command) {
    const auto size = static_cast<std::size_t>(command.number("size"));
    return std::to_string(streambuf::test::put(bufferOf(command), streambuf::test::pattern(size)));
}

streambuf::StreamBuffer& Connecting::bufferOf(const Command& command) {
    return connected.at(command.text("name"));
}

void Connecting::shutDown() {
    connected.clear();
    lookUps.clear();
    importer.reset();
}

} // namespace agent::orvi::remoting::test
