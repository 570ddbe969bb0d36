#pragma once

#include "cppmicroservices/ListenerToken.h"

#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace cppmicroservices::detail {

/// Listeners of one kind of event, in the order in which they were added. Thread-safe.
template <class Listener>
class ListenerList {
public:
    using Snapshot = std::vector<std::shared_ptr<Listener const>>;

    void add(ListenerTokenId id, Listener listener) {
        auto shared = std::make_shared<Listener const>(std::move(listener));
        std::lock_guard const lock(mutex_);
        listeners_.emplace(id, std::move(shared));
    }

    /// Returns whether there was such a listener.
    bool remove(ListenerTokenId id) {
        std::shared_ptr<Listener const> removed;
        std::lock_guard const lock(mutex_);
        auto const found = listeners_.find(id);
        if (found == listeners_.end()) {
            return false;
        }
        removed = std::move(found->second);
        listeners_.erase(found);
        return true;
    }

    Snapshot all() const {
        Snapshot result;
        std::lock_guard const lock(mutex_);
        for (auto const& entry : listeners_) {
            result.push_back(entry.second);
        }
        return result;
    }

    /// Removes everything and returns it, so that the caller can release it outside its own locks.
    Snapshot clear() {
        auto result = all();
        std::lock_guard const lock(mutex_);
        listeners_.clear();
        return result;
    }

private:
    mutable std::mutex mutex_;
    std::map<ListenerTokenId, std::shared_ptr<Listener const>> listeners_;
};

} // namespace cppmicroservices::detail
