#pragma once

#include "ServiceRecord.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices::detail {

/// The registered services, by order of registration and by interface in order of preference.
/// Thread-safe.
class ServiceIndex {
public:
    using Entry = std::shared_ptr<Registration>;

    void add(Entry const& entry);
    void remove(Registration const& registration);

    /// Moves a service whose ranking has changed to its place.
    void sortAgain(Registration& registration);

    std::vector<Entry> all() const;
    std::vector<Entry> withClass(std::string const& name) const;

    /// Returns the preferred one, or null.
    Entry firstWithClass(std::string const& name) const;

    /// Removes everything and returns it, so that the caller can release it outside its own locks.
    std::vector<Entry> clear();

private:
    struct Preference {
        int ranking;
        long id;

        bool operator<(Preference const& other) const {
            return ranking != other.ranking ? ranking > other.ranking : id < other.id;
        }
    };

    using Ranked = std::map<Preference, Entry>;

    void erase(Registration const& registration);

    mutable std::mutex mutex_;
    std::map<long, Entry> all_;
    std::unordered_map<std::string, Ranked> byClass_;
};

} // namespace cppmicroservices::detail
