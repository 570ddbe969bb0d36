#pragma once

#include <streambuf/StreamBuffer.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace agent::orvi::bench {

constexpr std::size_t sourceSize = std::size_t{64} << 20;
constexpr std::size_t bufferSize = 8192;

/// Return the bytes that every benchmark reads or writes: lines of text of 1 to 100 characters, the
/// same in every run.
const std::string& source();

/// The four operations on bytes in memory, which every stream buffer that takes operations uses.
///
/// Copies share one position and one memory. Thread safety: single-thread.
class MemoryDevice {
public:
    /// Start at the beginning of a copy of the source.
    MemoryDevice();

    streambuf::ReadFunction read() const;
    streambuf::WriteFunction write() const;
    streambuf::SeekOffFunction seekoff() const;
    streambuf::SeekPosFunction seekpos() const;

private:
    struct State;
    std::shared_ptr<State> state;
};

} // namespace agent::orvi::bench
