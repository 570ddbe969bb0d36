/// Reads what another process of this machine publishes: guide-reader UUID

#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>

#include <exception>
#include <iostream>
#include <iterator>
#include <string>

using namespace agent::orvi;
using namespace agent::orvi::streambuf;

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::cerr << "Usage: guide-reader UUID\n";
        return 2;
    }
    try {
        // [reader]
        const boost::uuids::uuid uuid = boost::uuids::string_generator()(arguments[1]);

        const remoting::Importer importer; // finds what other processes offer
        StreamBuffer device = makeDevice(uuid, noCloseFunction());
        const std::string text(std::istreambuf_iterator<char>(&device), {});
        std::cout << '"' << text << "\"\n";
        // [reader]
    } catch (const std::exception& error) {
        std::cerr << "guide-reader: " << error.what() << '\n';
        return 1;
    }
}
