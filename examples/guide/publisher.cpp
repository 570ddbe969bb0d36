/// Publishes a text to other processes.

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
    // [publisher]
    const Interruption interruption;
    const boost::uuids::uuid uuid =
        boost::uuids::string_generator()("c5d9e2a7-1b48-4e63-9c0f-3a6b8d7f5e50");
    const StreamBuffer device =
        makeDevice(uuid, std::make_shared<std::istringstream>("Hello from another process!"));

    const remoting::Endpoint endpoint; // offers everything that this process publishes
    std::cout << "serving " << uuid << std::endl;
    interruption.wait();
    // [publisher]
}
