#pragma once

#include "FilterExpression.hpp"
#include "ServiceRecord.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices::detail {

/// The registered services, by order of registration, by interface in order of preference, and by
/// the texts of those properties that have been asked for. Thread-safe.
class ServiceIndex {
public:
    using Entry = std::shared_ptr<Registration>;

    void add(Entry const& entry);
    void remove(Registration const& registration);

    /// Moves a service whose properties have changed to its place.
    void sortAgain(Registration& registration) noexcept;

    std::vector<Entry> all() const;
    std::vector<Entry> withClass(std::string const& name) const;

    /// Returns the services that may pass the test: those whose property is that text, and those
    /// whose property is something else than a text. With classes, only those of at least one of
    /// them, in order of preference; else by order of registration. Nothing if the property is not
    /// worth an index.
    std::optional<std::vector<Entry>> withText(
        FilterExpression::TextTest const& test,
        std::optional<std::vector<std::string>> const& classes);

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

    static Preference preferenceOf(Registration const& registration) {
        return {registration.indexedRanking, registration.record->id};
    }

    using Ranked = std::map<Preference, Entry>;
    using Entries = std::map<long, Entry>;

    /// Services by one property.
    struct Texts {
        std::unordered_map<std::string, Entries> byText;
        Entries others;

        void add(std::string const& name, Entry const& entry);
        void remove(std::string const& name, Registration const& registration) noexcept;
    };

    Texts* textsOf(std::string const& name);
    void erase(Registration const& registration) noexcept;
    void sortByRanking(Registration& registration, int ranking) noexcept;
    std::shared_ptr<AnyMap const> sortByTexts(Registration& registration) noexcept;

    mutable std::mutex mutex_;
    Entries all_;
    std::unordered_map<std::string, Ranked> byClass_;
    std::map<std::string, Texts> byText_;
};

} // namespace cppmicroservices::detail
