#include "ReferenceModel.hpp"

#include <stdexcept>

namespace agent::orvi::streambuf::test {
namespace {

constexpr int noCharacter = -1;

int value(char character) {
    return static_cast<unsigned char>(character);
}

/// Whether an answer to the write of a whole buffer counts as success: by its low 32 bits.
bool coversBuffer(std::int64_t answer, std::size_t bufferSize) {
    const auto low = static_cast<std::uint64_t>(answer) % (std::uint64_t{1} << 32);
    return low >= bufferSize;
}

} // namespace

ReferenceModel::ReferenceModel(const Operations& operations, std::size_t bufferSize)
    : operations(operations) {
    if (operations.read) {
        getBuffer = std::string(bufferSize, '0');
    }
    if (operations.write) {
        putBuffer = std::string(bufferSize, '0');
    }
    dropReadAhead();
}

void ReferenceModel::dropReadAhead() {
    getCurrent = getBuffer.size();
    getLimit = getBuffer.size();
}

std::string ReferenceModel::askDevice(std::size_t count) {
    const std::string answer = operations.read(static_cast<std::int64_t>(count));
    if (answer.size() > count) {
        throw std::length_error(
            "The device answered a read of " + std::to_string(count) + " characters with " +
            std::to_string(answer.size()) + " characters.");
    }
    return answer;
}

int ReferenceModel::underflow() {
    if (!operations.read) {
        return noCharacter;
    }
    if (getBuffer.empty()) {
        getBuffer = "0";
        dropReadAhead();
    }
    const std::string answer = askDevice(getBuffer.size());
    getCurrent = 0;
    getLimit = answer.size();
    for (std::size_t index = 0; index < answer.size(); ++index) {
        getBuffer[index] = answer[index];
    }
    return answer.empty() ? noCharacter : value(answer[0]);
}

int ReferenceModel::sgetc() {
    return getCurrent < getLimit ? value(getBuffer[getCurrent]) : underflow();
}

int ReferenceModel::sbumpc() {
    const int character = sgetc();
    if (character != noCharacter) {
        ++getCurrent;
    }
    return character;
}

int ReferenceModel::snextc() {
    return sbumpc() == noCharacter ? noCharacter : sgetc();
}

int ReferenceModel::sungetc() {
    if (getCurrent == 0) {
        return noCharacter;
    }
    --getCurrent;
    return value(getBuffer[getCurrent]);
}

int ReferenceModel::sputbackc(char character) {
    if (getCurrent == 0 || getBuffer[getCurrent - 1] != character) {
        return noCharacter;
    }
    --getCurrent;
    return value(character);
}

std::int64_t ReferenceModel::inAvail() const {
    return static_cast<std::int64_t>(getLimit - getCurrent);
}

std::int64_t ReferenceModel::sgetn(std::string& destination, std::int64_t count) {
    if (!operations.read) {
        return 0;
    }
    std::int64_t delivered = 0;
    while (delivered < count && getCurrent < getLimit) {
        destination[static_cast<std::size_t>(delivered++)] = getBuffer[getCurrent++];
    }
    if (delivered >= count) {
        return delivered;
    }
    if (getBuffer.empty()) {
        getBuffer = "0";
        dropReadAhead();
    }
    const std::size_t size = getBuffer.size();
    const auto rest = static_cast<std::size_t>(count - delivered);
    std::size_t request = size;
    while (request <= rest) {
        request += size;
    }
    const std::string answer = askDevice(request);
    for (std::size_t index = 0; index < answer.size() && index < rest; ++index) {
        destination[static_cast<std::size_t>(delivered++)] = answer[index];
    }
    if (answer.size() <= rest) {
        dropReadAhead();
        return delivered;
    }
    const std::string lastBlock = answer.substr(rest / size * size);
    getBuffer.replace(0, lastBlock.size(), lastBlock);
    getCurrent = rest % size;
    getLimit = lastBlock.size();
    return delivered;
}

bool ReferenceModel::flushWholeBuffer() {
    if (!coversBuffer(operations.write(putBuffer), putBuffer.size())) {
        return false;
    }
    putCurrent = 0;
    return true;
}

int ReferenceModel::sputc(char character) {
    if (!operations.write) {
        return noCharacter;
    }
    if (putBuffer.empty()) {
        putBuffer = "0";
    }
    if (putCurrent == putBuffer.size() && !flushWholeBuffer()) {
        return noCharacter;
    }
    putBuffer[putCurrent++] = character;
    return value(character);
}

std::int64_t ReferenceModel::sputn(const std::string& source) {
    if (!operations.write || source.empty()) {
        return 0;
    }
    if (putBuffer.empty()) {
        putBuffer = "0";
    }
    const std::size_t space = putBuffer.size() - putCurrent;
    if (source.size() <= space) {
        putBuffer.replace(putCurrent, source.size(), source);
        putCurrent += source.size();
        return static_cast<std::int64_t>(source.size());
    }
    putBuffer.replace(putCurrent, space, source, 0, space);
    if (!flushWholeBuffer()) {
        return 0;
    }
    const std::string tail = source.substr(space);
    if (tail.size() <= putBuffer.size()) {
        putBuffer.replace(0, tail.size(), tail);
        putCurrent = tail.size();
        return static_cast<std::int64_t>(source.size());
    }
    const auto length = static_cast<std::int64_t>(tail.size());
    return operations.write(tail) < length ? 0 : static_cast<std::int64_t>(source.size());
}

int ReferenceModel::sync() {
    if (!operations.write || putCurrent == 0) {
        return 0;
    }
    const auto pending = static_cast<std::int64_t>(putCurrent);
    const std::int64_t answer = operations.write(pendingCharacters());
    if (answer == pending) {
        putCurrent = 0;
        return 0;
    }
    if (answer > 0 && answer < pending) {
        const std::string kept = putBuffer.substr(static_cast<std::size_t>(answer));
        putBuffer.replace(0, kept.size(), kept);
        putCurrent -= static_cast<std::size_t>(answer);
    }
    return -1;
}

bool ReferenceModel::prepareToMove(std::ios_base::openmode mode) {
    if (mode == std::ios_base::in) {
        if (!operations.read) {
            return false;
        }
        dropReadAhead();
        return true;
    }
    if (mode == std::ios_base::out) {
        return operations.write && sync() == 0;
    }
    if (mode == (std::ios_base::in | std::ios_base::out)) {
        if (!operations.read || !operations.write) {
            return false;
        }
        dropReadAhead();
        return sync() == 0;
    }
    return false;
}

std::int64_t ReferenceModel::seekoff(
    std::int64_t offset, std::ios_base::seekdir direction, std::ios_base::openmode mode) {
    if (!prepareToMove(mode)) {
        return -1;
    }
    return std::streamoff(
        operations.seekoff(offset, static_cast<int>(direction), static_cast<int>(mode)));
}

std::int64_t ReferenceModel::seekpos(std::int64_t position, std::ios_base::openmode mode) {
    if (!prepareToMove(mode)) {
        return -1;
    }
    return std::streamoff(operations.seekpos(position, static_cast<int>(mode)));
}

void ReferenceModel::moveConstruct() {
    dropReadAhead();
    putCurrent = 0;
}

void ReferenceModel::destroy() {
    try {
        sync();
    } catch (...) {
        // lost without a report
    }
    release();
}

void ReferenceModel::release() {
    try {
        if (operations.close) {
            operations.close(exampleUuid());
        }
    } catch (...) {
        // dropped
    }
}

} // namespace agent::orvi::streambuf::test
