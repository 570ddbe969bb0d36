/// Reads a stream of another process twice at once, line by line: guide-two-readers UUID

#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>

#include <exception>
#include <iostream>
#include <string>

using namespace agent::orvi;
using namespace agent::orvi::streambuf;

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::cerr << "Usage: guide-two-readers UUID\n";
        return 2;
    }
    try {
        const boost::uuids::uuid uuid = boost::uuids::string_generator()(arguments[1]);
        const remoting::Importer importer;
        // [readers]
        StreamBuffer oneDevice = makeDevice(uuid, noCloseFunction());
        StreamBuffer otherDevice = makeDevice(uuid, noCloseFunction());
        std::istream one(&oneDevice);
        std::istream other(&otherDevice);

        std::string oneLine;
        std::string otherLine;
        other.seekg(4);
        while (std::getline(one, oneLine) && std::getline(other, otherLine)) {
            std::cout << oneLine << ' ' << otherLine << '\n';
        }
        // [readers]
    } catch (const std::exception& error) {
        std::cerr << "guide-two-readers: " << error.what() << '\n';
        return 1;
    }
}
