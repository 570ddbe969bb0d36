/// Publishes a text over TCP with mutual TLS: guide-tls-publisher ADDRESS

#include "Interruption.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <exception>
#include <iostream>
#include <memory>
#include <sstream>

using namespace agent::orvi;
using namespace agent::orvi::streambuf;

int main(int argumentCount, char** arguments) {
    if (argumentCount != 2) {
        std::cerr << "Usage: guide-tls-publisher ADDRESS\n";
        return 2;
    }
    try {
        const Interruption interruption;
        const boost::uuids::uuid uuid =
            boost::uuids::string_generator()("f4e6d8c2-2a93-4b71-a6c8-9e7d5b1f3a80");
        const StreamBuffer device =
            makeDevice(uuid, std::make_shared<std::istringstream>("Hello from another host!"));

        // [endpoint]
        remoting::EndpointOptions options;
        options.local = false;
        options.listen = {arguments[1]};
        options.tls = {"publisher.pem", "publisher.key", "authority.pem"};
        options.access = {
            {"dns:reader.example.org", "*", "*", true}, // may call everything
            {"*", "*", "*", false}};                    // nobody else may call anything
        options.positionPerConnection = true;
        const remoting::Endpoint endpoint(options);
        // [endpoint]
        std::cout << "serving " << uuid << std::endl;
        interruption.wait();
    } catch (const std::exception& error) {
        std::cerr << "guide-tls-publisher: " << error.what() << '\n';
        return 1;
    }
}
