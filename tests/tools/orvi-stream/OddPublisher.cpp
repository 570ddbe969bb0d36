/// Publishes a device that does not do what it says: OddPublisher RUNTIME-DIRECTORY KIND. Prints
/// its UUID and serves until it is killed.

#include <orvi/remoting/Endpoint.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <unistd.h>

namespace {

using namespace agent::orvi::streambuf;

struct Device {
    ReadFunction read;
    WriteFunction write;
    SeekOffFunction seekoff;
    SeekPosFunction seekpos;
};

/// Says that it has 1000 characters and has only ten after each move.
Device shortDevice() {
    auto left = std::make_shared<std::int64_t>(10);
    Device device;
    device.read = [left](std::int64_t count) {
        const auto got = std::min(count, *left);
        *left -= got;
        return std::string(static_cast<std::size_t>(got), 'x');
    };
    device.seekoff = [](std::int64_t offset, int direction, int) {
        const bool fromEnd = direction == static_cast<int>(std::ios_base::end);
        return std::streampos((fromEnd ? 1000 : 0) + offset);
    };
    device.seekpos = [left](std::streampos position, int) {
        *left = 10;
        return position;
    };
    return device;
}

/// Says that it can seek and cannot.
Device unmovableDevice() {
    auto rest = std::make_shared<std::string>("unmovable");
    Device device;
    device.read = [rest](std::int64_t count) {
        std::string result = rest->substr(0, static_cast<std::size_t>(count));
        rest->erase(0, result.size());
        return result;
    };
    device.seekoff = [](std::int64_t, int, int) { return std::streampos(-1); };
    device.seekpos = [](std::streampos, int) { return std::streampos(-1); };
    return device;
}

Device writeOnlyDevice() {
    Device device;
    device.write = [](const std::string& data) { return static_cast<std::int64_t>(data.size()); };
    return device;
}

/// Takes half of what it is given.
Device halfWritingDevice() {
    Device device;
    device.write = [](const std::string& data) {
        return static_cast<std::int64_t>(data.size() / 2);
    };
    return device;
}

} // namespace

int main(int, char** arguments) {
    const std::map<std::string, Device (*)()> kinds{
        {"short", shortDevice},
        {"unmovable", unmovableDevice},
        {"write-only", writeOnlyDevice},
        {"half-writing", halfWritingDevice}};
    const auto uuid = boost::uuids::random_generator()();
    const Device device = kinds.at(arguments[2])();
    const StreamBuffer published =
        makeDevice(uuid, device.read, device.write, device.seekoff, device.seekpos, 1024);
    agent::orvi::remoting::EndpointOptions options;
    options.runtimeDirectory = arguments[1];
    const agent::orvi::remoting::Endpoint endpoint(options);
    std::cout << uuid << std::endl;
    for (;;) {
        ::pause();
    }
}
