#include "imports/Wants.hpp"

#include "imports/AskableFilters.hpp"

#include <orvi/core/Invokable.hpp>

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

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
    const auto known = wanted.find(filter);
    if (known != wanted.end()) {
        ++known->second.listeners;
        return;
    }
    const auto entry =
        wanted
            .emplace(
                filter, Wanted{1, cppmicroservices::LDAPFilter(filter), askableFilters(filter)})
            .first;
    std::size_t done = 0;
    const std::vector<std::string>& parts = entry->second.asked;
    try {
        for (; done < parts.size(); ++done) {
            ask(parts[done]);
        }
    } catch (...) {
        while (done > 0) {
            askNoMore(parts[--done]);
        }
        wanted.erase(entry);
        throw;
    }
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
            for (const std::string& part : entry->second.asked) {
                askNoMore(part);
            }
            wanted.erase(entry);
        }
    }
}

void Wants::ask(const std::string& filter) {
    const auto [entry, isNew] = asked.try_emplace(filter, Asked{lastNumber + 1, 0});
    if (isNew) {
        try {
            changed({entry->second.number, filter}, true);
        } catch (...) {
            asked.erase(entry);
            throw;
        }
        ++lastNumber;
    }
    ++entry->second.users;
}

void Wants::askNoMore(const std::string& filter) {
    const auto entry = asked.find(filter);
    if (--entry->second.users == 0) {
        auto ended = asked.extract(entry);
        changed({ended.mapped().number, std::move(ended.key())}, false);
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
    for (const auto& [filter, entry] : asked) {
        visit({entry.number, filter});
    }
    done();
}

} // namespace agent::orvi::remoting::details
