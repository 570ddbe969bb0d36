#pragma once

#include "streambuf/StreamBuffer.hpp"

#include <cstdint>
#include <string>

namespace agent::orvi::streambuf::details {

/// What a published device runs when another component calls one of its methods. Each owns its
/// copy of the (guarded) operation and decodes the codes in which seek arguments travel.
///
/// Thread safety: as the operation's.
struct ReadHandler {
    std::string operator()(std::int64_t count) const;

    ReadFunction operation;
};

struct WriteHandler {
    std::int64_t operator()(const std::string& data) const;

    WriteFunction operation;
};

struct SeekOffHandler {
    std::int64_t operator()(std::int64_t offset, int directionCode, int modeCode) const;

    SeekOffFunction operation;
};

struct SeekPosHandler {
    std::int64_t operator()(std::int64_t position, int modeCode) const;

    SeekPosFunction operation;
};

} // namespace agent::orvi::streambuf::details
