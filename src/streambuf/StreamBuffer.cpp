#include "streambuf/StreamBuffer.hpp"

#include "streambuf/StreamBufferImpl.hpp"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace agent::orvi::streambuf {
namespace {

std::streampos invalidPosition() {
    return std::streamoff(-1);
}

/// A full buffer counts as written by the low 32 bits of the device's answer; an answer of -1
/// therefore counts as a full write. Publishers rely on it.
bool tookFullBuffer(std::int64_t written, std::size_t bufferSize) {
    return static_cast<std::uint32_t>(written) >= bufferSize;
}

/// A buffer of size 0 works as one of size 1 from its first use on. One character fits into the
/// string itself, so this neither allocates nor throws.
bool growEmptyBuffer(std::string& buffer) {
    if (!buffer.empty()) {
        return false;
    }
    buffer.resize(1, '0');
    return true;
}

/// Put the characters of `result` from `first` on at the start of the buffer. A whole buffer full
/// changes hands without a copy.
void keep(std::string& buffer, std::string& result, std::size_t first) {
    if (first == 0 && result.size() == buffer.size()) {
        buffer.swap(result);
    } else {
        std::memcpy(buffer.data(), result.data() + first, result.size() - first);
    }
}

} // namespace

StreamBuffer::StreamBuffer(std::shared_ptr<details::StreamBufferImpl> impl)
    : impl(std::move(impl)) {
    startAreas();
}

StreamBuffer::StreamBuffer(StreamBuffer&& other) noexcept
    : impl(std::move(other.impl)) {
    startAreas();
    other.clearAreas();
}

StreamBuffer& StreamBuffer::operator=(StreamBuffer&& other) noexcept {
    if (this == &other) {
        return *this;
    }
    // The areas of a direction that the source lacks are null, as they must be here.
    setg(other.eback(), other.gptr(), other.egptr());
    setp(other.pbase(), other.epptr());
    advancePut(other.pptr() - other.pbase());
    other.clearAreas();
    impl = std::move(other.impl);
    return *this;
}

StreamBuffer::~StreamBuffer() {
    if (impl) {
        try {
            StreamBuffer::sync();
        } catch (...) {
            // Documented: output that cannot be written here is lost without a report.
        }
    }
}

std::vector<std::uint8_t> StreamBuffer::toBytes() const {
    if (!impl) {
        throw std::logic_error("The stream buffer has been moved from.");
    }
    return {impl->uuid.begin(), impl->uuid.end()};
}

bool StreamBuffer::canRead() const {
    return impl && impl->read;
}

bool StreamBuffer::canWrite() const {
    return impl && impl->write;
}

void StreamBuffer::startAreas() {
    if (canRead()) {
        emptyGetArea();
    }
    if (canWrite()) {
        emptyPutArea();
    }
}

void StreamBuffer::clearAreas() {
    setg(nullptr, nullptr, nullptr);
    setp(nullptr, nullptr);
}

void StreamBuffer::emptyGetArea() {
    char* begin = impl->getBuffer.data();
    char* end = begin + impl->getBuffer.size();
    setg(begin, end, end);
}

void StreamBuffer::emptyPutArea() {
    char* begin = impl->putBuffer.data();
    setp(begin, begin + impl->putBuffer.size());
}

void StreamBuffer::advancePut(std::streamsize count) {
    // pbump takes an int; a buffer may be larger than that.
    constexpr std::streamsize step = std::numeric_limits<int>::max();
    for (; count > step; count -= step) {
        pbump(static_cast<int>(step));
    }
    pbump(static_cast<int>(count));
}

std::string StreamBuffer::readFromDevice(std::size_t count) {
    std::string result = impl->read(static_cast<std::int64_t>(count));
    if (result.size() > count) {
        throw std::length_error(
            "The device answered a read of " + std::to_string(count) + " characters with " +
            std::to_string(result.size()) + " characters.");
    }
    return result;
}

StreamBuffer::int_type StreamBuffer::underflow() {
    if (!canRead()) {
        return traits_type::eof();
    }
    if (gptr() < egptr()) {
        return traits_type::to_int_type(*gptr());
    }
    std::string& buffer = impl->getBuffer;
    if (growEmptyBuffer(buffer)) {
        emptyGetArea();
    }
    std::string result = readFromDevice(buffer.size());
    const std::size_t got = result.size();
    keep(buffer, result, 0);
    setg(buffer.data(), buffer.data(), buffer.data() + got);
    if (got == 0) {
        return traits_type::eof();
    }
    return traits_type::to_int_type(*gptr());
}

std::streamsize StreamBuffer::xsgetn(char* destination, std::streamsize count) {
    // What the area holds needs no look at the device: without one, the area is empty.
    if (count <= 0) {
        return 0;
    }
    if (count <= egptr() - gptr()) {
        std::memcpy(destination, gptr(), static_cast<std::size_t>(count));
        setg(eback(), gptr() + count, egptr());
        return count;
    }
    return readBeyondGetArea(destination, count);
}

