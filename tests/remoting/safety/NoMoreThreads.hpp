#pragma once

#include <cstddef>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace agent::orvi::remoting::test {

/// While this lives, no thread can be started.
class NoMoreThreads {
public:
    NoMoreThreads() {
        pthread_attr_t none;
        ::pthread_getattr_default_np(&before);
        ::pthread_getattr_default_np(&none);
        ::pthread_attr_setstacksize(&none, std::size_t{1} << 50); // which nobody has
        ::pthread_setattr_default_np(&none);
        ::pthread_attr_destroy(&none);
    }

    ~NoMoreThreads() {
        ::pthread_setattr_default_np(&before);
        ::pthread_attr_destroy(&before);
    }

    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

    static bool areStarted() {
        try {
            std::thread([] {}).join();
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }

private:
    pthread_attr_t before{};
};

} // namespace agent::orvi::remoting::test
