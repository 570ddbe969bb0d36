#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>

#include <iostream>
#include <sstream>

using namespace agent::orvi::streambuf;

int main() {
    const boost::uuids::uuid uuid = boost::uuids::random_generator()();
    const auto published = makeDevice(uuid, std::make_shared<std::istringstream>("Hello, reader!"));
    auto connected = makeDevice(uuid, noCloseFunction()); // elsewhere: only the UUID is known here
    std::cout << std::istream(&connected).rdbuf() << '\n';
}
