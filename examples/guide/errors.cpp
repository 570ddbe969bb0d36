/// How the end of the data, a short write and errors show.

#include <orvi/core/InvocationErrors.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

using namespace agent::orvi::streambuf;

namespace {

// [make]
boost::uuids::random_generator makeUuid;

StreamBuffer makeReader(const boost::uuids::uuid& uuid, ReadFunction read) {
    return makeDevice(
        uuid, std::move(read), noWriteFunction(), noSeekOffFunction(), noSeekPosFunction(), 16);
}

// [make]

void readToTheEnd() {
    const auto uuid = makeUuid();
    const auto published = makeDevice(uuid, std::make_shared<std::istringstream>("one two"));
    StreamBuffer device = makeDevice(uuid, noCloseFunction());

    // [end]
    std::istream input(&device);
    for (std::string word; input >> word;) {
        std::cout << word << '\n';
    }
    std::cout << (input.bad() ? "an error" : "the end") << '\n';
    // [end]
}

void readWhatIsWithdrawn() {
    const auto uuid = makeUuid();
    // [withdrawn]
    std::optional<StreamBuffer> published =
        makeReader(uuid, [](std::int64_t) { return std::string("some data "); });
    StreamBuffer device = makeDevice(uuid, noCloseFunction());
    published.reset();

    std::istream input(&device);
    std::string word;
    input >> word;
    std::cout << (input.bad() ? "an error" : "the end") << '\n';

    try {
        device.sgetc();
    } catch (const agent::orvi::core::ServiceUnavailable& error) {
        std::cout << "ServiceUnavailable\n";
    }
    // [withdrawn]
}

void readFromAThrowingDevice() {
    // [throwing]
    const auto fail = [](std::int64_t) -> std::string { throw std::runtime_error("no medium"); };
    StreamBuffer device = makeReader(makeUuid(), fail);
    std::istream input(&device);
    input.get();
    std::cout << (input.bad() ? "an error" : "the end") << '\n';
    // [throwing]
}

void writeToAFullDevice() {
    // [full]
    const auto takeThree = [](const std::string&) { return std::int64_t{3}; };
    StreamBuffer device = makeDevice(
        makeUuid(), noReadFunction(), takeThree, noSeekOffFunction(), noSeekPosFunction(), 16);
    std::ostream output(&device);
    output << "12345";
    std::cout << (output.good() ? "buffered" : "refused") << '\n';
    output.flush();
    std::cout << (output.good() ? "taken" : "not all taken") << '\n';
    // [full]
}

} // namespace

int main() {
    readToTheEnd();
    readWhatIsWithdrawn();
    readFromAThrowingDevice();
    writeToAFullDevice();
}
