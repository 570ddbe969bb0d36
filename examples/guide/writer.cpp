/// Writes to a stream of another process: guide-writer UUID

#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>

#include <exception>
#include <iostream>

using namespace agent::orvi;
using namespace agent::orvi::streambuf;

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::cerr << "Usage: guide-writer UUID\n";
        return 2;
    }
    try {
        const boost::uuids::uuid uuid = boost::uuids::string_generator()(arguments[1]);
        const remoting::Importer importer;
        StreamBuffer device = makeDevice(uuid, noCloseFunction());
        // [writer]
        std::ostream output(&device);
        output << "other text" << std::flush;
        if (!output) {
            std::cout << "not written\n";
        }
        try {
            device.pubsync();
        } catch (const remoting::AccessDenied& error) {
            std::cout << error.what() << '\n';
        }
        // [writer]
    } catch (const std::exception& error) {
        std::cerr << "guide-writer: " << error.what() << '\n';
        return 1;
    }
}
