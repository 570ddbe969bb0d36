#include "publish/MethodHandlers.hpp"

#include "payload/SeekCodes.hpp"

namespace agent::orvi::streambuf::details {

std::string ReadHandler::operator()(std::int64_t count) const {
    return operation(count);
}

std::int64_t WriteHandler::operator()(const std::string& data) const {
    return operation(data);
}

std::int64_t
SeekOffHandler::operator()(std::int64_t offset, int directionCode, int modeCode) const {
    return operation(offset, decodeDirection(directionCode), decodeMode(modeCode));
}

std::int64_t SeekPosHandler::operator()(std::int64_t position, int modeCode) const {
    return operation(std::streampos(position), decodeMode(modeCode));
}

} // namespace agent::orvi::streambuf::details
