/// A stream buffer over a file stream.

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/random_generator.hpp>

#include <fstream>
#include <iostream>
#include <string>

using namespace agent::orvi::streambuf;

int main() {
    const boost::uuids::uuid uuid = boost::uuids::random_generator()();

    // [file]
    using std::ios_base;
    std::fstream file("notes.txt", ios_base::in | ios_base::out | ios_base::trunc);
    StreamBuffer device = makeDevice(uuid, file, 65536);

    std::iostream stream(&device);
    stream << "first line\nsecond line\n" << std::flush;

    stream.seekg(0);
    for (std::string line; std::getline(stream, line);) {
        std::cout << line << '\n';
    }
    // [file]
}
