#include "imports/Wants.hpp"

#include <orvi/core/Invokable.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace agent::orvi::remoting::details {
namespace {

bool sameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

bool contains(const std::string& text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(), sameLetter) !=
           text.end();
}

/// Say whether a filter looks for services of the kind that other processes offer. Listeners that
/// take whatever comes are not a reason to fetch everything there is.
bool mayBeRemote(const std::string& filter) {
    return contains(filter, "orvi.servicename") ||
           contains(filter, us_service_interface_iid<core::Invokable>());
}

} // namespace

void Wants::Added(const std::vector<ListenerInfo>& listeners) {
    const std::lock_guard lock(mutex);
    for (const ListenerInfo& listener : listeners) {
        const std::string filter = listener.GetFilter();
        if (listener.IsRemoved() || !mayBeRemote(filter)) {
            continue;
        }
        const auto [known, added] = filters.emplace(listener, filter);
        if (!added) {
            continue;
        }
        try {
            add(filter);
        } catch (...) {
            filters.erase(known);
            throw;
        }
    }
}

/// Count one more listener with a filter, or change nothing.
void Wants::add(const std::string& filter) {
    const auto [entry, isNew] =
        wanted.try_emplace(filter, Wanted{lastNumber + 1, 0, cppmicroservices::LDAPFilter(filter)});
    if (isNew) {
        try {
            changed({lastNumber + 1, filter}, true);
        } catch (...) {
            wanted.erase(entry);
            throw;
        }
        ++lastNumber;
    }
    ++entry->second.listeners;
}

void Wants::Removed(const std::vector<ListenerInfo>& listeners) {
    const std::lock_guard lock(mutex);
    for (const ListenerInfo& listener : listeners) {
        const auto known = filters.find(listener);
        if (known == filters.end()) {
            continue;
        }
        const auto entry = wanted.find(known->second);
        filters.erase(known);
        if (--entry->second.listeners == 0) {
            changed({entry->second.number, entry->first}, false);
            wanted.erase(entry);
        }
    }
}

bool Wants::match(const cppmicroservices::AnyMap& properties) const {
    std::vector<cppmicroservices::LDAPFilter> candidates;
    {
        const std::lock_guard lock(mutex);
        // Nearly every look-up is for a name: no need to try all of them.
        const auto name = properties.find("orvi.servicename");
        if (name != properties.end() && name->second.Type() == typeid(std::string) &&
            wanted.contains(
                "(orvi.servicename=" + cppmicroservices::any_cast<std::string>(name->second) +
                ")")) {
            return true;
        }
        for (const auto& [text, entry] : wanted) {
            candidates.push_back(entry.filter);
        }
    }
    return std::any_of(candidates.begin(), candidates.end(), [&](const auto& filter) {
        return filter.Match(properties);
    });
}

void Wants::forEach(
    const std::function<void(const Want& want)>& visit, const std::function<void()>& done) const {
    const std::lock_guard lock(mutex);
    for (const auto& [filter, entry] : wanted) {
        visit({entry.number, filter});
    }
    done();
}

} // namespace agent::orvi::remoting::details
