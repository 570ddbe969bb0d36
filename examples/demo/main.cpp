/// One component publishes a file, another one reads it, seeks in it and writes it back. They share
/// two UUIDs and nothing else.

#include "Publisher.hpp"
#include "Reader.hpp"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <chrono>
#include <exception>
#include <iomanip>
#include <iostream>

namespace {

constexpr double bytesPerMegabyte = 1e6;

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void run(char** arguments) {
    const std::string sourcePath = arguments[1];
    const std::string copyPath = arguments[2];
    const std::string sinkPath = arguments[3];
    const std::string regionPath = arguments[4];
    const std::uint64_t regionOffset = std::stoull(arguments[5]);
    const std::uint64_t regionLength = std::stoull(arguments[6]);

    boost::uuids::random_generator makeUuid;
    const boost::uuids::uuid sourceUuid = makeUuid();
    const boost::uuids::uuid sinkUuid = makeUuid();
    const Publisher publisher(sourcePath, sourceUuid, sinkPath, sinkUuid);
    std::cout << "publisher  offers the file for reading as " << sourceUuid << '\n'
              << "publisher  offers an empty file for writing as " << sinkUuid << '\n';

    auto start = std::chrono::steady_clock::now();
    const std::uint64_t count = readAll(sourceUuid, copyPath);
    const double megabytes = static_cast<double>(count) / bytesPerMegabyte;
    std::cout << std::fixed << std::setprecision(1);
    std::cout << "reader     read " << count << " bytes (" << megabytes / secondsSince(start)
              << " MB/s)\n";

    readRegion(sourceUuid, regionOffset, regionLength, regionPath);
    std::cout << "reader     moved to byte " << regionOffset << " and read " << regionLength
              << " bytes\n";

    start = std::chrono::steady_clock::now();
    writeAll(sinkUuid, copyPath);
    std::cout << "reader     wrote " << count << " bytes back (" << megabytes / secondsSince(start)
              << " MB/s)\n";
}

} // namespace

int main(int argumentCount, char** arguments) {
    if (argumentCount != 7) {
        std::cerr << "Usage: orvi-demo SOURCE COPY SINK REGION OFFSET LENGTH\n"
                     "Publishes SOURCE for reading and SINK for writing; copies SOURCE into COPY,\n"
                     "LENGTH bytes from OFFSET on into REGION, and COPY into SINK through them.\n";
        return 2;
    }
    try {
        run(arguments);
    } catch (const std::exception& error) {
        std::cerr << "orvi-demo: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
