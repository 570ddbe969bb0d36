#pragma once

#include "carrier/Carrier.hpp"
#include "wire/Messages.hpp"

#include <orvi/core/Connectable.hpp>
#include <orvi/core/Invokable.hpp>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details {

class ClientSession;

/// Where the calls of an imported service go.
struct ServiceAddress {
    std::shared_ptr<Connection> connection;
    std::shared_ptr<Executor> executor;
    std::uint64_t service; ///< The exporter's number of it.
    std::string peer;      ///< Names the peer in errors.
};

/// A service of another process. A client that connects has a call stream of its own; the calls of
/// others share some streams, as many as there are calls at a time.
///
/// Thread safety: thread-safe.
class ImportedService final : public core::Invokable,
                              public core::Connectable,
                              public std::enable_shared_from_this<ImportedService> {
public:
    /// @throws ProtocolError when the description is not of a service.
    static std::shared_ptr<ImportedService>
    make(ServiceAddress address, const v1::Interface& description);

    /// Use `make`.
    ImportedService(ServiceAddress address, core::ServiceInterface description);
    ~ImportedService() override;

    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string& method) const override;

    /// Call on this thread; the handler is called before this returns.
    void invoke(
        std::optional<std::chrono::milliseconds> timeLimit, std::string method,
        core::CompletionHandler handler, core::GenericPayload arguments, bool oneWay) override;

    std::shared_ptr<core::Invokable> connect() override;

private:
    class Client;

    std::shared_ptr<ClientSession> takeSession();
    void giveBack(std::shared_ptr<ClientSession> session);

    const ServiceAddress address;
    const core::ServiceInterface description;

    std::mutex mutex;
    std::vector<std::shared_ptr<ClientSession>> idleSessions;
};

} // namespace agent::orvi::remoting::details
