#pragma once

#include <orvi/core/ServiceInterface.hpp>
#include <orvi/platform_export.hpp>
#include <payload/CompletionHandler.hpp>
#include <payload/GenericPayload.hpp>

#include <chrono>
#include <optional>
#include <string>

namespace agent::orvi::core {

/// What a client finds in the service registry: a service whose methods are invoked by name,
/// wherever it runs.
///
/// Thread safety: thread-safe; calls may run at the same time.
class ORVI_PLATFORM_EXPORT Invokable {
public:
    /// Describe the service. Valid for as long as this object lives.
    virtual const ServiceInterface& serviceInterface() const = 0;

    /// Say whether the service has a method of that name.
    virtual bool hasMethod(const std::string& method) const = 0;

    /// Run a method and hand its outcome to the completion handler.
    ///
    /// Exactly one side of the handler is called, once, on this or any other thread, before or
    /// after this call returns. What the handler itself throws is dropped, and the handler is
    /// released then.
    ///
    /// The error side receives what the method threw, `ServiceUnavailable` when the service has
    /// been withdrawn, and `UnknownMethod` when it has no such method.
    ///
    /// A local service runs the method at once on the calling thread, so the call blocks for as
    /// long as the method takes, whatever the time limit is. The handler is called and released
    /// before this returns, when the method has ended: it may withdraw the service.
    ///
    /// @param timeLimit how long the caller is willing to wait for a remote answer; disengaged:
    ///        for ever.
    /// @param method the method's name.
    /// @param handler receives the result or the error.
    /// @param arguments one slot per argument.
    /// @param oneWay true when nobody waits for the outcome; the handler may then be dropped
    ///        without a call.
    virtual void invoke(
        std::optional<std::chrono::milliseconds> timeLimit, std::string method,
        CompletionHandler handler, GenericPayload arguments, bool oneWay) = 0;

    virtual ~Invokable();
};

} // namespace agent::orvi::core
