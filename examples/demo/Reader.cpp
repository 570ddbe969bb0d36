#include "Reader.hpp"

#include <streambuf/StreamBuffer.hpp>

#include <fstream>
#include <istream>
#include <ostream>
#include <stdexcept>

namespace streambuf = agent::orvi::streambuf;

namespace {

constexpr std::size_t blockSize = 10'000; // any will do: the stream buffer does the buffering

void require(bool condition, const std::string& message) {
    if (!condition) {
        throw std::runtime_error(message);
    }
}

std::ofstream openForWriting(const std::string& path) {
    std::ofstream file(path, std::ios::binary);
    require(file.is_open(), "Cannot write " + path);
    return file;
}

} // namespace

std::uint64_t readAll(const boost::uuids::uuid& source, const std::string& copyPath) {
    streambuf::StreamBuffer device = streambuf::makeDevice(source, streambuf::noCloseFunction());
    std::istream input(&device);
    std::ofstream copy = openForWriting(copyPath);
    std::uint64_t total = 0;
    std::string block(blockSize, '\0');
    while (input && copy) {
        input.read(block.data(), static_cast<std::streamsize>(block.size()));
        copy.write(block.data(), input.gcount());
        total += static_cast<std::uint64_t>(input.gcount());
    }
    require(copy.flush().good(), "Cannot write " + copyPath);
    require(!input.bad(), "Reading the device failed");
    return total;
}

void readRegion(
    const boost::uuids::uuid& source, std::uint64_t offset, std::uint64_t length,
    const std::string& regionPath) {
    streambuf::StreamBuffer device = streambuf::makeDevice(source, streambuf::noCloseFunction());
    std::istream input(&device);
    input.seekg(static_cast<std::streamoff>(offset));
    std::string region(length, '\0');
    input.read(region.data(), static_cast<std::streamsize>(region.size()));
    require(input.good(), "The device has no such region");
    require(
        openForWriting(regionPath).write(region.data(), input.gcount()).flush().good(),
        "Cannot write " + regionPath);
}

void writeAll(const boost::uuids::uuid& sink, const std::string& copyPath) {
    std::ifstream copy(copyPath, std::ios::binary);
    require(copy.is_open(), "Cannot read " + copyPath);
    streambuf::StreamBuffer device = streambuf::makeDevice(sink, streambuf::noCloseFunction());
    std::ostream output(&device);
    std::string block(blockSize, '\0');
    while (output && copy) {
        copy.read(block.data(), static_cast<std::streamsize>(block.size()));
        output.write(block.data(), copy.gcount());
    }
    require(output.flush().good(), "Writing the device failed");
    require(copy.eof(), "Cannot read " + copyPath);
}
