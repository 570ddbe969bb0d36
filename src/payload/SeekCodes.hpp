#pragma once

#include <ios>

/// The codes in which seek arguments travel between components. They are numbers of the protocol,
/// independent of the values that a standard library gives its enumerators.
namespace agent::orvi::streambuf::details {

enum DirectionCode : int { currentDirection = 0, beginDirection = 1, endDirection = 2 };

enum ModeCode : int { bothModes = 0, inputMode = 1, outputMode = 2 };

/// Encode a `std::ios_base::seekdir` value; anything unknown becomes the current direction.
inline int encodeDirection(int direction) noexcept {
    switch (direction) {
    case std::ios_base::beg:
        return beginDirection;
    case std::ios_base::end:
        return endDirection;
    default:
        return currentDirection;
    }
}

/// Decode a direction code; anything unknown becomes the current direction.
inline int decodeDirection(int code) noexcept {
    switch (code) {
    case beginDirection:
        return std::ios_base::beg;
    case endDirection:
        return std::ios_base::end;
    default:
        return std::ios_base::cur;
    }
}

/// Encode a `std::ios_base::openmode` value; anything but one single direction becomes both.
inline int encodeMode(int mode) noexcept {
    switch (mode) {
    case std::ios_base::in:
        return inputMode;
    case std::ios_base::out:
        return outputMode;
    default:
        return bothModes;
    }
}

/// Decode a mode code; anything unknown becomes both directions.
inline int decodeMode(int code) noexcept {
    switch (code) {
    case inputMode:
        return std::ios_base::in;
    case outputMode:
        return std::ios_base::out;
    default:
        return std::ios_base::in | std::ios_base::out;
    }
}

} // namespace agent::orvi::streambuf::details
