#include "discovery/ProcessWatch.hpp"

#include "carrier/AwaitMemory.hpp"
#include "carrier/ProcessDescriptor.hpp"
#include "discovery/Descriptor.hpp"
#include "discovery/LocalAddress.hpp"
#include "discovery/SystemCall.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include <cerrno>
#include <optional>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77 // newer than the C library
#endif

namespace agent::orvi::remoting::details {

class ProcessWatch::State : public std::enable_shared_from_this<State> {
public:
    State(boost::asio::io_context& context, std::function<void()> ended)
        : context(context)
        , process(context)
        , ended(std::move(ended)) {}

    void start(Descriptor watched) {
        boost::system::error_code error;
        process.assign(watched.get(), error);
        check(error, "Watch a process");
        watched.release();
        wait();
    }

    void reportLater() {
        boost::asio::post(context, [self = shared_from_this()] { self->report(); });
    }

    void close() noexcept {
        closed = true;
        boost::system::error_code ignored;
        process.close(ignored);
    }

private:
    void wait() {
        process.async_wait(
            boost::asio::posix::stream_descriptor::wait_read,
            [self = shared_from_this()](const boost::system::error_code& error) {
                if (error || self->closed) {
                    return;
                }
                if (self->hasEnded()) {
                    self->report();
                } else {
                    awaitMemoryFor([&] { self->wait(); });
                }
            });
    }

    bool hasEnded() {
        pollfd poll{process.native_handle(), POLLIN, 0};
        return ::poll(&poll, 1, 0) == 1;
    }

    void report() {
        if (!closed) {
            close();
            callBack(ended);
        }
    }

    boost::asio::io_context& context;
    boost::asio::posix::stream_descriptor process;
    const std::function<void()> ended;
    bool closed = false;
};

ProcessWatch::ProcessWatch() noexcept = default;

ProcessWatch::ProcessWatch(Housekept<State> state) noexcept
    : state(std::move(state)) {}

ProcessWatch::~ProcessWatch() = default;
ProcessWatch::ProcessWatch(ProcessWatch&&) noexcept = default;
ProcessWatch& ProcessWatch::operator=(ProcessWatch&&) noexcept = default;

namespace {

/// Make a watch of what a system call has returned.
///
/// @param error its error; the kernel does not find processes that have ended.
ProcessWatch
watchOf(Housekeeper& housekeeper, Descriptor process, int error, std::function<void()> ended) {
    if (!process && (error == EMFILE || error == ENFILE || error == ENOMEM)) {
        throw std::system_error(error, std::generic_category(), "Watch a process");
    }
    if (!process && error != ESRCH) {
        return {};
    }
    Housekept<ProcessWatch::State> state(
        housekeeper,
        std::make_shared<ProcessWatch::State>(housekeeper.context(), std::move(ended)));
    if (process) {
        state->start(std::move(process));
    } else {
        state->reportLater();
    }
    return ProcessWatch(std::move(state));
}

} // namespace

ProcessWatch watchProcess(Housekeeper& housekeeper, pid_t process, std::function<void()> ended) {
    Descriptor descriptor(openProcess(process));
    const int error = errno;
    return watchOf(housekeeper, std::move(descriptor), error, std::move(ended));
}

ProcessWatch
watchPeerProcess(Housekeeper& housekeeper, int descriptor, std::function<void()> ended) {
    int process = -1;
    socklen_t length = sizeof(process);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERPIDFD, &process, &length) == 0) {
        return watchOf(housekeeper, Descriptor(process), 0, std::move(ended));
    }
    if (errno == ESRCH) {
        return watchOf(housekeeper, {}, ESRCH, std::move(ended));
    }
    return watchProcess(housekeeper, peerProcess(descriptor), std::move(ended));
}

} // namespace agent::orvi::remoting::details
