#pragma once

#ifdef __SANITIZE_THREAD__
#include <sanitizer/tsan_interface.h>
#endif

namespace agent::orvi::remoting::details {

/// Something that a completion queue reports when it has been done.
///
/// Who handles the event knows what was known to who started the operation: the queue sees to that.
/// ThreadSanitizer has to be told, since it does not see into gRPC.
class Operation {
public:
    /// The operation has been done, or failed.
    virtual void completed(bool ok) = 0;

    /// Return what to start the operation with, now.
    void* tag() noexcept {
#ifdef __SANITIZE_THREAD__
        __tsan_release(this);
#endif
        return this;
    }

    /// Return the operation that has been started with a tag, now that its event is there.
    static Operation& ofTag(void* tag) noexcept {
#ifdef __SANITIZE_THREAD__
        __tsan_acquire(tag);
#endif
        return *static_cast<Operation*>(tag);
    }

protected:
    ~Operation() = default;
};

/// One of the operations that a stream has under way at times.
template <class Stream>
class StreamOperation final : public Operation {
public:
    using Completed = void (Stream::*)(bool ok);

    StreamOperation(Stream& stream, Completed completion)
        : stream(stream)
        , completion(completion) {}

    void completed(bool ok) override { (stream.*completion)(ok); }

    bool underWay = false;

private:
    Stream& stream;
    const Completed completion;
};

} // namespace agent::orvi::remoting::details
