#pragma once

#include "cppmicroservices/ServiceEvent.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceTrackerCustomizer.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace cppmicroservices::detail {

/// What one opening of a ServiceTracker tracks. Outlives the tracker while an event is delivered to
/// it; once closed it calls the customizer only for what is still being removed. No lock is held
/// during such calls.
template <class S, class T>
class TrackedServices {
public:
    using Customizer = ServiceTrackerCustomizer<S, T>;
    using Reference = ServiceReference<S>;
    using Object = std::shared_ptr<typename Customizer::TrackedParamType>;

    TrackedServices(Customizer* customizer, bool followsEvents)
        : customizer_(customizer)
        , followsEvents_(followsEvents) {}

    void serviceChanged(ServiceEvent const& event) {
        Call const call(*this);
        Reference const reference = event.GetServiceReference<S>();
        if (!call.permitted || !reference) {
            return;
        }
        bool const present = event.GetType() == ServiceEvent::SERVICE_REGISTERED ||
                             event.GetType() == ServiceEvent::SERVICE_MODIFIED;
        if (present && followsEvents_) {
            track(reference);
        } else {
            untrack(reference);
        }
    }

    void trackInitial(std::vector<Reference> const& references) {
        Call const call(*this);
        InitialPhase const phase(*this);
        for (auto const& reference : references) {
            {
                std::lock_guard const lock(mutex_);
                if (closed_) {
                    return;
                }
                if (settled_.count(reference) != 0 || !adding_.insert(reference).second) {
                    continue;
                }
            }
            add(reference);
        }
    }

    void untrack(Reference const& reference) {
        Object object;
        Reference stale;
        {
            std::lock_guard const lock(mutex_);
            if (!initialDone_) {
                settled_.insert(reference);
            }
            if (adding_.erase(reference) != 0) {
                return;
            }
            auto const found = tracked_.find(reference);
            if (found == tracked_.end()) {
                return;
            }
            object = std::move(found->second);
            tracked_.erase(found);
            stale = changed();
        }
        customizer_->RemovedService(reference, object);
    }

    /// Waits for customizer calls on other threads, then removes what is tracked. Does nothing if
    /// closed.
    void closeAndUntrack() {
        {
            std::unique_lock lock(mutex_);
            if (closed_) {
                return;
            }
            closed_ = true;
            condition_.notify_all();
            // A customizer may close its own tracker, so calls on this thread are not waited for.
            auto const own = [](std::thread::id id) { return id == std::this_thread::get_id(); };
            condition_.wait(lock, [&] { return std::all_of(calls_.begin(), calls_.end(), own); });
        }
        for (auto const& entry : entries()) {
            untrack(entry.first);
        }
    }

    bool isClosed() const {
        std::lock_guard const lock(mutex_);
        return closed_;
    }

    void waitForService(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock lock(mutex_);
        condition_.wait_until(lock, deadline, [this] { return !tracked_.empty() || closed_; });
    }

    Reference preferred() const {
        std::lock_guard const lock(mutex_);
        return preferredLocked();
    }

    Object preferredObject() const {
        std::lock_guard const lock(mutex_);
        auto const found = tracked_.find(preferredLocked());
        return found == tracked_.end() ? nullptr : found->second;
    }

    Object object(Reference const& reference) const {
        std::lock_guard const lock(mutex_);
        auto const found = tracked_.find(reference);
        return found == tracked_.end() ? nullptr : found->second;
    }

    std::unordered_map<Reference, Object> entries() const {
        std::lock_guard const lock(mutex_);
        return tracked_;
    }

    std::size_t size() const {
        std::lock_guard const lock(mutex_);
        return tracked_.size();
    }

    int count() const {
        std::lock_guard const lock(mutex_);
        return closed_ ? -1 : count_;
    }

private:
    /// Makes close() wait for the customizer calls of its lifetime.
    struct Call {
        explicit Call(TrackedServices& o)
            : owner(o) {
            std::lock_guard const lock(owner.mutex_);
            permitted = !owner.closed_;
            if (permitted) {
                owner.calls_.push_back(std::this_thread::get_id());
            }
        }

        Call(Call const&) = delete;
        Call& operator=(Call const&) = delete;

        ~Call() {
            if (permitted) {
                std::lock_guard const lock(owner.mutex_);
                auto& calls = owner.calls_;
                calls.erase(std::find(calls.begin(), calls.end(), std::this_thread::get_id()));
                owner.condition_.notify_all();
            }
        }

        TrackedServices& owner;
        bool permitted = false;
    };

    struct InitialPhase {
        explicit InitialPhase(TrackedServices& o)
            : owner(o) {}

        InitialPhase(InitialPhase const&) = delete;
        InitialPhase& operator=(InitialPhase const&) = delete;

        ~InitialPhase() {
            std::unordered_set<Reference> dropped;
            std::lock_guard const lock(owner.mutex_);
            owner.initialDone_ = true;
            dropped.swap(owner.settled_);
        }

        TrackedServices& owner;
    };

    void track(Reference const& reference) {
        Object object;
        Reference stale;
        {
            std::lock_guard const lock(mutex_);
            if (closed_) {
                return;
            }
            auto const found = tracked_.find(reference);
            if (found != tracked_.end()) {
                object = found->second;
                stale = changed();
            } else {
                if (!adding_.insert(reference).second) {
                    return;
                }
                if (!initialDone_) {
                    settled_.insert(reference);
                }
            }
        }
        if (object) {
            customizer_->ModifiedService(reference, object);
        } else {
            add(reference);
        }
    }

    void add(Reference const& reference) {
        Object object;
        Reference stale;
        try {
            object = customizer_->AddingService(reference);
        } catch (...) {
            std::lock_guard const lock(mutex_);
            adding_.erase(reference);
            throw;
        }
        bool wanted = false;
        {
            std::lock_guard const lock(mutex_);
            wanted = adding_.erase(reference) != 0 && !closed_;
            if (wanted && object) {
                tracked_[reference] = object;
                stale = changed();
                condition_.notify_all();
            }
        }
        if (!wanted && object) {
            customizer_->RemovedService(reference, object);
        } else if (wanted && reference.isLeaving()) {
            // Its last event may have come on another thread, before there was anything to remove.
            untrack(reference);
        }
    }

    /// Counts a change; returns the reference that was preferred, to be released outside the lock.
    Reference changed() {
        ++count_;
        return std::exchange(preferred_, Reference());
    }

    Reference preferredLocked() const {
        if (!preferred_) {
            auto const best = std::max_element(
                tracked_.begin(), tracked_.end(),
                [](auto const& a, auto const& b) { return a.first < b.first; });
            preferred_ = best == tracked_.end() ? Reference() : best->first;
        }
        return preferred_;
    }

    Customizer* const customizer_;
    bool const followsEvents_;
    mutable std::mutex mutex_;
    std::condition_variable condition_;
    std::unordered_map<Reference, Object> tracked_;
    std::unordered_set<Reference> adding_;
    /// Services with an event since the listener was added: the initial list is out of date for
    /// them.
    std::unordered_set<Reference> settled_;
    std::vector<std::thread::id> calls_;
    mutable Reference preferred_;
    int count_ = 0;
    bool initialDone_ = false;
    bool closed_ = false;
};

} // namespace cppmicroservices::detail