std::streamsize StreamBuffer::readBeyondGetArea(char* destination, std::streamsize count) {
    if (!canRead()) {
        return 0;
    }
    const std::streamsize available = egptr() - gptr();
    std::string& buffer = impl->getBuffer;
    if (growEmptyBuffer(buffer)) {
        emptyGetArea();
    }
    const std::size_t bufferSize = buffer.size();
    const auto rest = static_cast<std::size_t>(count - available);
    // One whole buffer more when the rest is a multiple already: a device that delivers in full
    // always leaves something for the get area.
    const std::size_t request = rest + (bufferSize - rest % bufferSize);
    if (request > static_cast<std::size_t>(std::numeric_limits<std::streamsize>::max())) {
        throw std::length_error(
            "A read of " + std::to_string(count) + " characters is too large to be asked for.");
    }
    if (available > 0) {
        std::memcpy(destination, gptr(), static_cast<std::size_t>(available));
        setg(eback(), egptr(), egptr());
    }
    std::string result = readFromDevice(request);
    const std::size_t got = result.size();
    const std::size_t taken = std::min(got, rest);
    if (taken > 0) {
        std::memcpy(destination + available, result.data(), taken);
    }
    if (got <= rest) {
        emptyGetArea();
        return available + static_cast<std::streamsize>(taken);
    }
    // Keep the buffer in step with the device: it holds the device's last, partly delivered block,
    // so that the characters just handed out can be put back.
    const std::size_t blockStart = rest - rest % bufferSize;
    keep(buffer, result, blockStart);
    setg(buffer.data(), buffer.data() + (rest - blockStart), buffer.data() + (got - blockStart));
    return count;
}

bool StreamBuffer::writeFullPutArea() {
    if (!tookFullBuffer(impl->write(impl->putBuffer), impl->putBuffer.size())) {
        return false;
    }
    emptyPutArea();
    return true;
}

StreamBuffer::int_type StreamBuffer::overflow(int_type character) {
    if (traits_type::eq_int_type(character, traits_type::eof()) || !canWrite()) {
        return traits_type::eof();
    }
    if (growEmptyBuffer(impl->putBuffer)) {
        emptyPutArea();
    }
    if (pptr() == epptr() && !writeFullPutArea()) {
        return traits_type::eof();
    }
    *pptr() = traits_type::to_char_type(character);
    pbump(1);
    return character;
}

std::streamsize StreamBuffer::xsputn(const char* source, std::streamsize count) {
    if (count <= 0) {
        return 0;
    }
    if (count <= epptr() - pptr()) {
        std::memcpy(pptr(), source, static_cast<std::size_t>(count));
        advancePut(count);
        return count;
    }
    return writeBeyondPutArea(source, count);
}

std::streamsize StreamBuffer::writeBeyondPutArea(const char* source, std::streamsize count) {
    if (!canWrite()) {
        return 0;
    }
    if (growEmptyBuffer(impl->putBuffer)) {
        emptyPutArea();
        return StreamBuffer::xsputn(source, count);
    }
    const std::streamsize space = epptr() - pptr();
    const std::streamsize tail = count - space;
    const bool tailFits = tail <= epptr() - pbase();
    // Made before anything is written: what fails for want of memory has written nothing.
    const std::string direct =
        tailFits ? std::string() : std::string(source + space, static_cast<std::size_t>(tail));
    if (space > 0) {
        std::memcpy(pptr(), source, static_cast<std::size_t>(space));
    }
    if (!writeFullPutArea()) {
        return 0;
    }
    if (tailFits) {
        std::memcpy(pptr(), source + space, static_cast<std::size_t>(tail));
        advancePut(tail);
        return count;
    }
    return impl->write(direct) < tail ? 0 : count;
}

int StreamBuffer::sync() {
    if (!canWrite()) {
        return 0;
    }
    const std::streamsize pending = pptr() - pbase();
    if (pending == 0) {
        return 0;
    }
    const std::int64_t written =
        impl->write(std::string(pbase(), static_cast<std::size_t>(pending)));
    if (written == pending) {
        emptyPutArea();
        return 0;
    }
    if (written > 0 && written < pending) {
        std::string& buffer = impl->putBuffer;
        const auto taken = static_cast<std::size_t>(written);
        std::memmove(buffer.data(), buffer.data() + taken, buffer.size() - taken);
        emptyPutArea();
        advancePut(pending - written);
    }
    return -1;
}

bool StreamBuffer::prepareMove(std::ios_base::openmode mode) {
    constexpr auto in = std::ios_base::in;
    constexpr auto out = std::ios_base::out;
    if (mode != in && mode != out && mode != (in | out)) {
        return false;
    }
    const bool input = (mode & in) != 0;
    const bool output = (mode & out) != 0;
    if ((input && !canRead()) || (output && !canWrite())) {
        return false;
    }
    if (input) {
        emptyGetArea();
    }
    return !output || StreamBuffer::sync() == 0;
}

StreamBuffer::pos_type StreamBuffer::seekoff(
    off_type offset, std::ios_base::seekdir direction, std::ios_base::openmode mode) {
    if (!prepareMove(mode)) {
        return invalidPosition();
    }
    return impl->seekoff(offset, static_cast<int>(direction), static_cast<int>(mode));
}

StreamBuffer::pos_type StreamBuffer::seekpos(pos_type position, std::ios_base::openmode mode) {
    if (!prepareMove(mode)) {
        return invalidPosition();
    }
    return impl->seekpos(position, static_cast<int>(mode));
}

} // namespace agent::orvi::streambuf
