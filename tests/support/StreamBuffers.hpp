#pragma once

#include "support/RecordingDevice.hpp"

#include "streambuf/StreamBuffer.hpp"
#include "streambuf/StreamBufferImpl.hpp"

#include <orvi/core/ServiceProvider.hpp>
#include <orvi/frameworksetup/ORVIConfiguration.hpp>

#include <cppmicroservices/ServiceRegistration.h>

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <streambuf>
#include <string>
#include <utility>

/// Ways to make a stream buffer straight over operations: nothing is published and no guard stands
/// between the stream buffer and the device.
namespace agent::orvi::streambuf::test {

/// The UUID whose bytes are 0x00, 0x11, ... 0xff.
inline boost::uuids::uuid exampleUuid() {
    return boost::uuids::string_generator()("00112233-4455-6677-8899-aabbccddeeff");
}

/// The registration of a stream buffer that publishes nothing.
inline cppmicroservices::ServiceRegistrationBase noRegistration() {
    return cppmicroservices::ServiceRegistration<core::ServiceProvider>();
}

/// What an answer to a write may have beyond the 32 bits that count.
inline constexpr std::int64_t lowWord = std::int64_t{1} << 32;

/// The five operations of a device; those left empty are absent.
struct Operations {
    ReadFunction read;
    WriteFunction write;
    SeekOffFunction seekoff;
    SeekPosFunction seekpos;
    CloseFunction close;
};

/// Make a stream buffer over exactly these operations.
inline StreamBuffer makeBuffer(
    Operations operations, std::size_t bufferSize, const boost::uuids::uuid& uuid = exampleUuid()) {
    return details::StreamBufferAccess::make(std::make_shared<details::StreamBufferImpl>(
        uuid, std::move(operations.read), std::move(operations.write),
        std::move(operations.seekoff), std::move(operations.seekpos), std::move(operations.close),
        bufferSize, noRegistration(), frameworksetup::ORVIConfiguration()));
}

/// Return a device's reading and positioning.
template <class Device>
Operations inputOf(const Device& device) {
    return {device.read(), {}, device.seekoff(), device.seekpos(), {}};
}

/// Return a device's writing and positioning.
template <class Device>
Operations outputOf(const Device& device) {
    return {{}, device.write(), device.seekoff(), device.seekpos(), {}};
}

/// Return a device's reading, writing and positioning.
template <class Device>
Operations bothOf(const Device& device) {
    return {device.read(), device.write(), device.seekoff(), device.seekpos(), {}};
}

/// A stream buffer whose protected members and areas can be reached.
class ExposedStreamBuffer : public StreamBuffer {
public:
    explicit ExposedStreamBuffer(StreamBuffer&& other)
        : StreamBuffer(std::move(other)) {}

    using StreamBuffer::overflow;
    using StreamBuffer::seekoff;
    using StreamBuffer::seekpos;
    using StreamBuffer::sync;
    using StreamBuffer::underflow;
    using StreamBuffer::xsgetn;
    using StreamBuffer::xsputn;

    bool hasGetArea() const { return eback() != nullptr; }

    bool hasPutArea() const { return pbase() != nullptr; }

    std::ptrdiff_t getPosition() const { return gptr() - eback(); }

    std::ptrdiff_t getEnd() const { return egptr() - eback(); }

    std::ptrdiff_t putPosition() const { return pptr() - pbase(); }

    std::ptrdiff_t putEnd() const { return epptr() - pbase(); }

    /// Return the characters of the get area from its begin to its end, delivered ones included.
    std::string getCharacters() const { return {eback(), egptr()}; }

    /// Return the characters of the put area that wait to be written.
    std::string pendingCharacters() const { return {pbase(), pptr()}; }
};

/// Make a stream buffer over exactly these operations, with its protected members in reach.
inline ExposedStreamBuffer makeExposedBuffer(Operations operations, std::size_t bufferSize) {
    return ExposedStreamBuffer(makeBuffer(std::move(operations), bufferSize));
}

/// Read `count` characters with one bulk read.
inline std::string take(std::streambuf& buffer, std::size_t count) {
    std::string result(count, '\0');
    result.resize(
        static_cast<std::size_t>(buffer.sgetn(result.data(), static_cast<std::streamsize>(count))));
    return result;
}

/// Write `text` with one bulk write and return its count.
inline std::streamsize put(std::streambuf& buffer, const std::string& text) {
    return buffer.sputn(text.data(), static_cast<std::streamsize>(text.size()));
}

/// Return `count` printable characters from index `first` of an endless sequence whose period is a
/// prime, so that a misplaced block shows.
inline std::string pattern(std::size_t count, std::size_t first = 0) {
    std::string result(count, '\0');
    for (std::size_t index = 0; index < count; ++index) {
        result[index] = static_cast<char>('!' + (first + index) % 89);
    }
    return result;
}

} // namespace agent::orvi::streambuf::test
