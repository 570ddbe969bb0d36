#include "discovery/Housekeeper.hpp"

#include "carrier/OwnProcess.hpp"
#include "discovery/BlockedSignals.hpp"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>

#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <pthread.h>

namespace agent::orvi::remoting::details {

struct Housekeeper::Impl {
    void run() noexcept {
        pthread_setname_np(pthread_self(), "orvi-housekeep");
        for (bool stopped = false; !stopped;) {
            try {
                context.run();
                stopped = true;
            } catch (...) {
                // A handler's own trouble; those of others have to run all the same.
            }
        }
        const std::lock_guard lock(mutex);
        ended = true;
        changed.notify_all();
    }

    bool isThisThread() { return context.get_executor().running_in_this_thread(); }

    const OwnProcess process;
    boost::asio::io_context context{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{
        context.get_executor()};
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false; // guarded by mutex
    std::mutex joining;
    std::thread thread; // guarded by joining
};

Housekeeper::Housekeeper() try
    : impl(std::make_shared<Impl>()) {
    // Asio opens what it waits with for the first that needs it: that shall not be somebody else.
    { const boost::asio::posix::stream_descriptor first(impl->context); }
    const BlockedSignals inTheThread;
    impl->thread = std::thread([kept = impl] { kept->run(); });

} catch (const boost::system::system_error& error) {

    throw std::system_error(error.code().value(), std::generic_category(), "Housekeeping thread");
}

Housekeeper::~Housekeeper() {
    if (isOfThisProcess()) {
        stop();
    } else {
        leaveToParent(std::move(impl));
    }
}

boost::asio::io_context& Housekeeper::context() noexcept {
    return impl->context;
}

void Housekeeper::stop() noexcept {
    if (!isOfThisProcess()) {
        return;
    }
    impl->context.stop();
    if (!impl->isThisThread()) {
        const std::lock_guard lock(impl->joining);
        if (impl->thread.joinable()) {
            impl->thread.join();
        }
    } else if (const std::unique_lock lock(impl->joining, std::try_to_lock); lock) {
        if (impl->thread.joinable()) {
            impl->thread.detach();
        }
    }
}

void Housekeeper::leaveBehind() noexcept {
    if (!isOfThisProcess()) {
        return;
    }
    impl->context.stop();
    const std::lock_guard lock(impl->joining);
    if (impl->thread.joinable()) {
        impl->thread.detach();
    }
}

void Housekeeper::runAndWait(const std::function<void()>& task) {
    if (!isOfThisProcess()) {
        return;
    }
    if (impl->isThisThread()) {
        task();
        return;
    }
    bool done = false; // guarded by impl->mutex
    std::exception_ptr error;
    boost::asio::post(impl->context, [this, &task, &done, &error] {
        try {
            task();
        } catch (...) {
            error = std::current_exception();
        }
        const std::lock_guard lock(impl->mutex);
        done = true;
        impl->changed.notify_all();
    });
    {
        std::unique_lock lock(impl->mutex);
        impl->changed.wait(lock, [&] { return done || impl->ended; });
    }
    if (!done) {
        task();
    } else if (error) {
        std::rethrow_exception(error);
    }
}

bool Housekeeper::isOfThisProcess() const noexcept {
    return impl->process.isHere();
}

void Housekeeper::leaveToParent(std::shared_ptr<void> object) {
    static std::mutex& mutex = *new std::mutex;
    static std::vector<std::shared_ptr<void>>& left = *new std::vector<std::shared_ptr<void>>;
    const std::lock_guard lock(mutex);
    left.push_back(std::move(object));
}

} // namespace agent::orvi::remoting::details
