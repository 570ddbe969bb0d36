#pragma once

#include <foundation/concurrent/threadpool/stop_token.hpp>
#include <payload/GenericPayload.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::core {

/// A method in the form in which the framework calls it: arguments and result in payloads.
using PayloadFunction =
    std::function<GenericPayload(foundation::concurrent::threadpool::stop_token, GenericPayload)>;

/// Marks a method whose result is a source or a sink of data rather than a value.
enum class DataMarker { source, sink };

/// The description of one method of a service interface. A value.
class ExportedFunction {
public:
    /// Describe a method.
    ///
    /// @param name the name it is invoked by.
    /// @param function runs the method; called on the threads of its callers, several at once.
    /// @param resultType type hash of the result.
    /// @param argumentTypes type hashes of the arguments, in order.
    /// @param marker set when the result is a data source or sink.
    ExportedFunction(
        std::string name, PayloadFunction function, std::uint64_t resultType,
        std::vector<std::uint64_t> argumentTypes, std::optional<DataMarker> marker = std::nullopt)
        : methodName(std::move(name))
        , payloadFunction(std::move(function))
        , resultHash(resultType)
        , argumentHashes(std::move(argumentTypes))
        , dataMarker(marker) {}

    /// Return the name that the method is invoked by.
    const std::string& name() const noexcept { return methodName; }

    /// Return what runs the method.
    const PayloadFunction& function() const noexcept { return payloadFunction; }

    /// Return the type hash of the result.
    std::uint64_t resultType() const noexcept { return resultHash; }

    /// Return the type hashes of the arguments, in order.
    const std::vector<std::uint64_t>& argumentTypes() const noexcept { return argumentHashes; }

    /// Return whether the result is a data source or sink, if it is one.
    std::optional<DataMarker> marker() const noexcept { return dataMarker; }

private:
    std::string methodName;
    PayloadFunction payloadFunction;
    std::uint64_t resultHash;
    std::vector<std::uint64_t> argumentHashes;
    std::optional<DataMarker> dataMarker;
};

} // namespace agent::orvi::core
