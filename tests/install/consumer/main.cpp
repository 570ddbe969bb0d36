#include <streambuf/StreamBuffer.hpp>

#include <orvi/core/InvocationErrors.hpp>

#include <boost/uuid/uuid_io.hpp>

#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace streambuf = agent::orvi::streambuf;

namespace {

int failures = 0;

void check(bool condition, const char* what) {
    if (!condition) {
        std::cerr << "failed: " << what << '\n';
        ++failures;
    }
}

/// The library throws it, this program catches it: both must mean the same type.
bool readFailsAsUnavailable(streambuf::StreamBuffer& connected) {
    try {
        connected.sgetc();
    } catch (const agent::orvi::core::ServiceUnavailable&) {
        return true;
    }
    return false;
}

} // namespace

int main() {
    const boost::uuids::uuid uuid = {
        {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee,
         0xff}};
    std::string closed;
    {
        auto published = std::make_unique<streambuf::StreamBuffer>(
            streambuf::makeDevice(uuid, std::make_shared<std::istringstream>("one two three")));
        check(published->toBytes().at(15) == 0xff, "the UUID's bytes");
        streambuf::StreamBuffer connected =
            streambuf::makeDevice(uuid, [&closed](const boost::uuids::uuid& which) {
                closed = boost::uuids::to_string(which);
            });
        std::istream input(&connected);
        std::string word;
        check(input >> word && word == "one", "reading");
        check(input.seekg(4) && input >> word && word == "two", "reading after a seek");
        input.seekg(0, std::ios::end);
        published.reset();
        check(readFailsAsUnavailable(connected), "reading after the withdrawal");
    }
    check(closed == "00112233-4455-6677-8899-aabbccddeeff", "the close function");

    const auto target = std::make_shared<std::ostringstream>();
    {
        const streambuf::StreamBuffer published = streambuf::makeDevice(uuid, target);
        streambuf::StreamBuffer connected =
            streambuf::makeDevice(uuid, streambuf::noCloseFunction());
        std::ostream(&connected) << "four" << std::flush;
    }
    check(target->str() == "four", "writing");
    return failures == 0 ? 0 : 1;
}
