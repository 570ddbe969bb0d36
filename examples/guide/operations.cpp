/// A stream buffer over four functions.

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>

#include <cstdint>
#include <iostream>
#include <string>

using namespace agent::orvi::streambuf;

int main() {
    // [device]
    std::string bytes = "one two three";
    std::size_t position = 0;

    const auto read = [&](std::int64_t count) {
        std::string result = bytes.substr(position, static_cast<std::size_t>(count));
        position += result.size();
        return result;
    };
    const auto write = [&](const std::string& data) {
        bytes.replace(position, data.size(), data);
        position += data.size();
        return static_cast<std::int64_t>(data.size());
    };
    const auto seekpos = [&](std::streampos target, int /* mode */) {
        if (target < 0 || target > static_cast<std::streamoff>(bytes.size())) {
            return std::streampos(-1);
        }
        position = static_cast<std::size_t>(target);
        return target;
    };
    const auto seekoff = [&](std::int64_t offset, int direction, int mode) {
        const std::size_t start = direction == std::ios_base::beg   ? 0
                                  : direction == std::ios_base::cur ? position
                                                                    : bytes.size();
        return seekpos(static_cast<std::int64_t>(start) + offset, mode);
    };
    // [device]

    // [use]
    const boost::uuids::uuid uuid = boost::uuids::random_generator()();
    StreamBuffer device = makeDevice(uuid, read, write, seekoff, seekpos, 4096);

    std::iostream stream(&device);
    std::string word;
    stream >> word; // calls read(4096)
    std::cout << word << '\n';

    stream.seekp(0, std::ios_base::end); // calls seekoff
    stream << " four" << std::flush;     // calls write(" four")
    std::cout << bytes << '\n';

    stream.seekg(4); // calls seekpos
    stream >> word;  // calls read(4096)
    std::cout << word << '\n';
    // [use]

    // [ask]
    stream.seekg(0);
    stream >> word;                      // calls read(4096): everything is read ahead
    std::cout << stream.tellg() << '\n'; // calls seekoff: what was read ahead is dropped
    stream >> word;                      // calls read(4096): nothing is left
    std::cout << (stream.eof() ? "the end" : word) << '\n';
    // [ask]

    // [count]
    stream.clear();
    stream.seekg(0);
    word.resize(4);
    stream.read(word.data(), 4);
    const std::streamoff here = stream.gcount(); // counted, not asked for
    stream.seekg(here + 4);                      // not seekg(4, std::ios_base::cur)
    stream >> word;
    std::cout << word << '\n';
    // [count]
}
