#include "ServiceIndex.hpp"

#include <utility>

namespace cppmicroservices::detail {

void ServiceIndex::add(Entry const& entry) {
    std::lock_guard const lock(mutex_);
    entry->indexedRanking = entry->record->ranking();
    try {
        all_.emplace(entry->record->id, entry);
        for (auto const& name : entry->record->classes) {
            byClass_[name].emplace(Preference{entry->indexedRanking, entry->record->id}, entry);
        }
    } catch (...) {
        erase(*entry);
        throw;
    }
}

void ServiceIndex::remove(Registration const& registration) {
    std::lock_guard const lock(mutex_);
    erase(registration);
}

void ServiceIndex::erase(Registration const& registration) {
    all_.erase(registration.record->id);
    for (auto const& name : registration.record->classes) {
        auto const found = byClass_.find(name);
        if (found != byClass_.end()) {
            found->second.erase({registration.indexedRanking, registration.record->id});
            if (found->second.empty()) {
                byClass_.erase(found);
            }
        }
    }
}

void ServiceIndex::sortAgain(Registration& registration) {
    std::lock_guard const lock(mutex_);
    // Read here, not before: of two concurrent changes the later one must win.
    int const ranking = registration.record->ranking();
    if (ranking == registration.indexedRanking || all_.count(registration.record->id) == 0) {
        return;
    }
    for (auto const& name : registration.record->classes) {
        auto& ranked = byClass_[name];
        if (auto node = ranked.extract({registration.indexedRanking, registration.record->id})) {
            node.key().ranking = ranking;
            ranked.insert(std::move(node));
        }
    }
    registration.indexedRanking = ranking;
}

std::vector<ServiceIndex::Entry> ServiceIndex::all() const {
    std::lock_guard const lock(mutex_);
    std::vector<Entry> result;
    result.reserve(all_.size());
    for (auto const& entry : all_) {
        result.push_back(entry.second);
    }
    return result;
}

std::vector<ServiceIndex::Entry> ServiceIndex::withClass(std::string const& name) const {
    std::lock_guard const lock(mutex_);
    std::vector<Entry> result;
    if (auto const found = byClass_.find(name); found != byClass_.end()) {
        result.reserve(found->second.size());
        for (auto const& entry : found->second) {
            result.push_back(entry.second);
        }
    }
    return result;
}

ServiceIndex::Entry ServiceIndex::firstWithClass(std::string const& name) const {
    std::lock_guard const lock(mutex_);
    auto const found = byClass_.find(name);
    return found == byClass_.end() ? nullptr : found->second.begin()->second;
}

std::vector<ServiceIndex::Entry> ServiceIndex::clear() {
    auto entries = all();
    std::lock_guard const lock(mutex_);
    all_.clear();
    byClass_.clear();
    return entries;
}

} // namespace cppmicroservices::detail
