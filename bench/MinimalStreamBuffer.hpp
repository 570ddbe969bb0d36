#pragma once

#include <streambuf/StreamBuffer.hpp>

#include <cstddef>
#include <ios>
#include <streambuf>
#include <string>

namespace agent::orvi::bench {

/// What one would write by hand over the four operations: separate buffers for both directions,
/// large requests go straight to the device. No publication, no rules for short counts.
///
/// Thread safety: single-thread.
class MinimalStreamBuffer : public std::streambuf {
public:
    MinimalStreamBuffer(
        streambuf::ReadFunction read, streambuf::WriteFunction write,
        streambuf::SeekPosFunction seekpos, std::size_t bufferSize);

protected:
    int_type underflow() override;
    std::streamsize xsgetn(char* destination, std::streamsize count) override;
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* source, std::streamsize count) override;
    int sync() override;
    pos_type seekpos(pos_type position, std::ios_base::openmode mode) override;

private:
    streambuf::ReadFunction deviceRead;
    streambuf::WriteFunction deviceWrite;
    streambuf::SeekPosFunction deviceSeek;
    std::string getBuffer;
    std::string putBuffer;
};

} // namespace agent::orvi::bench
