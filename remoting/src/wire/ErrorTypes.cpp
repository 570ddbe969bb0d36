#include "wire/ErrorTypes.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <orvi/remoting/Errors.hpp>
#include <payload/GenericPayload.hpp>

#include <algorithm>
#include <any>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <ios>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <typeinfo>
#include <utility>
#include <variant>
#include <version>

#ifdef __cpp_lib_format
#include <format>
#endif

namespace agent::orvi::remoting::details {
namespace {

/// An exception with a text that its type cannot be given.
template <class Error>
class WithText final : public Error {
public:
    template <class... Arguments>
    explicit WithText(std::string text, Arguments&&... arguments)
        : Error(std::forward<Arguments>(arguments)...)
        , text(std::make_shared<const std::string>(std::move(text))) {}

    const char* what() const noexcept override { return text->c_str(); }

private:
    std::shared_ptr<const std::string> text; // copying an exception must not throw
};

template <class Error>
bool isExactly(const std::exception& error) {
    return typeid(error) == typeid(Error) || typeid(error) == typeid(WithText<Error>);
}

bool hasNoDetails(const std::exception&, v1::Failure&) {
    return true;
}

template <class Error>
std::exception_ptr fromText(const v1::Failure& failure) {
    return std::make_exception_ptr(Error(failure.text()));
}

/// Return the exception if it has the text of the failure, else one that has.
template <class Error, class... Arguments>
std::exception_ptr
withText(const Error& error, const v1::Failure& failure, Arguments... arguments) {
    return failure.text() == error.what()
               ? std::make_exception_ptr(error)
               : std::make_exception_ptr(WithText<Error>(failure.text(), arguments...));
}

template <class Error>
std::exception_ptr withFixedText(const v1::Failure& failure) {
    return withText(Error(), failure);
}

/// An exception whose only detail is its text.
template <class Error>
constexpr ErrorType textError(std::string_view name) {
    return {name, &isExactly<Error>, &hasNoDetails, &fromText<Error>};
}

/// An exception that is made of nothing.
template <class Error>
constexpr ErrorType plainError(std::string_view name) {
    return {name, &isExactly<Error>, &hasNoDetails, &withFixedText<Error>};
}

/// Return the categories whose codes mean the same everywhere.
std::array<const std::error_category*, 4> sharedCategories() {
    return {
        &std::generic_category(), &std::system_category(), &std::iostream_category(),
        &std::future_category()};
}

bool describeCode(const std::error_code& code, v1::Failure& failure) {
    const auto categories = sharedCategories();
    if (std::find(categories.begin(), categories.end(), &code.category()) == categories.end()) {
        return false;
    }
    failure.set_category(code.category().name());
    failure.set_code(code.value());
    return true;
}

template <class Error>
bool hasCode(const std::exception& error, v1::Failure& failure) {
    return describeCode(static_cast<const Error&>(error).code(), failure);
}

std::optional<std::error_code> codeFrom(const v1::Failure& failure) {
    for (const std::error_category* const category : sharedCategories()) {
        if (failure.category() == category->name()) {
            return std::error_code(failure.code(), *category);
        }
    }
    return std::nullopt;
}

/// Return the text that an exception with a code was made with: the standard library appends the
/// code's own text to it.
std::string textBeforeCode(const std::string& text, const std::error_code& code) {
    const std::string end = ": " + code.message();
    return text.ends_with(end) ? text.substr(0, text.size() - end.size()) : text;
}

std::exception_ptr makeSystemError(const v1::Failure& failure) {
    const std::optional<std::error_code> code = codeFrom(failure);
    if (!code) {
        return nullptr;
    }
    if (failure.text() == code->message()) {
        return withText(std::system_error(*code), failure, *code);
    }
    return withText(
        std::system_error(*code, textBeforeCode(failure.text(), *code)), failure, *code);
}

std::exception_ptr makeStreamFailure(const v1::Failure& failure) {
    const std::optional<std::error_code> code = codeFrom(failure);
    if (!code) {
        return nullptr;
    }
    return withText(
        std::ios_base::failure(textBeforeCode(failure.text(), *code), *code), failure, "", *code);
}

std::exception_ptr makeFilesystemError(const v1::Failure& failure) {
    const std::optional<std::error_code> code = codeFrom(failure);
    if (!code) {
        return nullptr;
    }
    return std::make_exception_ptr(
        WithText<std::filesystem::filesystem_error>(failure.text(), "", *code));
}

std::exception_ptr makeFutureError(const v1::Failure& failure) {
    if (failure.category() != std::future_category().name()) {
        return nullptr;
    }
    const auto code = static_cast<std::future_errc>(failure.code());
    return withText(std::future_error(code), failure, code);
}

/// Return the type of what streams throw: a private one in libstdc++.
const std::type_info& thrownByStreams() {
    static const std::type_info& type = []() -> const std::type_info& {
        try {
            std::ios(nullptr).exceptions(std::ios_base::badbit);
        } catch (const std::ios_base::failure& failure) {
            return typeid(failure);
        }
        return typeid(std::ios_base::failure);
    }();
    return type;
}

bool isStreamFailure(const std::exception& error) {
    return isExactly<std::ios_base::failure>(error) || typeid(error) == thrownByStreams();
}

/// The codes of regular expressions in the order of the standard, since their numbers differ
/// between standard libraries.
constexpr std::array regexCodes = {
    std::regex_constants::error_collate,   std::regex_constants::error_ctype,
    std::regex_constants::error_escape,    std::regex_constants::error_backref,
    std::regex_constants::error_brack,     std::regex_constants::error_paren,
    std::regex_constants::error_brace,     std::regex_constants::error_badbrace,
    std::regex_constants::error_range,     std::regex_constants::error_space,
    std::regex_constants::error_badrepeat, std::regex_constants::error_complexity,
    std::regex_constants::error_stack};

bool hasRegexCode(const std::exception& error, v1::Failure& failure) {
    const auto code = static_cast<const std::regex_error&>(error).code();
    const auto* const found = std::find(regexCodes.begin(), regexCodes.end(), code);
    if (found == regexCodes.end()) {
        return false;
    }
    failure.set_code(static_cast<int>(found - regexCodes.begin()));
    return true;
}

std::exception_ptr makeRegexError(const v1::Failure& failure) {
    if (failure.code() < 0 || failure.code() >= std::ssize(regexCodes)) {
        return nullptr;
    }
    const auto code = regexCodes[static_cast<std::size_t>(failure.code())];
    return withText(std::regex_error(code), failure, code);
}

bool hasCause(const std::exception& error, v1::Failure& failure) {
    failure.set_code(static_cast<int>(static_cast<const PeerLost&>(error).cause()));
    return true;
}

std::exception_ptr makePeerLost(const v1::Failure& failure) {
    const auto cause = static_cast<PeerLost::Cause>(failure.code());
    switch (cause) {
    case PeerLost::Cause::terminated:
    case PeerLost::Cause::disconnected:
    case PeerLost::Cause::unresponsive:
        return std::make_exception_ptr(PeerLost(cause, failure.text()));
    }
    return nullptr;
}

#if __cpp_lib_chrono >= 201907L
template <class Error, int result>
std::exception_ptr makeLocalTimeError(const v1::Failure& failure) {
    std::chrono::local_info info{};
    info.result = result;
    return std::make_exception_ptr(
        WithText<Error>(failure.text(), std::chrono::local_seconds(), info));
}

template <class Error, int result>
constexpr ErrorType localTimeError(std::string_view name) {
    return {name, &isExactly<Error>, &hasNoDetails, &makeLocalTimeError<Error, result>};
}
#endif

constexpr ErrorType types[] = {
    plainError<std::exception>("std::exception"),
    textError<std::logic_error>("std::logic_error"),
    textError<std::domain_error>("std::domain_error"),
    textError<std::invalid_argument>("std::invalid_argument"),
    textError<std::length_error>("std::length_error"),
    textError<std::out_of_range>("std::out_of_range"),
    {"std::future_error", &isExactly<std::future_error>, &hasCode<std::future_error>,
     &makeFutureError},
    textError<std::runtime_error>("std::runtime_error"),
    textError<std::range_error>("std::range_error"),
    textError<std::overflow_error>("std::overflow_error"),
    textError<std::underflow_error>("std::underflow_error"),
    {"std::system_error", &isExactly<std::system_error>, &hasCode<std::system_error>,
     &makeSystemError},
    {"std::ios_base::failure", &isStreamFailure, &hasCode<std::ios_base::failure>,
     &makeStreamFailure},
    {"std::filesystem::filesystem_error", &isExactly<std::filesystem::filesystem_error>,
     &hasCode<std::filesystem::filesystem_error>, &makeFilesystemError},
    {"std::regex_error", &isExactly<std::regex_error>, &hasRegexCode, &makeRegexError},
#ifdef __cpp_lib_format
    textError<std::format_error>("std::format_error"),
#endif
#if __cpp_lib_chrono >= 201907L
    localTimeError<std::chrono::nonexistent_local_time, std::chrono::local_info::nonexistent>(
        "std::chrono::nonexistent_local_time"),
    localTimeError<std::chrono::ambiguous_local_time, std::chrono::local_info::ambiguous>(
        "std::chrono::ambiguous_local_time"),
#endif
    plainError<std::bad_alloc>("std::bad_alloc"),
    plainError<std::bad_array_new_length>("std::bad_array_new_length"),
    plainError<std::bad_cast>("std::bad_cast"),
    plainError<std::bad_any_cast>("std::bad_any_cast"),
    plainError<std::bad_typeid>("std::bad_typeid"),
    plainError<std::bad_exception>("std::bad_exception"),
    plainError<std::bad_function_call>("std::bad_function_call"),
    plainError<std::bad_weak_ptr>("std::bad_weak_ptr"),
    plainError<std::bad_optional_access>("std::bad_optional_access"),
    plainError<std::bad_variant_access>("std::bad_variant_access"),
    plainError<core::BadAnyCast>("agent::orvi::core::BadAnyCast"),
    textError<core::ServiceUnavailable>("agent::orvi::core::ServiceUnavailable"),
    textError<core::UnknownMethod>("agent::orvi::core::UnknownMethod"),
    {"agent::orvi::remoting::PeerLost", &isExactly<PeerLost>, &hasCause, &makePeerLost},
    textError<ProtocolError>("agent::orvi::remoting::ProtocolError"),
    textError<VersionMismatch>("agent::orvi::remoting::VersionMismatch"),
    textError<AccessDenied>("agent::orvi::remoting::AccessDenied"),
    textError<LimitExceeded>("agent::orvi::remoting::LimitExceeded"),
    textError<TimeLimitExceeded>("agent::orvi::remoting::TimeLimitExceeded"),
    textError<UnsupportedType>("agent::orvi::remoting::UnsupportedType"),
};

} // namespace

std::span<const ErrorType> errorTypes() noexcept {
    return types;
}

} // namespace agent::orvi::remoting::details
