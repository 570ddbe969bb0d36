#pragma once

/// @file
/// Publish a byte stream as a device, or connect to one that somebody else published, and use it
/// as an ordinary `std::streambuf`.
///
/// Read `makeDevice` first. Use this library when the component that owns the bytes and the
/// component that wants them are built, loaded or run apart; for bytes that stay inside one
/// component, `std::filebuf` and `std::stringbuf` do less and are enough.

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <streambuf>
#include <string>
#include <vector>

/// Marks what the library exports; everything else stays hidden.
#define ORVI_STREAMBUF_EXPORT __attribute__((visibility("default")))
/// Marks the members of exported classes that stay hidden.
#define ORVI_STREAMBUF_LOCAL __attribute__((visibility("hidden")))

namespace agent::orvi::streambuf {

namespace details {
struct StreamBufferImpl;
struct StreamBufferAccess;
} // namespace details

/// Fetches characters from a device.
///
/// Receives the number of characters wanted and returns at most that many. Fewer mean that the
/// device has no more at the moment; an empty string is the end of data. A longer string is
/// refused by the stream buffer with `std::length_error`.
using ReadFunction = std::function<std::string(std::int64_t count)>;

/// Hands characters to a device.
///
/// Returns the number of characters that the device took: the size of `data` on success, less
/// when the write fell short, 0 when it failed. Never negative: -1 for a full buffer counts as
/// having taken all of it.
using WriteFunction = std::function<std::int64_t(const std::string& data)>;

/// Moves a device relative to a direction.
///
/// `direction` and `mode` hold the values of `std::ios_base::seekdir` and
/// `std::ios_base::openmode`. Returns the new position, or `std::streampos(-1)` when the device
/// cannot move there.
using SeekOffFunction = std::function<std::streampos(std::int64_t offset, int direction, int mode)>;

/// Moves a device to an absolute position.
///
/// `mode` holds a value of `std::ios_base::openmode`. Returns the new position, or
/// `std::streampos(-1)` when the device cannot move there.
using SeekPosFunction = std::function<std::streampos(std::streampos position, int mode)>;

/// Tells the owner of a connection that its stream buffer is gone. Receives the device's UUID.
using CloseFunction = std::function<void(const boost::uuids::uuid& uuid)>;

/// Return the empty callable that stands for a device that cannot be read.
///
/// Invoking any of these five results throws `std::bad_function_call`.
ORVI_STREAMBUF_EXPORT ReadFunction noReadFunction() noexcept;

/// Return the empty callable that stands for a device that cannot be written.
ORVI_STREAMBUF_EXPORT WriteFunction noWriteFunction() noexcept;

/// Return the empty callable that stands for a device that cannot move by an offset.
ORVI_STREAMBUF_EXPORT SeekOffFunction noSeekOffFunction() noexcept;

/// Return the empty callable that stands for a device that cannot move to a position.
ORVI_STREAMBUF_EXPORT SeekPosFunction noSeekPosFunction() noexcept;

/// Return the empty callable that stands for "nobody wants to hear of the close".
ORVI_STREAMBUF_EXPORT CloseFunction noCloseFunction() noexcept;

class StreamBuffer;

/// Publish four operations as a device under `uuid` and return a stream buffer over it.
///
/// The device is offered as a service of the process-wide service framework, under the name
/// `orviStreambuf_<uuid text>`, for exactly as long as the returned stream buffer (or the one it
/// is moved into) lives. Destroying the stream buffer ends the publication: calls that are running
/// have finished by then, later ones fail at their callers. Destroying it from inside one of its
/// own operations does not wait for that call.
///
/// An empty operation is not offered. An operation that throws is seen by everybody, the returned
/// stream buffer included, as its neutral result: an empty string (read), 0 (write),
/// `std::streampos(-1)` (seeks).
///
/// The operations are called from the threads of whoever uses the device, several at once; the
/// library adds no serialisation.
///
/// @param uuid identity of the device; publishing the same one twice is allowed, the older is
///        found first.
/// @param read fetches characters; may be empty.
/// @param write takes characters; may be empty.
/// @param seekoff moves by an offset; may be empty.
/// @param seekpos moves to a position; may be empty.
/// @param bufferSize size in characters of each buffer of the returned stream buffer and of every
///        connected one; 0 is published as such and buffers single characters.
/// @return the publisher's own stream buffer, which owns the publication.
/// @throws std::runtime_error "Failed to register service." when the framework refuses it.
/// @throws std::length_error, std::bad_alloc when a buffer of that size cannot be made; the
///         service has been withdrawn again.
/// Exceptions of the service framework pass unchanged; nothing stays published after any of them.
ORVI_STREAMBUF_EXPORT StreamBuffer makeDevice(
    const boost::uuids::uuid& uuid, ReadFunction read, WriteFunction write, SeekOffFunction seekoff,
    SeekPosFunction seekpos, std::size_t bufferSize);

/// Connect to the device that some component publishes under `uuid`.
///
/// Blocks until the device is found, 20 seconds at most. The reads, writes and seeks of the
/// returned stream buffer run at the publisher; each blocks without a time limit. Operations that
/// the publisher does not offer are absent here as well.
///
/// An error of a call (the publisher is gone, the call is refused) is an exception of the stream
/// buffer's member, never an end of data; a `std::istream` or `std::ostream` around it sets
/// `badbit`.
///
/// @param uuid identity of the published device.
/// @param close called once with `uuid` when the stream buffer is destroyed; may be empty. It runs
///        on the destroying thread; what it throws is dropped. It is not called when connecting
///        fails.
/// @return a stream buffer over the remote device.
/// @throws std::runtime_error "Stream Buffer with orviStreambuf_<uuid text> streamId was not
///         found." when nothing is published under `uuid` within 20 seconds.
/// @throws std::invalid_argument "invalid stoull argument" when the published buffer size is no
///         number.
/// @throws std::out_of_range "stoull argument out of range" when it does not fit 64 bits.
/// @throws std::length_error, std::bad_alloc when a buffer of that size cannot be made.
/// @throws cppmicroservices::ServiceException "No service is being tracked" when the service
///         vanished while its properties were about to be read.
/// @throws cppmicroservices::BadAnyCastException when a published property is missing or no text.
ORVI_STREAMBUF_EXPORT StreamBuffer makeDevice(const boost::uuids::uuid& uuid, CloseFunction close);

/// Publish an open file for reading and writing.
///
/// The stream is borrowed: keep it alive and open while the device exists. Its buffer is used
/// directly; its state flags are neither read nor changed. What is written may stay in the file's
/// own buffer until that is flushed.
///
/// A read makes room for as many characters as are asked for, however few there are. Without memory
/// for these, it looks like the end of the data, as every read that throws.
///
/// @param uuid identity of the device.
/// @param file the open file.
/// @param bufferSize as for the publishing factory over operations.
/// @return the publisher's own stream buffer.
/// @throws std::runtime_error "makeDevice - File object is invalid. Cannot create streambuf." when
///         the file is not open; otherwise as the publishing factory over operations.
ORVI_STREAMBUF_EXPORT StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::fstream& file, std::size_t bufferSize);

