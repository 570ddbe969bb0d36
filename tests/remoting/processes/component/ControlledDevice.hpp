#pragma once

#include "support/RecordingDevice.hpp"
#include "support/StreamBuffers.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace agent::orvi::remoting::test {

using streambuf::test::Operation;
using streambuf::test::Operations;

/// Return the operation of that name.
///
/// @throws std::invalid_argument when there is none.
Operation operationOf(const std::string& name);

/// Stands before a device: sees every call when it comes, and can stop one.
///
/// The operations may outlive this object. Thread safety: thread-safe.
class ControlledDevice {
public:
    /// Where a call is stopped.
    enum class Point {
        entry,  ///< The device has been called and has done nothing yet.
        exit,   ///< It has done everything and has not returned yet.
        answer, ///< It has returned, and the process can send nothing: see `heldAnswers`.
        error   ///< It is not stopped but throws, as soon as it comes.
    };

    explicit ControlledDevice(Operations device);

    /// Return the operations of the device, watched; those that it lacks are empty.
    Operations operations() const;

    /// Stop the next call of an operation.
    void stopNext(Operation operation, Point point);

    /// Wait until a call has been stopped at its entry or exit.
    void awaitStopped();

    /// Let a stopped call go on.
    void release();

    /// Return all calls that have come, oldest first, each with its first argument or, of a write,
    /// with the length: "read(16) write(5)".
    std::string calls() const;

    /// Return how many calls have been inside at the same time.
    std::size_t overlap() const;

private:
    struct State;

    std::shared_ptr<State> state;
    Operations device;
};

} // namespace agent::orvi::remoting::test
