#pragma once

#include "bridge/Publication.hpp"

#include <orvi/core/Invokable.hpp>

#include <memory>

namespace agent::orvi::core::detail {

/// The service of a provider in this process. It runs methods at once on the calling thread.
///
/// The methods of its description pass the same gate as `invoke` does, so a client that keeps them
/// keeps nothing of the provider.
///
/// Thread safety: thread-safe.
class LocalInvokable final : public Invokable {
public:
    /// Make it inside of a call into the publication.
    explicit LocalInvokable(std::shared_ptr<Publication> publication);

    const ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string& method) const override;

    void invoke(
        std::optional<std::chrono::milliseconds> timeLimit, std::string method,
        CompletionHandler handler, GenericPayload arguments, bool oneWay) override;

private:
    std::shared_ptr<Publication> publication;
    ServiceInterface description;
};

} // namespace agent::orvi::core::detail
