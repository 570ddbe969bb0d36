#include "cppmicroservices/Any.h"

#include "cppmicroservices/ServiceInterface.h"

#include <cxxabi.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

namespace detail {

std::string GetDemangledName(std::type_info const& typeInfo) {
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> const name(
        abi::__cxa_demangle(typeInfo.name(), nullptr, nullptr, &status), &std::free);
    return name && status == 0 ? name.get() : std::string();
}

void ThrowBadAnyCastException(
    std::string const& function, std::type_info const& source, std::type_info const& target) {
    throw BadAnyCastException(
        "cppmicroservices::BadAnyCastException: " + function +
        ": Failed to convert from cppmicroservices::Any type " + GetDemangledName(source) +
        " to target type " + GetDemangledName(target));
}

} // namespace detail

BadAnyCastException::BadAnyCastException(std::string message)
    : message_(
          message.empty() ? "cppmicroservices::BadAnyCastException: failed conversion using "
                            "cppmicroservices::any_cast"
                          : std::move(message)) {}

BadAnyCastException::~BadAnyCastException() = default;

char const* BadAnyCastException::what() const noexcept {
    return message_.c_str();
}

std::string Any::ToString() const {
    if (Empty()) {
        throw std::logic_error("empty any");
    }
    return ToStringNoExcept();
}

std::string Any::ToStringNoExcept() const {
    std::ostringstream stream;
    if (content_) {
        content_->print(stream);
    }
    return stream.str();
}

std::string Any::ToJSON(std::uint8_t increment, std::int32_t indent) const {
    if (Empty()) {
        return "null";
    }
    std::ostringstream stream;
    content_->printJson(stream, increment, indent);
    return stream.str();
}

std::string Any::ToJSON(bool prettyPrint) const {
    std::uint8_t const increment = prettyPrint ? 4 : 0;
    return ToJSON(increment, increment);
}

std::ostream& newline_and_indent(std::ostream& os, std::uint8_t increment, std::int32_t indent) {
    if (increment > 0) {
        os << '\n';
        for (std::int32_t i = 0; i < indent; ++i) {
            os << ' ';
        }
    }
    return os;
}

std::ostream& any_value_to_string(std::ostream& os, Any const& any) {
    return os << any.ToString();
}

std::ostream&
any_value_to_json(std::ostream& os, Any const& any, std::uint8_t increment, std::int32_t indent) {
    return os << any.ToJSON(increment, indent);
}

std::ostream&
any_value_to_json(std::ostream& os, std::string const& text, std::uint8_t, std::int32_t) {
    constexpr char const* hexadecimal = "0123456789abcdef";
    os << '"';
    for (char const c : text) {
        switch (c) {
        case '"':
            os << "\\\"";
            break;
        case '\\':
            os << "\\\\";
            break;
        case '\b':
            os << "\\b";
            break;
        case '\f':
            os << "\\f";
            break;
        case '\n':
            os << "\\n";
            break;
        case '\r':
            os << "\\r";
            break;
        case '\t':
            os << "\\t";
            break;
        default:
            if (c >= '\x00' && c <= '\x1f') {
                os << "\\u00" << hexadecimal[c / 16] << hexadecimal[c % 16];
            } else {
                os << c;
            }
        }
    }
    return os << '"';
}

} // namespace cppmicroservices
