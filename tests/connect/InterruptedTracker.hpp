#pragma once

#include <cppmicroservices/ServiceTracker.h>

#include <functional>
#include <memory>
#include <utility>

namespace agent::orvi::streambuf::test {

/// What happens between the moment a service is found and the moment its properties are looked for.
inline std::function<void()>& afterServiceIsFound() {
    static std::function<void()> action;
    return action;
}

/// What happens when a tracker opens, in place of that.
inline std::function<void()>& insteadOfOpening() {
    static std::function<void()> action;
    return action;
}

} // namespace agent::orvi::streambuf::test

namespace cppmicroservices {

/// The real tracker, with an opportunity for a test to step in.
template <class Service>
class InterruptedTracker : public ServiceTracker<Service> {
public:
    using ServiceTracker<Service>::ServiceTracker;

    void Open() {
        if (const auto action =
                std::exchange(agent::orvi::streambuf::test::insteadOfOpening(), nullptr)) {
            action();
        } else {
            ServiceTracker<Service>::Open();
        }
    }

    template <class Duration>
    std::shared_ptr<Service> WaitForService(const Duration& timeLimit) {
        std::shared_ptr<Service> service = ServiceTracker<Service>::WaitForService(timeLimit);
        if (const auto action =
                std::exchange(agent::orvi::streambuf::test::afterServiceIsFound(), nullptr)) {
            action();
        }
        return service;
    }
};

} // namespace cppmicroservices
