#pragma once

#include "FilterExpression.hpp"
#include "ServiceRecord.hpp"

#include "cppmicroservices/ListenerFunctors.h"
#include "cppmicroservices/ListenerToken.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace cppmicroservices::detail {

struct ContextData;

/// A service listener with its filter.
struct ServiceListenerEntry {
    ServiceListenerEntry(
        ListenerTokenId i, std::shared_ptr<ContextData> c, ServiceListener l, std::string text,
        std::shared_ptr<FilterExpression const> f)
        : id(i)
        , context(std::move(c))
        , listener(std::move(l))
        , filterText(std::move(text))
        , filter(std::move(f)) {}

    /// Says whether a service matches; true when there is no memory to find out.
    bool mayMatch(ServiceRecord const& service) const noexcept;

    ListenerTokenId const id;
    std::shared_ptr<ContextData> const context;
    ServiceListener const listener;
    std::string const filterText;
    /// Null if there is no filter.
    std::shared_ptr<FilterExpression const> const filter;
    std::atomic<bool> removed{false};
};

/// The service listeners, indexed by what their filters ask for, so that an event need not be
/// matched against all of them. Thread-safe.
class ListenerIndex {
public:
    using Entry = std::shared_ptr<ServiceListenerEntry>;

    void add(Entry const& entry);

    /// Returns the listener that was removed, or null.
    Entry remove(ListenerTokenId id);

    std::vector<Entry> all() const;

    /// Returns the listener that was added next after the one of this number, or null.
    Entry next(ListenerTokenId after) const noexcept;

    /// Returns the listeners whose filter matches, in the order in which they were added.
    std::vector<Entry> matching(ServiceRecord const& service) const;

    /// Removes everything and returns it, so that the caller can release it outside its own locks.
    std::vector<Entry> clear();

private:
    using Entries = std::map<ListenerTokenId, Entry>;

    mutable std::mutex mutex_;
    Entries all_;
    std::unordered_map<std::string, Entries> byClass_;
    std::unordered_map<long, Entries> byServiceId_;
    Entries others_;
};

} // namespace cppmicroservices::detail