/// Publish an open file for reading; as the overload over `std::fstream`.
///
/// @throws std::runtime_error "makeDevice - Ifstream file object is invalid. Cannot create
///         streambuf." when the file is not open.
ORVI_STREAMBUF_EXPORT StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::ifstream& file, std::size_t bufferSize);

/// Publish an open file for writing; as the overload over `std::fstream`.
///
/// @throws std::runtime_error "makeDevice - Ofstream file object is invalid. Cannot create
///         streambuf." when the file is not open.
ORVI_STREAMBUF_EXPORT StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::ofstream& file, std::size_t bufferSize);

/// Publish a shared input stream, with buffers of 4096 characters.
///
/// The device co-owns the stream. Each operation uses the buffer that is installed in the stream
/// at that moment; while there is none, every operation gives its neutral result.
///
/// A shared stream is published for one direction. A `std::shared_ptr` to a `std::iostream`, such
/// as a `std::stringstream`, fits this overload and the next alike, which the compiler refuses:
/// convert it to the one that is meant, or use the publishing factory over operations for both.
///
/// @param uuid identity of the device.
/// @param stream the stream; its state flags are neither read nor changed.
/// @return the publisher's own stream buffer.
/// @throws std::runtime_error "makeDevice - The istream is ill-formed, so cannot create
///         streambuf." when the pointer is null; otherwise as the publishing factory over
///         operations.
ORVI_STREAMBUF_EXPORT StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::shared_ptr<std::istream> stream);

