#include "MinimalStreamBuffer.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace agent::orvi::bench {

MinimalStreamBuffer::MinimalStreamBuffer(
    streambuf::ReadFunction read, streambuf::WriteFunction write,
    streambuf::SeekPosFunction seekpos, std::size_t bufferSize)
    : deviceRead(std::move(read))
    , deviceWrite(std::move(write))
    , deviceSeek(std::move(seekpos))
    , getBuffer(bufferSize, '\0')
    , putBuffer(bufferSize, '\0') {
    setp(putBuffer.data(), putBuffer.data() + putBuffer.size());
}

MinimalStreamBuffer::int_type MinimalStreamBuffer::underflow() {
    const std::string result = deviceRead(static_cast<std::int64_t>(getBuffer.size()));
    std::memcpy(getBuffer.data(), result.data(), result.size());
    setg(getBuffer.data(), getBuffer.data(), getBuffer.data() + result.size());
    return result.empty() ? traits_type::eof() : traits_type::to_int_type(*gptr());
}

std::streamsize MinimalStreamBuffer::xsgetn(char* destination, std::streamsize count) {
    std::streamsize done = 0;
    while (done < count) {
        const std::streamsize wanted = count - done;
        const std::streamsize available = egptr() - gptr();
        if (available > 0) {
            const std::streamsize taken = std::min(available, wanted);
            std::memcpy(destination + done, gptr(), static_cast<std::size_t>(taken));
            gbump(static_cast<int>(taken));
            done += taken;
        } else if (wanted >= static_cast<std::streamsize>(getBuffer.size())) {
            const std::string result = deviceRead(wanted);
            std::memcpy(destination + done, result.data(), result.size());
            return done + static_cast<std::streamsize>(result.size());
        } else if (underflow() == traits_type::eof()) {
            break;
        }
    }
    return done;
}

MinimalStreamBuffer::int_type MinimalStreamBuffer::overflow(int_type character) {
    if (sync() != 0) {
        return traits_type::eof();
    }
    *pptr() = traits_type::to_char_type(character);
    pbump(1);
    return character;
}

std::streamsize MinimalStreamBuffer::xsputn(const char* source, std::streamsize count) {
    if (count > epptr() - pptr()) {
        if (sync() != 0) {
            return 0;
        }
        if (count >= epptr() - pptr()) {
            return deviceWrite(std::string(source, static_cast<std::size_t>(count)));
        }
    }
    std::memcpy(pptr(), source, static_cast<std::size_t>(count));
    pbump(static_cast<int>(count));
    return count;
}

int MinimalStreamBuffer::sync() {
    const auto pending = static_cast<std::size_t>(pptr() - pbase());
    if (pending == 0) {
        return 0;
    }
    const std::int64_t written = pending == putBuffer.size()
                                     ? deviceWrite(putBuffer)
                                     : deviceWrite(std::string(putBuffer.data(), pending));
    setp(putBuffer.data(), putBuffer.data() + putBuffer.size());
    return written == static_cast<std::int64_t>(pending) ? 0 : -1;
}

MinimalStreamBuffer::pos_type
MinimalStreamBuffer::seekpos(pos_type position, std::ios_base::openmode mode) {
    if (sync() != 0) {
        return std::streamoff(-1);
    }
    setg(nullptr, nullptr, nullptr);
    return deviceSeek(position, static_cast<int>(mode));
}

} // namespace agent::orvi::bench
