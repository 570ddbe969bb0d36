/// Stream buffers over standard streams that are shared.

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>

#include <iostream>
#include <memory>
#include <sstream>

using namespace agent::orvi::streambuf;

int main() {
    boost::uuids::random_generator makeUuid;

    // [shared]
    StreamBuffer source = makeDevice(makeUuid(), std::make_shared<std::istringstream>("a source"));
    std::cout << std::istream(&source).rdbuf() << '\n';

    const auto text = std::make_shared<std::ostringstream>();
    StreamBuffer sink = makeDevice(makeUuid(), text);
    std::ostream(&sink) << "a sink" << std::flush;
    std::cout << text->str() << '\n';
    // [shared]
}