/// Publish a shared output stream, with buffers of 4096 characters; as the overload over
/// `std::istream`.
///
/// @throws std::runtime_error "makeDevice - The ostream is ill-formed, so cannot create
///         streambuf." when the pointer is null.
ORVI_STREAMBUF_EXPORT StreamBuffer
makeDevice(const boost::uuids::uuid& uuid, std::shared_ptr<std::ostream> stream);

/// A standard character stream buffer over a device, published here or somewhere else.
///
/// Made by the `makeDevice` factories only. Wrap it in a `std::istream`, `std::ostream` or
/// `std::iostream`. It owns the publication or the connection it was made for.
///
/// Reads and writes are buffered with the device's buffer size. A position reported or used by a
/// relative seek on the input side is the device's own, which lies beyond what the caller has
/// consumed by the characters read ahead. A device that reads and writes through one position is
/// moved consistently with `std::ios_base::in | std::ios_base::out`.
///
/// Asking for the input position is a seek, and a seek of the input drops the characters read
/// ahead, also when the device then does not move. So `tellg` between two reads skips up to a
/// buffer of data, for good on a device that cannot move back. Count what is consumed instead, and
/// seek to absolute positions:
///
/// @code
/// stream.seekg(start);
/// stream.read(header, headerSize);
/// const std::streamoff here = start + stream.gcount(); // not stream.tellg()
/// stream.seekg(here + length);                         // not seekg(length, std::ios_base::cur)
/// @endcode
///
/// Thread safety: single-thread, as any standard stream buffer. A member may block for as long as
/// the device takes.
class ORVI_STREAMBUF_EXPORT StreamBuffer : public std::basic_streambuf<char> {
public:
    /// Take over the device of `other`, with fresh, empty buffers.
    ///
    /// Characters that `other` had read ahead are dropped, and characters that were waiting in it
    /// are dropped without being written: call `pubsync` first to keep them. `std::swap` and a
    /// `std::vector` that grows construct in this way. `other` can only be destroyed or assigned to
    /// afterwards.
    StreamBuffer(StreamBuffer&& other) noexcept;

    /// Take over the device of `other` together with its read-ahead and its pending output.
    ///
    /// The device held before is released without a flush: what was pending for it is lost. Call
    /// `pubsync` on this object before to keep it. `other` can only be destroyed or assigned to
    /// afterwards.
    ///
    /// @return `*this`
    StreamBuffer& operator=(StreamBuffer&& other) noexcept;

    StreamBuffer(const StreamBuffer&) = delete;
    StreamBuffer& operator=(const StreamBuffer&) = delete;

    /// Write pending output with one call of the device, then release the device.
    ///
    /// Never throws. Output that the device does not take is lost without a report: call `pubsync`
    /// first to know. On the publisher's side this withdraws the device, waiting for calls in
    /// flight; on the connected side it calls the close function.
    ~StreamBuffer() override;

    /// Return the 16 bytes of the device's UUID, in the order of its text form.
    ///
    /// @throws std::logic_error when this object was moved from.
    std::vector<std::uint8_t> toBytes() const;

protected:
    /// Refill an empty get area with one `read` of the buffer size.
    ///
    /// @return the next character (0 to 255), or end of file when the device has no more or cannot
    ///         be read.
    /// @throws std::length_error when the device answers with more than it was asked for.
    /// Exceptions of the device pass unchanged and leave the buffer as it was.
    int_type underflow() override;

    /// Read `count` characters into `destination`, with at most one `read` of the device.
    ///
    /// The device is asked for what is missing, rounded up to the next multiple of the buffer size
    /// above it.
    ///
    /// @return the number of characters read; fewer than `count` when the device fell short.
    /// @throws std::length_error when the device answers with more than it was asked for, or when
    ///         `count` is too large to be asked for, which consumes nothing.
    /// Exceptions of the device pass unchanged. When its call has failed, the characters read ahead
    /// before it are in `destination` and consumed.
    std::streamsize xsgetn(char* destination, std::streamsize count) override;

