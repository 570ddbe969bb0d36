#include "wire/ErrorCodec.hpp"

#include "wire/CutText.hpp"
#include "wire/ErrorTypes.hpp"
#include "wire/FrameLimits.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>

namespace agent::orvi::remoting::details {
namespace {

std::string readableName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? name.get() : type.name();
}

v1::Failure failureOf(const std::string& type, std::string_view text) {
    v1::Failure failure;
    failure.set_type(std::string(cutText(type, maximumErrorType)));
    failure.set_text(std::string(cutText(text, maximumErrorText)));
    return failure;
}

v1::Failure describe(const std::exception& error) {
    const char* const given = error.what();
    const std::string_view text = given == nullptr ? "" : given; // anybody's class
    const auto types = errorTypes();
    const auto known = std::find_if(
        types.begin(), types.end(), [&](const ErrorType& type) { return type.matches(error); });
    if (known != types.end()) {
        v1::Failure failure = failureOf(std::string(known->name), text);
        failure.set_known(known->describe(error, failure));
        return failure;
    }
    if (typeid(error) == typeid(RemoteError)) {
        return failureOf(static_cast<const RemoteError&>(error).typeName(), text);
    }
    return failureOf(readableName(typeid(error)), text);
}

/// To be called while an exception that is no std::exception is being handled.
v1::Failure describeUnknown() {
    const std::type_info* const type = abi::__cxa_current_exception_type();
    return failureOf(
        type == nullptr ? "" : readableName(*type),
        "Something was thrown that is no std::exception.");
}

} // namespace

v1::Failure encodeFailure(const std::exception_ptr& error) {
    if (!error) {
        return failureOf("", "The method failed without saying why.");
    }
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& exception) {
        return describe(exception);
    } catch (...) {
        return describeUnknown();
    }
}

std::exception_ptr decodeFailure(const v1::Failure& failure) {
    for (const ErrorType& type : errorTypes()) {
        if (failure.known() && failure.type() == type.name) {
            if (std::exception_ptr error = type.make(failure)) {
                return error;
            }
        }
    }
    return std::make_exception_ptr(RemoteError(failure.type(), failure.text()));
}

} // namespace agent::orvi::remoting::details
