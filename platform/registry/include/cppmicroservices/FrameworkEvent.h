#pragma once

#include <orvi/platform_export.hpp>

#include <cstdint>
#include <exception>
#include <memory>
#include <ostream>
#include <string>

namespace cppmicroservices {

class Bundle;

/// Tells a framework listener what happened in the framework. An immutable value.
class ORVI_PLATFORM_EXPORT FrameworkEvent {
public:
    enum Type : std::uint32_t {
        FRAMEWORK_STARTED = 0x00000001,
        /// A listener or a service factory threw an exception.
        FRAMEWORK_ERROR = 0x00000002,
        /// A hook threw an exception, or a service factory returned too few interfaces.
        FRAMEWORK_WARNING = 0x00000010,
        FRAMEWORK_INFO = 0x00000020,
        FRAMEWORK_STOPPED = 0x00000040,
        FRAMEWORK_STOPPED_UPDATE = 0x00000080,
        FRAMEWORK_WAIT_TIMEDOUT = 0x00000200
    };

    /// An invalid event.
    FrameworkEvent() = default;
    FrameworkEvent(
        Type type, Bundle const& bundle, std::string const& message,
        std::exception_ptr exception = nullptr);

    /// Tells whether the event is valid.
    explicit operator bool() const { return data_ != nullptr; }

    /// Returns the bundle concerned, an invalid one if the event is.
    Bundle GetBundle() const;

    /// Returns the text, empty if the event is invalid.
    std::string GetMessage() const;

    /// Returns the exception behind the event, null if there is none.
    std::exception_ptr GetThrowable() const;

    /// Returns what happened, FRAMEWORK_ERROR if the event is invalid.
    Type GetType() const;

private:
    struct Data;
    std::shared_ptr<Data const> data_;
};

ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, FrameworkEvent::Type eventType);
ORVI_PLATFORM_EXPORT std::ostream& operator<<(std::ostream& os, FrameworkEvent const& event);
ORVI_PLATFORM_EXPORT bool operator==(FrameworkEvent const& left, FrameworkEvent const& right);

} // namespace cppmicroservices