    /// Store one character, writing a full buffer out first.
    ///
    /// @return the character, or end of file when `character` is end of file (which is no way to
    ///         force a flush), the device cannot be written, or it did not take the whole buffer.
    /// Exceptions of the device pass unchanged. Unless the character is stored, all that was
    /// pending stays pending, whatever the device has taken of it.
    int_type overflow(int_type character = traits_type::eof()) override;

    /// Write `count` characters from `source`, with at most two calls of the device: the filled
    /// buffer, then the rest if that is longer than the buffer.
    ///
    /// @return `count`, or 0 when the device did not take everything it was given.
    /// @throws std::bad_alloc when there is no memory for the rest; nothing has been written.
    /// Exceptions of the device pass unchanged. When the first call fails, by an exception or by
    /// falling short, what was pending stays pending and nothing of `source` is, whatever the
    /// device has taken of either. When the second one fails, nothing is pending.
    std::streamsize xsputn(const char* source, std::streamsize count) override;

    /// Write the pending characters with one call of the device.
    ///
    /// @return 0 when nothing is pending any more, -1 when the device fell short; what it did not
    ///         take stays pending.
    /// Exceptions of the device pass unchanged; everything stays pending, whatever the device has
    /// taken.
    int sync() override;

    /// Drop the read-ahead (input), flush pending output (output), then move the device.
    ///
    /// The device is asked for a position in the same way, with an offset of 0 from
    /// `std::ios_base::cur`: `std::istream::tellg` drops the read-ahead, which is skipped then.
    /// What has been dropped is not restored when the flush or the move fails. Nothing is dropped
    /// where `mode` is refused or the device lacks the direction.
    ///
    /// @param offset how far to move, in characters.
    /// @param direction where to count from.
    /// @param mode exactly `in`, `out` or `in | out`; anything else fails.
    /// @return the device's new position, or `std::streampos(-1)` when the device lacks the
    ///         direction, the flush failed, or the device cannot move there.
    /// @throws std::bad_function_call when the device can be read or written but not moved.
    /// Exceptions of the device pass unchanged. After one of the flush, all that was pending stays
    /// pending; after one of the move, the device's position is unknown.
    pos_type seekoff(
        off_type offset, std::ios_base::seekdir direction,
        std::ios_base::openmode mode = std::ios_base::in | std::ios_base::out) override;

    /// Move the device to `position`; otherwise as `seekoff`. The read-ahead is dropped here, too,
    /// also when the device then does not move.
    pos_type seekpos(
        pos_type position,
        std::ios_base::openmode mode = std::ios_base::in | std::ios_base::out) override;

private:
    explicit StreamBuffer(std::shared_ptr<details::StreamBufferImpl> impl);

    friend ORVI_STREAMBUF_EXPORT StreamBuffer makeDevice(
        const boost::uuids::uuid& uuid, ReadFunction read, WriteFunction write,
        SeekOffFunction seekoff, SeekPosFunction seekpos, std::size_t bufferSize);
    friend ORVI_STREAMBUF_EXPORT StreamBuffer
    makeDevice(const boost::uuids::uuid& uuid, CloseFunction close);
    friend struct details::StreamBufferAccess; // lets unit tests run over unguarded operations

    ORVI_STREAMBUF_LOCAL bool canRead() const;
    ORVI_STREAMBUF_LOCAL bool canWrite() const;
    ORVI_STREAMBUF_LOCAL void startAreas();
    ORVI_STREAMBUF_LOCAL void clearAreas();
    ORVI_STREAMBUF_LOCAL void emptyGetArea();
    ORVI_STREAMBUF_LOCAL void emptyPutArea();
    ORVI_STREAMBUF_LOCAL void advancePut(std::streamsize count);
    ORVI_STREAMBUF_LOCAL std::string readFromDevice(std::size_t count);
    ORVI_STREAMBUF_LOCAL std::streamsize
    readBeyondGetArea(char* destination, std::streamsize count);
    ORVI_STREAMBUF_LOCAL std::streamsize
    writeBeyondPutArea(const char* source, std::streamsize count);
    ORVI_STREAMBUF_LOCAL bool writeFullPutArea();
    ORVI_STREAMBUF_LOCAL bool prepareMove(std::ios_base::openmode mode);

    std::shared_ptr<details::StreamBufferImpl> impl;
};

} // namespace agent::orvi::streambuf
