/// Reads a stream over TCP with mutual TLS: guide-tls-reader TARGET NAME UUID
///
/// NAME.pem and NAME.key are the reader's certificate and key.

#include <orvi/remoting/Errors.hpp>
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
    if (argumentCount != 4) {
        std::cerr << "Usage: guide-tls-reader TARGET NAME UUID\n";
        return 2;
    }
    try {
        const std::string name = arguments[2];
        const boost::uuids::uuid uuid = boost::uuids::string_generator()(arguments[3]);

        // [importer]
        remoting::ImporterOptions options;
        options.local = false;
        options.targets = {arguments[1]};
        options.tls = {name + ".pem", name + ".key", "authority.pem"};
        const remoting::Importer importer(options);

        StreamBuffer device = makeDevice(uuid, noCloseFunction());
        const std::string text(std::istreambuf_iterator<char>(&device), {});
        std::cout << '"' << text << "\"\n";
        // [importer]
    } catch (const remoting::AccessDenied& error) {
        std::cerr << "guide-tls-reader: access denied\n";
        return 1;
    } catch (const std::exception& error) {
        std::cerr << "guide-tls-reader: " << error.what() << '\n';
        return 1;
    }
}
