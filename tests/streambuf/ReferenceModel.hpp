#pragma once

#include "support/StreamBuffers.hpp"

#include <cstddef>
#include <cstdint>
#include <ios>
#include <string>

namespace agent::orvi::streambuf::test {

/// What a stream buffer over some operations must do, written down once more as plainly as
/// possible: strings and indices, one character at a time, no standard stream buffer beneath.
class ReferenceModel {
public:
    ReferenceModel(const Operations& operations, std::size_t bufferSize);

    int sgetc();
    int sbumpc();
    int snextc();
    int sungetc();
    int sputbackc(char character);
    std::int64_t inAvail() const;
    std::int64_t sgetn(std::string& destination, std::int64_t count);

    int sputc(char character);
    std::int64_t sputn(const std::string& source);
    int sync();

    std::int64_t
    seekoff(std::int64_t offset, std::ios_base::seekdir direction, std::ios_base::openmode mode);
    std::int64_t seekpos(std::int64_t position, std::ios_base::openmode mode);

    /// Become what a stream buffer move-constructed from this one is.
    void moveConstruct();

    /// Flush and close as a destructor does.
    void destroy();

    /// Close without a flush, as the target of a move assignment does with its old device.
    void release();

    // Where the areas stand, in the terms of the stream buffer.
    std::ptrdiff_t getPosition() const { return static_cast<std::ptrdiff_t>(getCurrent); }

    std::ptrdiff_t getEnd() const { return static_cast<std::ptrdiff_t>(getLimit); }

    std::ptrdiff_t putPosition() const { return static_cast<std::ptrdiff_t>(putCurrent); }

    std::ptrdiff_t putEnd() const { return static_cast<std::ptrdiff_t>(putBuffer.size()); }

    std::string getCharacters() const { return getBuffer.substr(0, getLimit); }

    std::string pendingCharacters() const { return putBuffer.substr(0, putCurrent); }

private:
    std::string askDevice(std::size_t count);
    int underflow();
    bool flushWholeBuffer();
    void dropReadAhead();
    bool prepareToMove(std::ios_base::openmode mode);

    Operations operations;
    std::string getBuffer;
    std::size_t getCurrent = 0;
    std::size_t getLimit = 0;
    std::string putBuffer;
    std::size_t putCurrent = 0;
};

} // namespace agent::orvi::streambuf::test
