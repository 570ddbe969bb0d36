#include "streambuf/StreamBuffer.hpp"

#include <algorithm>
#include <exception>
#include <fstream>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

constexpr std::size_t sharedStreamBufferSize = 4096;

/// Reaches a borrowed file stream's own file buffer, whatever is installed in its base.
template <class FileStream>
struct FileBuffer {
    FileStream& file;

    std::streambuf* operator()() const { return file.rdbuf(); }
};

/// Reaches the buffer that is installed in a shared stream at the moment of the call.
template <class Stream>
struct InstalledBuffer {
    std::shared_ptr<Stream> stream;

    std::streambuf* operator()() const {
        std::streambuf* const installed = stream->rdbuf();
        if (installed == nullptr) {
            throw std::runtime_error("The stream has no buffer installed.");
        }
        return installed;
    }
};

/// Fetch up to `count` characters into a string that is filled once, by the stream's buffer.
std::string readFrom(std::streambuf& buffer, std::int64_t count) {
    std::string result;
    if (count < 0 || static_cast<std::uint64_t>(count) > result.max_size()) {
        throw std::length_error("string too long");
    }
    std::exception_ptr failure; // must not leave the string half made
    result.resize_and_overwrite(static_cast<std::size_t>(count), [&](char* data, std::size_t) {
        std::streamsize got = 0;
        try {
            got = buffer.sgetn(data, count);
        } catch (...) {
            failure = std::current_exception();
        }
        return static_cast<std::size_t>(std::clamp<std::streamsize>(got, 0, count));
    });
    if (failure) {
        std::rethrow_exception(failure);
    }
    return result;
}

template <class Buffer>
ReadFunction readOver(Buffer buffer) {
    return [buffer](std::int64_t count) { return readFrom(*buffer(), count); };
}

template <class Buffer>
WriteFunction writeOver(Buffer buffer) {
    return [buffer](const std::string& data) -> std::int64_t {
        return buffer()->sputn(data.data(), static_cast<std::streamsize>(data.size()));
    };
}

template <class Buffer>
SeekOffFunction seekOffOver(Buffer buffer) {
    return [buffer](std::int64_t offset, int direction, int mode) {
        return buffer()->pubseekoff(
            offset, static_cast<std::ios_base::seekdir>(direction),
            static_cast<std::ios_base::openmode>(mode));
    };
}

template <class Buffer>
SeekPosFunction seekPosOver(Buffer buffer) {
    return [buffer](std::streampos position, int mode) {
        return buffer()->pubseekpos(position, static_cast<std::ios_base::openmode>(mode));
    };
}

void require(bool condition, const char* message) {
    if (!condition) {
        throw std::runtime_error(message);
    }
}

} // namespace

StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::fstream& file, std::size_t bufferSize) {
    require(file.is_open(), "makeDevice - File object is invalid. Cannot create streambuf.");
    const FileBuffer<std::fstream> buffer{file};
    return makeDevice(
        uuid, readOver(buffer), writeOver(buffer), seekOffOver(buffer), seekPosOver(buffer),
        bufferSize);
}

StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::ifstream& file, std::size_t bufferSize) {
    require(
        file.is_open(), "makeDevice - Ifstream file object is invalid. Cannot create streambuf.");
    const FileBuffer<std::ifstream> buffer{file};
    return makeDevice(
        uuid, readOver(buffer), noWriteFunction(), seekOffOver(buffer), seekPosOver(buffer),
        bufferSize);
}

StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::ofstream& file, std::size_t bufferSize) {
    require(
        file.is_open(), "makeDevice - Ofstream file object is invalid. Cannot create streambuf.");
    const FileBuffer<std::ofstream> buffer{file};
    return makeDevice(
        uuid, noReadFunction(), writeOver(buffer), seekOffOver(buffer), seekPosOver(buffer),
        bufferSize);
}

StreamBuffer makeDevice(const boost::uuids::uuid& uuid, std::shared_ptr<std::istream> stream) {
    require(
        stream != nullptr, "makeDevice - The istream is ill-formed, so cannot create streambuf.");
    const InstalledBuffer<std::istream> buffer{std::move(stream)};
    return makeDevice(
        uuid, readOver(buffer), noWriteFunction(), seekOffOver(buffer), seekPosOver(buffer),
        sharedStreamBufferSize);
}

StreamBuffer makeDevice(const boost::uuids::uuid& uuid, std::shared_ptr<std::ostream> stream) {
    require(
        stream != nullptr, "makeDevice - The ostream is ill-formed, so cannot create streambuf.");
    const InstalledBuffer<std::ostream> buffer{std::move(stream)};
    return makeDevice(
        uuid, noReadFunction(), writeOver(buffer), seekOffOver(buffer), seekPosOver(buffer),
        sharedStreamBufferSize);
}

} // namespace agent::orvi::streambuf
