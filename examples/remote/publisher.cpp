/// Publishes a file, a sink and an endless device to other processes, until its input ends.

#include "demo/Publisher.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <exception>
#include <future>
#include <iostream>
#include <string>
#include <utility>

namespace remoting = agent::orvi::remoting;
namespace streambuf = agent::orvi::streambuf;

namespace {

void run(const std::string& sourcePath, const std::string& sinkPath) {
    boost::uuids::random_generator makeUuid;
    const boost::uuids::uuid source = makeUuid();
    const boost::uuids::uuid sink = makeUuid();
    const boost::uuids::uuid stalling = makeUuid();
    const Publisher publisher(sourcePath, source, sinkPath, sink);

    // It gives one block and is then in the middle of the second one for ever.
    bool first = true;
    const auto stallingDevice = streambuf::makeDevice(
        stalling,
        [&first](std::int64_t count) {
            if (!std::exchange(first, false)) {
                std::promise<void>().get_future().wait();
            }
            return std::string(static_cast<std::size_t>(count), '.');
        },
        streambuf::noWriteFunction(), streambuf::noSeekOffFunction(),
        streambuf::noSeekPosFunction(), 4096);

    remoting::EndpointOptions options;
    options.positionPerConnection = true;
    const remoting::Endpoint endpoint(options);
    std::cout << source << '\n' << sink << '\n' << stalling << std::endl;
    std::string line;
    std::getline(std::cin, line);
}

} // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 3) {
        std::cerr << "Usage: orvi-demo-publisher SOURCE SINK\n"
                     "Prints the UUIDs of SOURCE, of SINK and of a device that stalls, and serves\n"
                     "them to other processes until a line comes in.\n";
        return 2;
    }
    try {
        run(arguments[1], arguments[2]);
    } catch (const std::exception& error) {
        std::cerr << "orvi-demo-publisher: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
