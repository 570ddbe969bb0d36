#pragma once

#include "carrier/Carrier.hpp"
#include "wire/FrameLimits.hpp"
#include "wire/Messages.hpp"

#include <google/protobuf/io/coded_stream.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace agent::orvi::remoting::details {

/// Encode a frame. The data are not copied: they follow the head, which ends with their length.
///
/// @param head the frame without its data.
/// @param data the next bytes of a text, if any.
/// @throws std::length_error when the frame would be longer than `maximumFrameSize`; the text names
///         both numbers.
OutgoingFrame encodeFrame(const v1::Frame& head, Bytes data = {});

/// Attach data to an encoded head; see `encodeFrame`.
OutgoingFrame attachData(std::string head, Bytes data);

/// Return how many bytes of data fit behind a head of `headSize` bytes.
std::size_t dataRoom(std::size_t headSize) noexcept;

/// Decodes one frame as it arrives: the head first, then the data, in as many pieces as its
/// receiver wants.
///
/// It reads at most `size` bytes of the source and must not outlive it. Fields that it does not
/// know are ignored. After an exception the frame is of no use.
///
/// Thread safety: single-thread.
class FrameReader {
public:
    /// Read a frame of `size` bytes from the current position of `source`.
    FrameReader(google::protobuf::io::ZeroCopyInputStream& source, std::size_t size);

    /// Read everything but the data. Call it first, once.
    ///
    /// @param frame is cleared before.
    /// @throws ProtocolError when the frame is longer than `maximumFrameSize`, is malformed, has
    ///         anything behind its data, or ends too early.
    void readHead(v1::Frame& frame);

    /// Return how many bytes of data have not been read yet.
    std::size_t dataSize() const noexcept { return remaining; }

    /// Read the next `size` bytes of data straight to where they belong. At most `dataSize`.
    ///
    /// @throws ProtocolError when the source ends before.
    void readData(char* destination, std::size_t size);

    /// As `readData`, for callers that must not throw.
    ///
    /// @return whether all `size` bytes were there.
    bool tryReadData(char* destination, std::size_t size) noexcept;

    /// Skip the data that have not been read.
    ///
    /// @throws ProtocolError when the source ends before.
    void skipData();

private:
    bool readField(v1::Frame& frame, std::uint32_t tag);
    bool readMessage(google::protobuf::Message& message);
    bool readDataSize();

    google::protobuf::io::CodedInputStream input;
    std::size_t frameSize;
    std::size_t remaining = 0; // of the data
};

} // namespace agent::orvi::remoting::details
