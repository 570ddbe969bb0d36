/// Publishes a text to many readers, each with a position of its own.

#include "Interruption.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <iostream>
#include <memory>
#include <sstream>

using namespace agent::orvi;
using namespace agent::orvi::streambuf;

int main() {
    const Interruption interruption;
    const boost::uuids::uuid uuid =
        boost::uuids::string_generator()("e8f1b6d4-7c25-4a90-8d3e-5b9c2f4a7d60");
    const StreamBuffer device =
        makeDevice(uuid, std::make_shared<std::istringstream>("one\ntwo\nthree\n"));

    // [endpoint]
    remoting::EndpointOptions options;
    options.positionPerConnection = true;
    const remoting::Endpoint endpoint(options);
    // [endpoint]
    std::cout << "serving " << uuid << std::endl;
    interruption.wait();
}
