#include "bridge/LocalInvokable.hpp"

#include <orvi/core/InvocationErrors.hpp>

#include <cstddef>
#include <exception>
#include <utility>
#include <vector>

namespace agent::orvi::core::detail {
namespace {

using foundation::concurrent::threadpool::stop_token;

/// A call into a publication, which is refused by an exception.
class AdmittedCall {
public:
    explicit AdmittedCall(Publication& publication)
        : call(publication) {
        if (!call) {
            throw ServiceUnavailable(
                "Service \"" + publication.name() + "\" is not available any more.");
        }
    }

private:
    CallGate::Call call;
};

GenericPayload run(Publication& publication, const std::string& method, GenericPayload arguments) {
    const AdmittedCall call(publication);
    const ExportedFunction* function = publication.offer().description.findMethod(method);
    if (function == nullptr) {
        throw UnknownMethod(
            "Service \"" + publication.name() + "\" has no method \"" + method + "\".");
    }
    return function->function()(stop_token(), std::move(arguments));
}

ServiceInterface gatedDescription(const std::shared_ptr<Publication>& publication) {
    const ServiceInterface& original = publication->offer().description;
    std::vector<ExportedFunction> methods;
    methods.reserve(original.methods().size());
    for (std::size_t index = 0; index < original.methods().size(); ++index) {
        const ExportedFunction& method = original.methods()[index];
        auto gated = [publication, index](stop_token token, GenericPayload arguments) {
            const AdmittedCall call(*publication);
            const Offer& offer = publication->offer();
            return offer.description.methods()[index].function()(token, std::move(arguments));
        };
        methods.emplace_back(
            method.name(), std::move(gated), method.resultType(), method.argumentTypes(),
            method.marker());
    }
    return {original.name(), original.version(), original.metadata(), std::move(methods)};
}

} // namespace

LocalInvokable::LocalInvokable(std::shared_ptr<Publication> publication)
    : publication(std::move(publication))
    , description(gatedDescription(this->publication)) {}

bool LocalInvokable::hasMethod(const std::string& method) const {
    return description.findMethod(method) != nullptr;
}

void LocalInvokable::invoke(
    std::optional<std::chrono::milliseconds>, std::string method, CompletionHandler handler,
    GenericPayload arguments, bool) {
    // A caller may wait for the handler's end, so it must not live on in the parameter.
    const CompletionHandler completion = std::move(handler);
    GenericPayload result;
    std::exception_ptr error;
    try {
        result = run(*publication, method, std::move(arguments));
    } catch (...) {
        error = std::current_exception();
    }
    // The call has left the gate: what the completion does may close the service.
    try {
        if (!error) {
            if (completion.success) {
                completion.success(std::move(result));
            }
        } else if (completion.error) {
            completion.error(std::move(error));
        }
    } catch (...) {
        // The caller's own trouble.
    }
}

} // namespace agent::orvi::core::detail
