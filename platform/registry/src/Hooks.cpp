#include "FrameworkCore.hpp"

#include "cppmicroservices/ServiceEventListenerHook.h"
#include "cppmicroservices/ServiceFindHook.h"
#include "cppmicroservices/ServiceListenerHook.h"

#include <utility>

namespace cppmicroservices {

ServiceListenerHook::~ServiceListenerHook() = default;
ServiceFindHook::~ServiceFindHook() = default;
ServiceEventListenerHook::~ServiceEventListenerHook() = default;

using ListenerInfo = ServiceListenerHook::ListenerInfo;

ListenerInfo::ListenerInfo() = default;

ListenerInfo::ListenerInfo(std::shared_ptr<detail::ServiceListenerEntry> entry)
    : entry_(std::move(entry)) {}

ListenerInfo::ListenerInfo(ListenerInfo const&) = default;

ListenerInfo& ListenerInfo::operator=(ListenerInfo const&) = default;

ListenerInfo::~ListenerInfo() = default;

BundleContext ListenerInfo::GetBundleContext() const {
    return detail::FrameworkCore::wrap(entry_->context);
}

std::string ListenerInfo::GetFilter() const {
    return entry_->filterText;
}

bool ListenerInfo::IsRemoved() const {
    return entry_->removed;
}

} // namespace cppmicroservices
