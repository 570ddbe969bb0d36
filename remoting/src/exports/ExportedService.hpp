#pragma once

#include "exports/CallQueue.hpp"
#include "exports/PositionKeeper.hpp"
#include "wire/PropertyCodec.hpp"

#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/ServiceReferenceBase.h>

#include <cstdint>
#include <memory>
#include <string>

namespace agent::orvi::remoting::details {

/// What puts the calls of one service in order.
struct ServiceTurns {
    ServiceTurns(std::shared_ptr<core::Invokable> service, const std::weak_ptr<Executor>& executor);

    const std::shared_ptr<core::Invokable> service;
    CallQueue queue;          ///< For calls one at a time.
    PositionKeeper positions; ///< For the call whose turn it is.
};

/// A service that an endpoint offers. It holds the service object, so calls may outlive the offer:
/// they are told that the service has been withdrawn.
///
/// Thread safety: thread-safe.
struct ExportedService {
    ExportedService(
        const cppmicroservices::ServiceReferenceBase& reference, std::uint64_t number,
        std::shared_ptr<core::Invokable> service, Properties properties,
        const std::weak_ptr<Executor>& executor);

    const cppmicroservices::ServiceReferenceBase reference;
    const std::uint64_t number;
    const std::string name;
    const std::shared_ptr<core::Invokable> service;
    const Properties properties;          ///< As importers get them.
    const cppmicroservices::AnyMap asMap; ///< The same, for filters.

    /// Shared with what was offered under this number before, whose clients may still be there.
    std::shared_ptr<ServiceTurns> turns;
};

} // namespace agent::orvi::remoting::details
