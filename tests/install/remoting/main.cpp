/// Publishes a stream for other processes until its input ends, or reads one of another process:
/// consumer DIRECTORY publish|read

#include <orvi/remoting/Endpoint.hpp>
#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace remoting = agent::orvi::remoting;
namespace streambuf = agent::orvi::streambuf;

namespace {

const boost::uuids::uuid uuid = {
    {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee,
     0xff}};

void publish(const std::string& directory) {
    const streambuf::StreamBuffer published =
        streambuf::makeDevice(uuid, std::make_shared<std::istringstream>("one two three"));
    remoting::EndpointOptions options;
    options.runtimeDirectory = directory;
    const remoting::Endpoint endpoint(options);
    std::cout << "published" << std::endl;
    std::cin.get();
}

/// The library throws it, this program catches it: both must mean the same type.
bool isLost(streambuf::StreamBuffer& connected) {
    try {
        connected.sgetc();
    } catch (const remoting::PeerLost&) {
        return true;
    }
    return false;
}

/// Print what is published. Return whether the end of the connection is noticed.
bool read(const std::string& directory) {
    remoting::ImporterOptions options;
    options.runtimeDirectory = directory;
    remoting::Importer importer(options);
    streambuf::StreamBuffer connected = streambuf::makeDevice(uuid, streambuf::noCloseFunction());
    std::cout << std::istream(&connected).rdbuf() << '\n';
    importer.close();
    return isLost(connected);
}

} // namespace

int main(int, char** arguments) {
    const std::string directory = arguments[1];
    if (arguments[2] == std::string("publish")) {
        publish(directory);
        return 0;
    }
    return read(directory) ? 0 : 1;
}
