#pragma once

#include "cppmicroservices/detail/AnyText.hpp"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace cppmicroservices {

namespace detail {

[[noreturn]] ORVI_PLATFORM_EXPORT void ThrowBadAnyCastException(
    std::string const& function, std::type_info const& source, std::type_info const& target);

} // namespace detail

/// Reports that an Any does not hold the type that was asked for.
class ORVI_PLATFORM_EXPORT BadAnyCastException : public std::bad_cast {
public:
    /// @param message What what() returns; empty selects a general text.
    BadAnyCastException(std::string message = "");
    BadAnyCastException(BadAnyCastException const&) = default;
    BadAnyCastException& operator=(BadAnyCastException const&) = default;
    ~BadAnyCastException() override;

    char const* what() const noexcept override;

private:
    std::string message_;
};

/// Holds one value of any copyable, printable type, or nothing.
///
/// A value type: copying copies what is held. Use it for service properties and framework
/// configuration. String literals must be wrapped in `std::string` first. Thread-compatible.
class ORVI_PLATFORM_EXPORT Any {
public:
    /// Holds nothing.
    Any() = default;

    /// Holds a copy of @p value.
    template <class T>
    Any(T const& value)
        : content_(std::make_unique<Holder<T>>(value)) {}

    /// Holds @p value, moved.
    template <
        class T,
        class = std::enable_if_t<!std::is_same_v<Any, std::decay_t<T>> && !std::is_reference_v<T>>>
    Any(T&& value)
        : content_(std::make_unique<Holder<std::decay_t<T>>>(std::forward<T>(value))) {}

    Any(Any const& other)
        : content_(other.content_ ? other.content_->clone() : nullptr) {}

    Any(Any&& other) noexcept = default;
    ~Any() = default;

    Any& operator=(Any const& other) {
        Any(other).Swap(*this);
        return *this;
    }

    Any& operator=(Any&& other) noexcept = default;

    /// Replaces what is held by a copy of @p value.
    template <class T>
    Any& operator=(T const& value) {
        Any(value).Swap(*this);
        return *this;
    }

    /// Replaces what is held by @p value, moved.
    template <
        class T,
        class = std::enable_if_t<!std::is_same_v<Any, std::decay_t<T>> && !std::is_reference_v<T>>>
    Any& operator=(T&& value) {
        Any(std::forward<T>(value)).Swap(*this);
        return *this;
    }

    /// Exchanges what the two objects hold.
    Any& Swap(Any& other) {
        content_.swap(other.content_);
        return *this;
    }

    /// Tells whether an object of exactly type T is held that equals @p value; false for a T
    /// without `operator==`.
    template <class T>
    bool operator==(T const& value) const {
        if (Type() != typeid(T)) {
            return false;
        }
        if constexpr (detail::HasEquality<T>::value) {
            return static_cast<Holder<T> const*>(content_.get())->value == value;
        } else {
            return false;
        }
    }

    /// Tells whether both hold equal values of the same type, or both nothing.
    bool operator==(Any const& other) const {
        return other.content_ ? other.content_->equals(*this) : Empty();
    }

    template <class T>
    bool operator!=(T const& value) const {
        return !operator==(value);
    }

    /// Tells whether nothing is held.
    bool Empty() const { return !content_; }

    /// Returns the text of the value.
    /// @throws std::logic_error "empty any" if nothing is held.
    std::string ToString() const;

    /// Returns the text of the value, or an empty text if nothing is held.
    std::string ToStringNoExcept() const;

    /// Returns the value as JSON, "null" if nothing is held.
    /// @param increment Number of spaces per level; 0 writes everything on one line.
    /// @param indent Number of spaces before the first nested line.
    std::string ToJSON(std::uint8_t increment, std::int32_t indent) const;

    /// Returns the value as JSON, over several lines with four spaces per level if @p prettyPrint
    /// is set.
    std::string ToJSON(bool prettyPrint = false) const;

    /// Returns the type of the value, `typeid(void)` if nothing is held.
    std::type_info const& Type() const { return content_ ? content_->type() : typeid(void); }

private:
    struct Content {
        Content() = default;
        Content(Content const&) = delete;
        Content& operator=(Content const&) = delete;
        virtual ~Content() = default;
        virtual std::type_info const& type() const = 0;
        virtual std::unique_ptr<Content> clone() const = 0;
        virtual bool equals(Any const& other) const = 0;
        virtual void print(std::ostream& os) const = 0;
        virtual void
        printJson(std::ostream& os, std::uint8_t increment, std::int32_t indent) const = 0;
    };

    template <class T>
    struct Holder final : Content {
        explicit Holder(T const& v)
            : value(v) {}

        explicit Holder(T&& v)
            : value(std::move(v)) {}

        std::type_info const& type() const override { return typeid(T); }

        std::unique_ptr<Content> clone() const override { return std::make_unique<Holder>(value); }

        bool equals(Any const& other) const override { return other == value; }

        void print(std::ostream& os) const override { any_value_to_string(os, value); }

        void
        printJson(std::ostream& os, std::uint8_t increment, std::int32_t indent) const override {
            any_value_to_json(os, value, increment, indent);
        }

        T value;
    };

    template <class T>
    friend T* any_cast(Any* operand);
    template <class T>
    friend T* unsafe_any_cast(Any* operand);

    std::unique_ptr<Content> content_;
};

/// Returns a pointer to the held value without checking its type; @p operand must hold a T.
template <class T>
T* unsafe_any_cast(Any* operand) {
    return &static_cast<Any::Holder<std::remove_cv_t<T>>*>(operand->content_.get())->value;
}

/// Returns a pointer to the held value, null if @p operand is null or holds another type.
template <class T>
T* any_cast(Any* operand) {
    return operand && operand->Type() == typeid(T) ? unsafe_any_cast<T>(operand) : nullptr;
}

/// Returns a pointer to the held value, null if @p operand is null or holds another type.
template <class T>
T const* any_cast(Any const* operand) {
    return any_cast<T>(const_cast<Any*>(operand));
}

/// Returns a reference to the held value.
/// @throws BadAnyCastException if @p operand holds another type.
template <class T>
T const& ref_any_cast(Any const& operand) {
    auto const* result = any_cast<T>(&operand);
    if (!result) {
        detail::ThrowBadAnyCastException("ref_any_cast", operand.Type(), typeid(T));
    }
    return *result;
}

/// Returns a reference to the held value.
/// @throws BadAnyCastException if @p operand holds another type.
template <class T>
T& ref_any_cast(Any& operand) {
    return const_cast<T&>(ref_any_cast<T>(static_cast<Any const&>(operand)));
}

/// Returns a copy of the held value.
/// @throws BadAnyCastException if @p operand holds another type.
template <class T>
T any_cast(Any const& operand) {
    auto const* result = any_cast<T>(&operand);
    if (!result) {
        detail::ThrowBadAnyCastException("any_cast", operand.Type(), typeid(T));
    }
    return *result;
}

/// Returns a copy of the held value.
/// @throws BadAnyCastException if @p operand holds another type.
template <class T>
T any_cast(Any& operand) {
    return any_cast<T>(static_cast<Any const&>(operand));
}

/// Returns a pointer to the held value, null if @p operand is null or holds another type.
template <class T>
T const* unsafe_any_cast(Any const* operand) {
    return any_cast<T>(const_cast<Any*>(operand));
}

} // namespace cppmicroservices
