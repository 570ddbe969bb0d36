#include "discovery/AcceptLoop.hpp"

#include "carrier/AwaitMemory.hpp"
#include "discovery/SystemCall.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

#include <cerrno>
#include <chrono>
#include <utility>

#include <sys/socket.h>

namespace agent::orvi::remoting::details {
namespace {

/// Connections that are accepted before others on the housekeeping thread have their turn.
constexpr int connectionsAtOnce = 64;

/// How long to wait for descriptors or memory to become free.
constexpr std::chrono::milliseconds pauseTime{100};

} // namespace

class AcceptLoop::State : public std::enable_shared_from_this<State> {
public:
    State(boost::asio::io_context& context, Accepted accepted)
        : listening(context)
        , pause(context)
        , accepted(std::move(accepted)) {}

    void start(Descriptor socket) {
        boost::system::error_code error;
        listening.assign(socket.get(), error);
        check(error, "Wait for connections");
        socket.release();
        listening.non_blocking(true, error);
        check(error, "Wait for connections");
        wait();
    }

    void close() noexcept {
        closed = true;
        pause.cancel();
        // A forked child may hold the socket open: nobody shall connect to it all the same.
        ::shutdown(listening.native_handle(), SHUT_RDWR);
        boost::system::error_code ignored;
        listening.close(ignored);
    }

private:
    void wait() {
        listening.async_wait(
            boost::asio::posix::stream_descriptor::wait_read,
            [self = shared_from_this()](const boost::system::error_code& error) {
                if (!error) {
                    self->acceptSome();
                }
            });
    }

    void waitForRoom() {
        pause.expires_after(pauseTime);
        pause.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
            if (!error) {
                self->acceptSome();
            }
        });
    }

    void acceptSome() {
        for (int i = 0; i < connectionsAtOnce && !closed; ++i) {
            Descriptor socket(::accept4(
                listening.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (socket) {
                callBack(accepted, std::move(socket));
            } else if (errno == EAGAIN) {
                break;
            } else if (errno != EINTR && errno != ECONNABORTED) {
                // The connection is still there, and so would be the reason to try again at once.
                awaitMemoryFor([this] { waitForRoom(); });
                return;
            }
        }
        if (!closed) {
            awaitMemoryFor([this] { wait(); });
        }
    }

    boost::asio::posix::stream_descriptor listening;
    boost::asio::steady_timer pause;
    const Accepted accepted;
    bool closed = false;
};

AcceptLoop::AcceptLoop(Housekeeper& housekeeper, Descriptor listening, Accepted accepted)
    : state(housekeeper, std::make_shared<State>(housekeeper.context(), std::move(accepted))) {
    state->start(std::move(listening));
}

AcceptLoop::~AcceptLoop() = default;
AcceptLoop::AcceptLoop(AcceptLoop&&) noexcept = default;
AcceptLoop& AcceptLoop::operator=(AcceptLoop&&) noexcept = default;

} // namespace agent::orvi::remoting::details
