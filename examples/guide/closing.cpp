/// What the end of a stream buffer does on each side.

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <iostream>
#include <memory>
#include <sstream>
#include <utility>

using namespace agent::orvi::streambuf;

int main() {
    const boost::uuids::uuid uuid =
        boost::uuids::string_generator()("2d0a5c1e-93b7-4c6b-8f55-7d1b3e9a6c20");

    // [close]
    const auto text = std::make_shared<std::ostringstream>();
    const StreamBuffer published = makeDevice(uuid, text);
    {
        StreamBuffer device = makeDevice(
            uuid, [](const boost::uuids::uuid& which) { std::cout << "closed " << which << '\n'; });
        std::ostream output(&device);
        output << "some text";
        if (device.pubsync() != 0) {
            std::cout << "the publisher did not take it\n";
        }
        std::cout << "leaving\n";
    }
    std::cout << text->str() << '\n';
    // [close]

    // [move]
    StreamBuffer device = makeDevice(uuid, noCloseFunction());
    std::ostream(&device) << ", more" << std::flush; // or it is dropped
    StreamBuffer moved = std::move(device);
    std::ostream(&moved) << " and more" << std::flush;
    std::cout << text->str() << '\n';
    // [move]
}
