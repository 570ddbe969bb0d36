#include "ListenerIndex.hpp"

#include <algorithm>
#include <utility>

namespace cppmicroservices::detail {

namespace {

using Entry = ListenerIndex::Entry;

template <class Entries>
void appendValues(Entries const& entries, std::vector<Entry>& result) {
    for (auto const& entry : entries) {
        result.push_back(entry.second);
    }
}

template <class Index, class Key>
void appendBucket(Index const& index, Key const& key, std::vector<Entry>& result) {
    if (auto const bucket = index.find(key); bucket != index.end()) {
        appendValues(bucket->second, result);
    }
}

template <class Index, class Key>
void eraseFromBucket(Index& index, Key const& key, ListenerTokenId id) {
    if (auto const bucket = index.find(key); bucket != index.end()) {
        bucket->second.erase(id);
        if (bucket->second.empty()) {
            index.erase(bucket);
        }
    }
}

bool matches(ServiceListenerEntry const& entry, AnyMap const& properties) {
    return !entry.filter || entry.filter->testsOnlyClasses() ||
           entry.filter->matches(properties, false);
}

} // namespace

bool ServiceListenerEntry::mayMatch(ServiceRecord const& service) const noexcept {
    try {
        return !filter || filter->matches(*service.properties(), false);
    } catch (...) {
        return true;
    }
}

void ListenerIndex::add(Entry const& entry) {
    auto const classes = entry->filter ? entry->filter->requiredClasses() : std::nullopt;
    auto const serviceId = entry->filter ? entry->filter->soleServiceId() : std::nullopt;
    std::lock_guard const lock(mutex_);
    try {
        all_.emplace(entry->id, entry);
        if (classes) {
            for (auto const& name : *classes) {
                byClass_[name].emplace(entry->id, entry);
            }
        } else if (serviceId) {
            byServiceId_[*serviceId].emplace(entry->id, entry);
        } else {
            others_.emplace(entry->id, entry);
        }
    } catch (...) {
        if (classes) {
            for (auto const& name : *classes) {
                eraseFromBucket(byClass_, name, entry->id);
            }
        }
        if (serviceId) {
            eraseFromBucket(byServiceId_, *serviceId, entry->id);
        }
        all_.erase(entry->id);
        throw;
    }
}

Entry ListenerIndex::next(ListenerTokenId after) const noexcept {
    std::lock_guard const lock(mutex_);
    auto const found = all_.upper_bound(after);
    return found == all_.end() ? nullptr : found->second;
}

Entry ListenerIndex::remove(ListenerTokenId id) {
    std::lock_guard const lock(mutex_);
    auto const found = all_.find(id);
    if (found == all_.end()) {
        return nullptr;
    }
    auto entry = std::move(found->second);
    entry->removed = true;
    all_.erase(found);
    others_.erase(id);
    if (entry->filter) {
        if (auto const classes = entry->filter->requiredClasses()) {
            for (auto const& name : *classes) {
                eraseFromBucket(byClass_, name, id);
            }
        } else if (auto const serviceId = entry->filter->soleServiceId()) {
            eraseFromBucket(byServiceId_, *serviceId, id);
        }
    }
    return entry;
}

std::vector<Entry> ListenerIndex::all() const {
    std::lock_guard const lock(mutex_);
    std::vector<Entry> result;
    result.reserve(all_.size());
    appendValues(all_, result);
    return result;
}

std::vector<Entry> ListenerIndex::matching(ServiceRecord const& service) const {
    std::vector<Entry> result;
    {
        std::lock_guard const lock(mutex_);
        appendValues(others_, result);
        appendBucket(byServiceId_, service.id, result);
        for (auto const& name : service.classes) {
            appendBucket(byClass_, name, result);
        }
    }
    auto const properties = service.properties();
    std::erase_if(result, [&](Entry const& entry) { return !matches(*entry, *properties); });
    std::sort(
        result.begin(), result.end(), [](Entry const& a, Entry const& b) { return a->id < b->id; });
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
}

std::vector<Entry> ListenerIndex::clear() {
    auto entries = all();
    std::lock_guard const lock(mutex_);
    all_.clear();
    byClass_.clear();
    byServiceId_.clear();
    others_.clear();
    return entries;
}

} // namespace cppmicroservices::detail
