#pragma once

#include "payload/PayloadAdapters.hpp"

#include <orvi/core/ExportedFunction.hpp>
#include <orvi/core/MultiMethodInterfaceBuilder.hpp>
#include <orvi/core/ServiceProvider.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf {

/// The service that a device is published as: one interface whose methods are the operations that
/// the device has.
///
/// Complete it before it is registered. Thread safety: thread-compatible.
class StreamBufferService : public core::ServiceProvider {
public:
    StreamBufferService(std::string name, core::APIVersion version);

    /// Describe the interface, afresh on every call.
    std::vector<core::ServiceInterface> getServiceInterfaces() override;

    ~StreamBufferService() override;

    /// Add one metadata pair to the interface.
    void addMetadata(std::string key, std::string value);

    /// Add a method to the interface; `handler` has one typed signature.
    template <class Handler>
    void addMethod(std::string method, Handler handler) {
        addAdapted(
            std::move(method), std::move(handler),
            static_cast<decltype(std::function(std::declval<Handler>()))*>(nullptr));
    }

private:
    template <class Handler, class Result, class... Arguments>
    void
    addAdapted(std::string method, Handler handler, const std::function<Result(Arguments...)>*) {
        builder.addMethod(core::ExportedFunction(
            std::move(method), core::detail::genericPayloadWrapper(std::move(handler)),
            core::GenericPayload::typeHash<std::decay_t<Result>>(),
            {core::GenericPayload::typeHash<std::decay_t<Arguments>>()...}));
    }

    core::MultiMethodInterfaceBuilder builder;
    std::string name;
};

} // namespace agent::orvi::streambuf
