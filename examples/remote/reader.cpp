/// Uses what another process has published. All it knows of that are UUIDs.

#include "demo/Reader.hpp"

#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>

#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace remoting = agent::orvi::remoting;
namespace streambuf = agent::orvi::streambuf;

namespace {

boost::uuids::uuid parseUuid(const std::string& text) {
    return boost::uuids::string_generator()(text);
}

void copy(const std::vector<std::string>& arguments) {
    const boost::uuids::uuid source = parseUuid(arguments[1]);
    const std::uint64_t offset = std::stoull(arguments[5]);
    const std::uint64_t length = std::stoull(arguments[6]);
    std::cout << "reader     read " << readAll(source, arguments[3]) << " bytes" << std::endl;
    readRegion(source, offset, length, arguments[4]);
    std::cout << "reader     moved to byte " << offset << " and read " << length << " bytes"
              << std::endl;
    writeAll(parseUuid(arguments[2]), arguments[3]);
    std::cout << "reader     wrote everything back" << std::endl;
}

/// Read until something else than data comes. The end of the data would be a value, an error is an
/// exception.
///
/// @return whether it was the loss of the publisher.
bool readUntilTheEnd(const boost::uuids::uuid& source) {
    streambuf::StreamBuffer device = streambuf::makeDevice(source, streambuf::noCloseFunction());
    std::string block(4096, '\0');
    std::uint64_t total = 0;
    try {
        while (const auto count =
                   device.sgetn(block.data(), static_cast<std::streamsize>(block.size()))) {
            total += static_cast<std::uint64_t>(count);
            std::cout << "reader     has " << total << " bytes and waits for more" << std::endl;
        }
        std::cout << "reader     took it for the end of the data" << std::endl;
    } catch (const remoting::PeerLost& error) {
        std::cout << "reader     got an error: " << error.what() << std::endl;
        return true;
    }
    return false;
}

} // namespace

int main(int argumentCount, char** argumentValues) {
    const std::vector<std::string> arguments(argumentValues + 1, argumentValues + argumentCount);
    const bool copies = arguments.size() == 7 && arguments[0] == "copy";
    const bool waits = arguments.size() == 2 && arguments[0] == "wait";
    if (!copies && !waits) {
        std::cerr
            << "Usage: orvi-demo-reader copy SOURCE-UUID SINK-UUID COPY REGION OFFSET LENGTH\n"
               "       orvi-demo-reader wait UUID\n"
               "Copies the source into COPY, LENGTH bytes from OFFSET on into REGION, and\n"
               "COPY into the sink; or reads until the publisher is lost.\n";
        return 2;
    }
    try {
        const remoting::Importer importer;
        if (copies) {
            copy(arguments);
        } else {
            return readUntilTheEnd(parseUuid(arguments[1])) ? 0 : 1;
        }
    } catch (const std::exception& error) {
        std::cerr << "orvi-demo-reader: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
