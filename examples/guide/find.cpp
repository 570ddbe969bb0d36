/// One component publishes a device, another one finds it by its UUID.

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>

#include <future>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

using namespace agent::orvi::streambuf;

// [connect]
std::string readAll(const boost::uuids::uuid& uuid) {
    StreamBuffer device = makeDevice(uuid, noCloseFunction());
    return {std::istreambuf_iterator<char>(&device), {}};
}

// [connect]

int main() {
    // [publish]
    const boost::uuids::uuid uuid =
        boost::uuids::string_generator()("6b1f7a52-5d3c-4f0e-9a57-0f6d2c8e4b10");

    std::future<std::string> reader = std::async(std::launch::async, readAll, uuid);
    const StreamBuffer device =
        makeDevice(uuid, std::make_shared<std::istringstream>("Hello, reader!"));
    std::cout << reader.get() << '\n';
    // [publish]
}
