#include "streambuf/StreamBuffer.hpp"

namespace agent::orvi::streambuf {

ReadFunction noReadFunction() noexcept {
    return {};
}

WriteFunction noWriteFunction() noexcept {
    return {};
}

SeekOffFunction noSeekOffFunction() noexcept {
    return {};
}

SeekPosFunction noSeekPosFunction() noexcept {
    return {};
}

CloseFunction noCloseFunction() noexcept {
    return {};
}

} // namespace agent::orvi::streambuf
