#include "ServiceIndex.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace cppmicroservices::detail {

namespace {

/// Fewer services are looked through in no time.
constexpr std::size_t fewestServicesForTexts = 32;

/// An index costs each service some memory, and who asks for anything at all must not take it.
constexpr std::size_t mostIndexedProperties = 8;

template <class Entries>
std::vector<ServiceIndex::Entry> valuesOf(Entries const& entries) {
    std::vector<ServiceIndex::Entry> result;
    result.reserve(entries.size());
    std::transform(
        entries.begin(), entries.end(), std::back_inserter(result),
        [](auto const& entry) { return entry.second; });
    return result;
}

bool hasAny(std::vector<std::string> const& classes, Registration const& registration) {
    auto const& own = registration.record->classes;
    return std::find_first_of(own.begin(), own.end(), classes.begin(), classes.end()) != own.end();
}

Any const* findProperty(Registration const& registration, std::string const& name) {
    auto const& properties = *registration.indexedProperties;
    auto const found = properties.find(name);
    return found == properties.end() ? nullptr : &found->second;
}

} // namespace

void ServiceIndex::Texts::add(std::string const& name, Entry const& entry) {
    auto const* value = findProperty(*entry, name);
    if (!value) {
        return;
    }
    auto const* text = any_cast<std::string>(value);
    (text ? byText[*text] : others).emplace(entry->record->id, entry);
}

void ServiceIndex::Texts::remove(
    std::string const& name, Registration const& registration) noexcept {
    auto const* value = findProperty(registration, name);
    auto const* text = value ? any_cast<std::string>(value) : nullptr;
    if (!text) {
        others.erase(registration.record->id);
        return;
    }
    if (auto const found = byText.find(*text); found != byText.end()) {
        found->second.erase(registration.record->id);
        if (found->second.empty()) {
            byText.erase(found);
        }
    }
}

void ServiceIndex::add(Entry const& entry) {
    std::lock_guard const lock(mutex_);
    entry->indexedRanking = entry->record->ranking();
    entry->indexedProperties = entry->record->properties();
    try {
        all_.emplace(entry->record->id, entry);
        for (auto const& name : entry->record->classes) {
            byClass_[name].emplace(preferenceOf(*entry), entry);
        }
        for (auto& [name, texts] : byText_) {
            texts.add(name, entry);
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

void ServiceIndex::erase(Registration const& registration) noexcept {
    for (auto& [name, texts] : byText_) {
        texts.remove(name, registration);
    }
    for (auto const& name : registration.record->classes) {
        auto const found = byClass_.find(name);
        if (found != byClass_.end()) {
            found->second.erase(preferenceOf(registration));
            if (found->second.empty()) {
                byClass_.erase(found);
            }
        }
    }
    all_.erase(registration.record->id);
}

void ServiceIndex::sortAgain(Registration& registration) noexcept {
    // Released without the lock: what a value's destructor does may come back here.
    std::shared_ptr<AnyMap const> former;
    std::lock_guard const lock(mutex_);
    if (all_.count(registration.record->id) == 0) {
        return;
    }
    // Read here, not before: of two concurrent changes the later one must win.
    sortByRanking(registration, registration.record->ranking());
    former = sortByTexts(registration);
}

void ServiceIndex::sortByRanking(Registration& registration, int ranking) noexcept {
    if (ranking == registration.indexedRanking) {
        return;
    }
    for (auto const& name : registration.record->classes) {
        auto& ranked = byClass_.find(name)->second;
        if (auto node = ranked.extract(preferenceOf(registration))) {
            node.key().ranking = ranking;
            ranked.insert(std::move(node));
        }
    }
    registration.indexedRanking = ranking;
}

/// Returns the properties by which it was sorted.
std::shared_ptr<AnyMap const> ServiceIndex::sortByTexts(Registration& registration) noexcept {
    for (auto& [name, texts] : byText_) {
        texts.remove(name, registration);
    }
    auto former = std::exchange(registration.indexedProperties, registration.record->properties());
    try {
        for (auto& [name, texts] : byText_) {
            texts.add(name, registration.shared_from_this());
        }
    } catch (...) {
        // There is no memory to keep it right. Whoever asks next makes it anew.
        byText_.clear();
    }
    return former;
}

std::vector<ServiceIndex::Entry> ServiceIndex::all() const {
    std::lock_guard const lock(mutex_);
    return valuesOf(all_);
}

std::vector<ServiceIndex::Entry> ServiceIndex::withClass(std::string const& name) const {
    std::lock_guard const lock(mutex_);
    auto const found = byClass_.find(name);
    return found == byClass_.end() ? std::vector<ServiceIndex::Entry>() : valuesOf(found->second);
}

/// Returns the services by a property, null if it is not worth an index.
ServiceIndex::Texts* ServiceIndex::textsOf(std::string const& name) {
    if (auto const found = byText_.find(name); found != byText_.end()) {
        return &found->second;
    }
    if (all_.size() < fewestServicesForTexts || byText_.size() >= mostIndexedProperties) {
        return nullptr;
    }
    Texts texts;
    for (auto const& [id, entry] : all_) {
        texts.add(name, entry);
    }
    return &byText_.emplace(name, std::move(texts)).first->second;
}

std::optional<std::vector<ServiceIndex::Entry>> ServiceIndex::withText(
    FilterExpression::TextTest const& test,
    std::optional<std::vector<std::string>> const& classes) {
    std::lock_guard const lock(mutex_);
    auto const* const texts = textsOf(test.name);
    if (!texts) {
        return std::nullopt;
    }
    auto candidates = valuesOf(texts->others);
    if (auto const bucket = texts->byText.find(test.text); bucket != texts->byText.end()) {
        auto const same = valuesOf(bucket->second);
        candidates.insert(candidates.end(), same.begin(), same.end());
    }
    if (classes) {
        std::erase_if(candidates, [&](auto const& entry) { return !hasAny(*classes, *entry); });
    }
    std::sort(candidates.begin(), candidates.end(), [&](auto const& left, auto const& right) {
        return classes ? preferenceOf(*left) < preferenceOf(*right)
                       : left->record->id < right->record->id;
    });
    return candidates;
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
    byText_.clear();
    return entries;
}

} // namespace cppmicroservices::detail
