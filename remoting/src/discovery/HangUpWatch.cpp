#include "discovery/HangUpWatch.hpp"

#include "carrier/AwaitMemory.hpp"
#include "discovery/Descriptor.hpp"
#include "discovery/SystemCall.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/epoll.h>

namespace agent::orvi::remoting::details {

namespace {
class HangUps;
}

class HangUpWatch::State : public std::enable_shared_from_this<State> {
public:
    State(HangUps& hangUps, Descriptor connection, std::function<void()> hungUp)
        : hangUps(hangUps)
        , connection(std::move(connection))
        , hungUp(std::move(hungUp)) {}

    void start();
    void close() noexcept;
    void report();

    std::uint64_t number = 0; ///< What it is among the others; set when it begins.

private:
    HangUps& hangUps;
    Descriptor connection;
    const std::function<void()> hungUp;
    bool closed = false;
};

namespace {

/// Waits for all connections of a housekeeper.
///
/// Asio waits for all that can happen on a socket, data included, but not for a TCP peer that has
/// closed. Therefore the connections are in an epoll set of their own, and that set is what Asio
/// waits for.
class HangUps : public boost::asio::execution_context::service {
public:
    using key_type = HangUps;
    inline static boost::asio::execution_context::id id;

    explicit HangUps(boost::asio::execution_context& owner)
        : service(owner)
        , readiness(static_cast<boost::asio::io_context&>(owner)) {
        Descriptor made(
            checked(::epoll_create1(EPOLL_CLOEXEC), [] { return "Watch connections"; }));
        boost::system::error_code error;
        readiness.assign(made.get(), error);
        check(error, "Watch connections");
        made.release();
        wait();
    }

    void add(int connection, std::shared_ptr<HangUpWatch::State> watch) {
        std::uint64_t number = 0;
        {
            const std::lock_guard lock(mutex);
            number = watch->number = ++lastNumber;
            watches.emplace(number, std::move(watch));
        }
        epoll_event event{};
        event.events = EPOLLRDHUP | EPOLLONESHOT; // errors and hang-ups come unasked
        event.data.u64 = number;
        if (::epoll_ctl(readiness.native_handle(), EPOLL_CTL_ADD, connection, &event) != 0) {
            const int error = errno;
            take(number);
            throw std::system_error(error, std::generic_category(), "Watch a connection");
        }
    }

    /// Also called for what has been reported already.
    void remove(std::uint64_t number, int connection) noexcept {
        take(number);
        // A forked child may keep the connection open, so that closing it would not be enough.
        ::epoll_ctl(readiness.native_handle(), EPOLL_CTL_DEL, connection, nullptr);
    }

private:
    void shutdown() override {
        watches.clear();
        boost::system::error_code ignored;
        readiness.close(ignored);
    }

    void wait() {
        readiness.async_wait(
            boost::asio::posix::stream_descriptor::wait_read,
            [this](const boost::system::error_code& error) {
                if (!error) {
                    reportSome();
                    awaitMemoryFor([this] { wait(); });
                }
            });
    }

    void reportSome() {
        std::array<epoll_event, 64> events{};
        const int count = ::epoll_wait(
            readiness.native_handle(), events.data(), static_cast<int>(events.size()), 0);
        for (int i = 0; i < count; ++i) {
            if (const auto watch = take(events[static_cast<std::size_t>(i)].data.u64)) {
                watch->report();
            }
        }
    }

    std::shared_ptr<HangUpWatch::State> take(std::uint64_t number) noexcept {
        const std::lock_guard lock(mutex);
        const auto node = watches.extract(number);
        return node ? node.mapped() : nullptr;
    }

    boost::asio::posix::stream_descriptor readiness;
    std::mutex mutex;
    std::uint64_t lastNumber = 0;                                         // guarded by mutex
    std::map<std::uint64_t, std::shared_ptr<HangUpWatch::State>> watches; // guarded by mutex
};

} // namespace

void HangUpWatch::State::start() {
    hangUps.add(connection.get(), shared_from_this());
}

void HangUpWatch::State::close() noexcept {
    if (!closed) {
        closed = true;
        hangUps.remove(number, connection.get());
        connection = {};
    }
}

void HangUpWatch::State::report() {
    if (!closed) {
        close();
        callBack(hungUp);
    }
}

HangUpWatch::HangUpWatch() noexcept = default;

HangUpWatch::HangUpWatch(Housekept<State> state) noexcept
    : state(std::move(state)) {}

HangUpWatch::~HangUpWatch() = default;
HangUpWatch::HangUpWatch(HangUpWatch&&) noexcept = default;
HangUpWatch& HangUpWatch::operator=(HangUpWatch&&) noexcept = default;

HangUpWatch watchHangUp(Housekeeper& housekeeper, int descriptor, std::function<void()> hungUp) {
    Descriptor connection(
        checked(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0), [] { return "Watch a connection"; }));
    auto& hangUps = boost::asio::use_service<HangUps>(housekeeper.context());
    Housekept<HangUpWatch::State> state(
        housekeeper,
        std::make_shared<HangUpWatch::State>(hangUps, std::move(connection), std::move(hungUp)));
    state->start();
    return HangUpWatch(std::move(state));
}

} // namespace agent::orvi::remoting::details
