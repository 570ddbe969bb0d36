#pragma once

#include "streambuf/StreamBuffer.hpp"

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <ios>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf::test {

enum class Operation { read, write, seekoff, seekpos, close };

/// One call that a device saw, with its argument values.
struct Call {
    Operation operation;
    std::vector<std::int64_t> numbers; ///< In the order of the operation's parameters.
    std::string data;                  ///< What `write` was given, or the UUID text of `close`.

    friend bool operator==(const Call&, const Call&) = default;

    friend std::ostream& operator<<(std::ostream& out, const Call& call) {
        constexpr const char* names[] = {"read", "write", "seekoff", "seekpos", "close"};
        out << names[static_cast<int>(call.operation)] << '(';
        for (const std::int64_t number : call.numbers) {
            out << number << ' ';
        }
        constexpr std::size_t shown = 40;
        if (call.data.size() <= shown) {
            return out << call.data << ')';
        }
        return out << call.data.substr(0, shown) << "... " << call.data.size() << " characters)";
    }
};

inline Call readCall(std::int64_t count) {
    return {Operation::read, {count}, {}};
}

inline Call writeCall(std::string data) {
    return {Operation::write, {}, std::move(data)};
}

inline Call
seekOffCall(std::int64_t offset, std::ios_base::seekdir direction, std::ios_base::openmode mode) {
    return {
        Operation::seekoff,
        {offset, static_cast<std::int64_t>(direction), static_cast<std::int64_t>(mode)},
        {}};
}

inline Call seekPosCall(std::int64_t position, std::ios_base::openmode mode) {
    return {Operation::seekpos, {position, static_cast<std::int64_t>(mode)}, {}};
}

inline Call closeCall(const boost::uuids::uuid& uuid) {
    return {Operation::close, {}, boost::uuids::to_string(uuid)};
}

/// What one call of a device does instead of its usual work.
///
/// `amount` is, for a read, how many characters it answers with, whatever was asked for (zeros
/// follow the device's last one); for a write, the count it reports, having taken that many as far
/// as they exist; for a seek, the position it answers with, without moving.
struct Reply {
    std::int64_t amount = 0;
    std::exception_ptr exception;

    static Reply with(std::int64_t amount) { return {amount, nullptr}; }

    template <class Exception>
    static Reply throwing(const Exception& exception) {
        return {0, std::make_exception_ptr(exception)};
    }
};

/// A device in memory that records every call and can be told how to misbehave.
///
/// Input and output have a position each. A seek with both modes moves both; from the current
/// position it starts at the input one. Positions outside the bytes are refused with -1. Writing
/// at the end makes the device longer.
///
/// The operations share the device's state and may outlive the device object. Thread-safe.
class RecordingDevice {
public:
    /// Chooses what a call does by its operation, its number (from 1, per operation) and the
    /// amount it was given; nothing means the usual work.
    using Policy = std::function<std::optional<Reply>(Operation, int number, std::int64_t amount)>;

    explicit RecordingDevice(std::string bytes = {}) { state->bytes = std::move(bytes); }

    ReadFunction read() const {
        return [state = state](std::int64_t count) { return state->read(count); };
    }

    WriteFunction write() const {
        return [state = state](const std::string& data) { return state->write(data); };
    }

    SeekOffFunction seekoff() const {
        return [state = state](std::int64_t offset, int direction, int mode) {
            return state->seekoff(offset, direction, mode);
        };
    }

    SeekPosFunction seekpos() const {
        return [state = state](std::streampos position, int mode) {
            return state->seekpos(position, mode);
        };
    }

    CloseFunction close() const {
        return [state = state](const boost::uuids::uuid& uuid) {
            const std::lock_guard lock(state->mutex);
            state->begin({Operation::close, {}, boost::uuids::to_string(uuid)}, 0);
        };
    }

    /// Let the `number`-th call of `operation` (the first is 1) be answered by `reply`.
    void onCall(Operation operation, int number, Reply reply) {
        const std::lock_guard lock(state->mutex);
        state->replies[{operation, number}] = std::move(reply);
    }

    /// Let every call of `operation` that has no reply of its own be answered by `reply`.
    void always(Operation operation, const Reply& reply) {
        const std::lock_guard lock(state->mutex);
        state->policies[operation] = [reply](Operation, int, std::int64_t) { return reply; };
    }

    /// Let `policy` decide about every call of every operation that has no reply of its own.
    void decideBy(const Policy& policy) {
        const std::lock_guard lock(state->mutex);
        for (const Operation operation :
             {Operation::read, Operation::write, Operation::seekoff, Operation::seekpos,
              Operation::close}) {
            state->policies[operation] = policy;
        }
    }

    /// Return all calls so far, oldest first.
    std::vector<Call> calls() const {
        const std::lock_guard lock(state->mutex);
        return state->calls;
    }

    /// Return the calls since the last `takeCalls`, oldest first.
    std::vector<Call> takeCalls() {
        const std::lock_guard lock(state->mutex);
        return std::exchange(state->calls, {});
    }

    std::string bytes() const {
        const std::lock_guard lock(state->mutex);
        return state->bytes;
    }

private:
    struct State {
        std::mutex mutex;
        std::string bytes;
        std::size_t input = 0;
        std::size_t output = 0;
        std::vector<Call> calls;
        std::map<Operation, int> counts;
        std::map<std::pair<Operation, int>, Reply> replies;
        std::map<Operation, Policy> policies;

        std::optional<Reply> begin(Call call, std::int64_t amount) {
            const Operation operation = call.operation;
            calls.push_back(std::move(call));
            const int number = ++counts[operation];
            std::optional<Reply> reply;
            if (const auto found = replies.find({operation, number}); found != replies.end()) {
                reply = found->second;
            } else if (const auto policy = policies.find(operation); policy != policies.end()) {
                reply = policy->second(operation, number, amount);
            }
            if (reply && reply->exception) {
                std::rethrow_exception(reply->exception);
            }
            return reply;
        }

        std::string read(std::int64_t count) {
            const std::lock_guard lock(mutex);
            const auto reply = begin(readCall(count), count);
            const std::int64_t amount = std::max<std::int64_t>(reply ? reply->amount : count, 0);
            std::string result = bytes.substr(input, static_cast<std::size_t>(amount));
            input += result.size();
            if (reply) {
                result.resize(static_cast<std::size_t>(amount));
            }
            return result;
        }

        std::int64_t write(const std::string& data) {
            const std::lock_guard lock(mutex);
            const auto size = static_cast<std::int64_t>(data.size());
            const auto reply = begin(writeCall(data), size);
            const std::int64_t amount = reply ? reply->amount : size;
            const auto taken = static_cast<std::size_t>(std::clamp<std::int64_t>(amount, 0, size));
            const std::size_t replaced = std::min(taken, bytes.size() - output);
            bytes.replace(output, replaced, data, 0, taken);
            output += taken;
            return amount;
        }

        std::streampos seekoff(std::int64_t offset, int direction, int mode) {
            const std::lock_guard lock(mutex);
            const auto reply = begin({Operation::seekoff, {offset, direction, mode}, {}}, offset);
            if (reply) {
                return reply->amount;
            }
            std::size_t start = 0;
            if (direction == static_cast<int>(std::ios_base::end)) {
                start = bytes.size();
            } else if (direction == static_cast<int>(std::ios_base::cur)) {
                start = (mode & static_cast<int>(std::ios_base::in)) != 0 ? input : output;
            }
            return moveTo(static_cast<std::int64_t>(start) + offset, mode);
        }

        std::streampos seekpos(std::streampos position, int mode) {
            const std::lock_guard lock(mutex);
            const std::int64_t target = std::streamoff(position);
            const auto reply = begin({Operation::seekpos, {target, mode}, {}}, target);
            return reply ? std::streampos(reply->amount) : moveTo(target, mode);
        }

        std::streampos moveTo(std::int64_t target, int mode) {
            if (target < 0 || target > static_cast<std::int64_t>(bytes.size())) {
                return std::streamoff(-1);
            }
            if ((mode & static_cast<int>(std::ios_base::in)) != 0) {
                input = static_cast<std::size_t>(target);
            }
            if ((mode & static_cast<int>(std::ios_base::out)) != 0) {
                output = static_cast<std::size_t>(target);
            }
            return target;
        }
    };

    std::shared_ptr<State> state = std::make_shared<State>();
};

} // namespace agent::orvi::streambuf::test
