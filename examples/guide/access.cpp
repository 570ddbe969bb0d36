/// Publishes a text that others may read but not change.

#include "Interruption.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

using namespace agent::orvi;
using namespace agent::orvi::streambuf;

int main() {
    const Interruption interruption;
    const boost::uuids::uuid uuid =
        boost::uuids::string_generator()("a3b7c9d1-4e82-4f16-b5a0-6d8e1c3f9b70");
    std::stringstream text("some text");
    const auto read = [&text](std::int64_t count) {
        std::string data(static_cast<std::size_t>(count), '\0');
        data.resize(static_cast<std::size_t>(text.rdbuf()->sgetn(data.data(), count)));
        return data;
    };
    const auto write = [&text](const std::string& data) {
        return text.rdbuf()->sputn(data.data(), static_cast<std::streamsize>(data.size()));
    };
    const StreamBuffer device =
        makeDevice(uuid, read, write, noSeekOffFunction(), noSeekPosFunction(), 4096);

    // [endpoint]
    remoting::EndpointOptions options;
    options.access = remoting::readOnly();
    const remoting::Endpoint endpoint(options);
    // [endpoint]
    std::cout << "serving " << uuid << std::endl;
    interruption.wait();
}
