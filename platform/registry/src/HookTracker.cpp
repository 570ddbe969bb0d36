#include "HookTracker.hpp"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace cppmicroservices::detail {

namespace {

using Listeners = FrameworkCore::Listeners;

/// Returns the listeners of the first list that the second one lacks; both are in order of number.
Listeners missing(Listeners const& listeners, Listeners const& others) {
    Listeners result;
    std::set_difference(
        listeners.begin(), listeners.end(), others.begin(), others.end(),
        std::back_inserter(result), [](auto const& a, auto const& b) { return a->id < b->id; });
    return result;
}

} // namespace

HookTracker::HookTracker(std::weak_ptr<FrameworkCore> core, BundleContext const& context)
    : core_(std::move(core))
    , context_(context)
    , tracker_(context, this) {}

void HookTracker::add(FrameworkCore& core, ListenerIndex::Entry const& entry) {
    auto const infos = FrameworkCore::infos({entry});
    std::shared_ptr<Hooks const> told;
    {
        std::lock_guard const lock(mutex_);
        core.serviceListeners().add(entry);
        told = hooks_;
    }
    for (auto const& hook : *told) {
        tell(core, *hook, [&] { hook->object->Added(infos); });
    }
}

void HookTracker::remove(FrameworkCore& core, ListenerTokenId id) {
    ListenerIndex::Entry entry;
    std::shared_ptr<Hooks const> told;
    {
        std::lock_guard const lock(mutex_);
        entry = core.serviceListeners().remove(id);
        told = hooks_;
    }
    if (!entry) {
        return;
    }
    for (auto const& hook : *told) {
        tell(core, *hook, [&] { hook->object->Removed(FrameworkCore::infos({entry})); });
    }
}

std::shared_ptr<ServiceListenerHook>
HookTracker::AddingService(ServiceReference<ServiceListenerHook> const& reference) {
    auto const core = core_.lock();
    auto object = context_.GetService(reference);
    if (!core || !object) {
        return nullptr;
    }
    takeIn(*core, std::make_shared<Hook>(reference, object));
    return object;
}

/// Tells a hook of the listeners that are there. Others come and go while it is called, of which it
/// is told next, until it knows all there are.
void HookTracker::takeIn(FrameworkCore& core, std::shared_ptr<Hook> const& hook) {
    Listeners known;
    for (;;) {
        std::shared_ptr<Hooks const> former;
        Listeners present;
        {
            std::lock_guard const lock(mutex_);
            present = core.serviceListeners().all();
            if (present == known) {
                former = std::exchange(hooks_, with(hook));
                return;
            }
        }
        if (auto const come = missing(present, known); !come.empty()) {
            tell(core, *hook, [&] { hook->object->Added(FrameworkCore::infos(come)); });
        }
        if (auto const gone = missing(known, present); !gone.empty()) {
            tell(core, *hook, [&] { hook->object->Removed(FrameworkCore::infos(gone)); });
        }
        known = std::move(present);
    }
}

void HookTracker::ModifiedService(
    ServiceReference<ServiceListenerHook> const& reference,
    std::shared_ptr<ServiceListenerHook> const&) {
    std::shared_ptr<Hooks const> former;
    std::lock_guard const lock(mutex_);
    // Its ranking may have changed. It may be gone on another thread.
    if (auto const hook = find(reference)) {
        former = std::exchange(hooks_, with(hook));
    }
}

void HookTracker::RemovedService(
    ServiceReference<ServiceListenerHook> const& reference,
    std::shared_ptr<ServiceListenerHook> const&) {
    std::shared_ptr<Hooks const> former;
    std::lock_guard const lock(mutex_);
    if (auto const hook = find(reference)) {
        hook->removed = true;
        try {
            former = std::exchange(hooks_, without(hook));
        } catch (std::bad_alloc const&) {
            // It stays in the list, without being called, until that changes the next time.
        }
    }
}

std::shared_ptr<HookTracker::Hook>
HookTracker::find(ServiceReference<ServiceListenerHook> const& reference) const {
    auto const found = std::find_if(hooks_->begin(), hooks_->end(), [&](auto const& hook) {
        return hook->reference == reference && !hook->removed;
    });
    return found == hooks_->end() ? nullptr : *found;
}

std::shared_ptr<HookTracker::Hooks const>
HookTracker::with(std::shared_ptr<Hook> const& hook) const {
    auto const result = std::make_shared<Hooks>(*without(hook));
    auto const place = std::find_if(result->begin(), result->end(), [&](auto const& other) {
        return other->reference < hook->reference;
    });
    result->insert(place, hook);
    return result;
}

std::shared_ptr<HookTracker::Hooks const>
HookTracker::without(std::shared_ptr<Hook> const& hook) const {
    auto const result = std::make_shared<Hooks>(*hooks_);
    std::erase_if(*result, [&](auto const& other) { return other == hook || other->removed; });
    return result;
}

template <class Call>
void HookTracker::tell(FrameworkCore& core, Hook const& hook, Call const& call) {
    if (hook.removed) {
        return;
    }
    try {
        call();
    } catch (...) {
        core.sendWarning(
            "Failed to call listener hook # ", ReferenceData::of(hook.reference)->record->id);
    }
}

} // namespace cppmicroservices::detail
