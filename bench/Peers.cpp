#include "Peers.hpp"

#include "MemoryDevice.hpp"
#include "MinimalStreamBuffer.hpp"

#include <streambuf/StreamBuffer.hpp>

#include <boost/iostreams/categories.hpp>
#include <boost/iostreams/positioning.hpp>
#include <boost/iostreams/stream_buffer.hpp>
#include <boost/uuid/uuid.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <unistd.h>

namespace agent::orvi::bench {
namespace {

/// The four operations as Boost wants them.
class BoostDevice {
public:
    using char_type = char;
    using category = boost::iostreams::seekable_device_tag;

    explicit BoostDevice(const MemoryDevice& device)
        : deviceRead(device.read())
        , deviceWrite(device.write())
        , deviceSeek(device.seekoff()) {}

    std::streamsize read(char* destination, std::streamsize count) {
        const std::string result = deviceRead(count);
        std::copy_n(result.data(), result.size(), destination);
        return result.empty() ? -1 : static_cast<std::streamsize>(result.size());
    }

    std::streamsize write(const char* source, std::streamsize count) {
        return deviceWrite(std::string(source, static_cast<std::size_t>(count)));
    }

    std::streampos seek(boost::iostreams::stream_offset offset, std::ios_base::seekdir direction) {
        constexpr auto both = std::ios_base::in | std::ios_base::out;
        return deviceSeek(offset, static_cast<int>(direction), static_cast<int>(both));
    }

private:
    streambuf::ReadFunction deviceRead;
    streambuf::WriteFunction deviceWrite;
    streambuf::SeekOffFunction deviceSeek;
};

using OwnedBuffer = std::unique_ptr<std::streambuf>;

OwnedBuffer openOurs() {
    static const MemoryDevice device;
    return std::make_unique<streambuf::StreamBuffer>(streambuf::makeDevice(
        boost::uuids::uuid{{0xbe}}, device.read(), device.write(), device.seekoff(),
        device.seekpos(), bufferSize));
}

OwnedBuffer openMinimal() {
    static const MemoryDevice device;
    return std::make_unique<MinimalStreamBuffer>(
        device.read(), device.write(), device.seekpos(), bufferSize);
}

OwnedBuffer openBoost() {
    static const MemoryDevice device;
    return std::make_unique<boost::iostreams::stream_buffer<BoostDevice>>(
        BoostDevice(device), static_cast<std::streamsize>(bufferSize));
}

OwnedBuffer openStringBuffer() {
    return std::make_unique<std::stringbuf>(source(), std::ios_base::in | std::ios_base::out);
}

/// A file that holds the source, in memory where the machine has such a file system. It vanishes
/// with the program.
class SourceFile {
public:
    SourceFile() {
        const std::filesystem::path memory = "/dev/shm";
        const auto folder =
            std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
        name = folder / "orvi-bench-XXXXXX";
        const int file = ::mkstemp(name.data());
        if (file == -1) {
            throw std::runtime_error("No temporary file can be made.");
        }
        ::close(file);
        std::ofstream(name, std::ios_base::binary) << source();
    }

    ~SourceFile() { std::filesystem::remove(name); }

    std::string name;
};

/// Own the memory that a `std::filebuf` uses.
class FileBuffer : public std::filebuf {
public:
    FileBuffer()
        : memory(bufferSize, '\0') {
        static const SourceFile file;
        pubsetbuf(memory.data(), static_cast<std::streamsize>(memory.size()));
        open(file.name, std::ios_base::in | std::ios_base::out | std::ios_base::binary);
    }

    ~FileBuffer() override { close(); } // writes from the memory that goes next

private:
    std::string memory;
};

OwnedBuffer openFileBuffer() {
    return std::make_unique<FileBuffer>();
}

} // namespace

const std::vector<Peer>& peers() {
    static const std::vector<Peer> all{
        {"orvi", openOurs},          {"minimal", openMinimal},        {"boost", openBoost},
        {"filebuf", openFileBuffer}, {"stringbuf", openStringBuffer},
    };
    return all;
}

} // namespace agent::orvi::bench
