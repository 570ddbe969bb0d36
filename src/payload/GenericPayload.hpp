#pragma once

#include "payload/FlagArray.hpp"
#include "payload/SlotArray.hpp"

#include <orvi/platform_export.hpp>

#include <boost/container_hash/hash.hpp>
#include <boost/type_index/ctti_type_index.hpp>

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

namespace agent::orvi::core {

namespace detail {
struct GenericPayloadTestAccess;
}

/// A payload slot holds another type than the one asked for, or a payload has another shape than
/// the method takes. Its text is "Bad any_cast".
class ORVI_PLATFORM_EXPORT BadAnyCast : public std::bad_any_cast {
public:
    ~BadAnyCast() override;

    /// Return "Bad any_cast".
    const char* what() const noexcept override;
};

/// The arguments or the result of one remote method call: an ordered list of typed slots.
///
/// Types are compared by a hash of their full compile-time name, without conversions: a slot that
/// holds a `std::int64_t` is not an `int`. A slot whose value was taken stays, empty. Copies never
/// share a value.
///
/// The name is as the compiler spells it, and compilers spell the same type differently:
/// `std::int64_t` is "long int" with GCC and "long" with Clang. All who exchange payloads in one
/// process, this library included, must be built with compilers of one family and with one standard
/// library; otherwise a value of the right type is refused with `BadAnyCast`. Stream buffers of
/// `makeDevice` are not concerned: their payloads are made and read inside the library.
///
/// Up to three slots need no storage beyond their values. A payload is moved through a call; use it
/// to cross a component boundary, not as a general container.
///
/// Thread safety: single-thread.
class ORVI_PLATFORM_EXPORT GenericPayload {
public:
    GenericPayload() noexcept = default;

    /// Copy every value with the copy constructor of its type.
    ///
    /// @throws std::logic_error when a slot holds a future, which cannot be copied.
    /// Exceptions of the values' copy constructors pass unchanged.
    GenericPayload(const GenericPayload& other);

    /// Take over the slots; `other` has none afterwards.
    GenericPayload(GenericPayload&& other) noexcept = default;

    /// Copy as the copy constructor does; nothing has changed when it throws.
    GenericPayload& operator=(const GenericPayload& other);

    /// Take over the slots; `other` has none afterwards.
    GenericPayload& operator=(GenericPayload&& other) noexcept = default;
    ~GenericPayload() = default;

    /// Make a payload with one slot per value, which each holds a copy (or what was moved in).
    template <class... Values>
    static GenericPayload fromValues(Values&&... values) {
        GenericPayload payload;
        (payload.addValue<std::decay_t<Values>>(false, std::forward<Values>(values)), ...);
        return payload;
    }

    /// Make a payload with one slot that will be filled by a future.
    template <class T>
    static GenericPayload fromFuture(std::future<T> future) {
        GenericPayload payload;
        payload.addSlot(
            typeHash<T>(), std::make_shared<std::future<T>>(std::move(future)),
            lasting<&refuseToClone>(), true, false);
        return payload;
    }

    /// Make a payload with one slot that holds all arguments of a call.
    template <class... Arguments>
    static GenericPayload fromPackedArguments(std::tuple<Arguments...> arguments) {
        GenericPayload payload;
        payload.addValue<std::tuple<Arguments...>>(true, std::move(arguments));
        return payload;
    }

    /// Return the identity of a type, computed once per type. It is not the same with another
    /// compiler family or standard library.
    template <class T>
    static std::uint64_t typeHash() {
        static const std::uint64_t hash =
            boost::typeindex::ctti_type_index::type_id<T>().hash_code();
        return hash;
    }

    /// Return the number of slots, empty ones included.
    std::size_t size() const noexcept { return values.size(); }

    /// Check that a slot can be read as a type. Changes nothing. The checks run in this order:
    ///
    /// @throws std::out_of_range "Invalid GenericPayload index" when there is no such slot.
    /// @throws std::runtime_error "GenericPayload empty at index" when it was never filled or has
    ///         been taken.
    /// @throws BadAnyCast "Bad any_cast" when it holds another type.
    /// @throws std::runtime_error "Polymorphic types are not supported with futures" when it holds
    ///         a future and `forbidFutures` is set.
    void check(std::size_t index, std::uint64_t typeHash, bool forbidFutures) const;

    /// Remove the value of a slot and return it, waiting for it if the slot holds a future.
    ///
    /// @throws whatever `check` throws with futures allowed, the payload unchanged; what the future
    ///         throws, the slot emptied.
    template <class T>
    T take(std::size_t index) {
        check(index, typeHash<T>(), false);
        const bool holdsFuture = futureFlags.at(index);
        const std::shared_ptr<void> value = std::move(values[index]);
        if (holdsFuture) {
            return static_cast<std::future<T>*>(value.get())->get();
        }
        return std::move(*static_cast<T*>(value.get()));
    }

    /// Return the value of a slot in place, after `check` with futures forbidden.
    template <class T>
    const T& peek(std::size_t index) const {
        check(index, typeHash<T>(), true);
        return *static_cast<const T*>(values[index].get());
    }

    /// Say whether a slot holds all arguments of a call.
    ///
    /// @throws std::out_of_range "invalid vector<bool> subscript" when there is no such slot.
    bool isPackedArguments(std::size_t index) const { return packedFlags.at(index); }

    /// Return the identity of the type that a slot holds or held.
    ///
    /// @throws std::out_of_range "Invalid GenericPayload index" when there is no such slot.
    std::uint64_t slotType(std::size_t index) const {
        checkIndex(index);
        return typeHashes[index];
    }

    /// Say whether a slot was never filled or has been taken.
    ///
    /// @throws std::out_of_range "Invalid GenericPayload index" when there is no such slot.
    bool isEmpty(std::size_t index) const {
        checkIndex(index);
        return !values[index];
    }

    /// Say whether a slot's value comes from a future, also after it has been taken.
    ///
    /// @throws std::out_of_range "Invalid GenericPayload index" when there is no such slot.
    bool holdsFuture(std::size_t index) const {
        checkIndex(index);
        return futureFlags.at(index);
    }

    /// Return the value of a slot to be changed in place, after `check` with futures forbidden.
    template <class T>
    T& edit(std::size_t index) {
        check(index, typeHash<T>(), true);
        return *static_cast<T*>(values[index].get());
    }

    /// Take over the slots of another payload, behind those that are there; `other` has none
    /// afterwards.
    ///
    /// @throws std::bad_alloc when there is no room for them; nothing has changed then.
    void append(GenericPayload&& other);

    /// Remove what a slot holds, be it a value, a future or nothing, and return it in a payload of
    /// that one slot. The slot stays, empty.
    ///
    /// @throws std::out_of_range "Invalid GenericPayload index" when there is no such slot.
    GenericPayload takeSlot(std::size_t index);

private:
    friend struct detail::GenericPayloadTestAccess;

    using Cloner = std::function<std::shared_ptr<void>(std::shared_ptr<void>)>;

    template <class Element>
    using SlotArray = detail::SlotArray<Element, 3>;

    template <class T>
    static std::shared_ptr<void> cloner_helper(const std::shared_ptr<void>& value) {
        return std::make_shared<T>(*static_cast<const T*>(value.get()));
    }

    /// @throws std::logic_error always: a future cannot be copied.
    static std::shared_ptr<void> refuseToClone(const std::shared_ptr<void>& value);

    /// Return the one cloner that calls a function; a slot moves without it. It is never destroyed,
    /// since payloads of static lifetime may be copied until the process ends.
    template <std::shared_ptr<void> (*clone)(const std::shared_ptr<void>&)>
    static const Cloner& lasting() {
        alignas(Cloner) static std::byte storage[sizeof(Cloner)];
        static const Cloner& cloner = *::new (static_cast<void*>(storage)) Cloner(clone);
        return cloner;
    }

    template <class T, class Value>
    void addValue(bool packed, Value&& value) {
        static_assert(std::is_copy_constructible_v<T>, "a payload must be able to copy its values");
        addSlot(
            typeHash<T>(), std::make_shared<T>(std::forward<Value>(value)),
            lasting<&cloner_helper<T>>(), false, packed);
    }

    void checkIndex(std::size_t index) const;

    void reserve(std::size_t slots);

    void addSlot(
        std::uint64_t typeHash, std::shared_ptr<void> value, const Cloner& cloner, bool future,
        bool packed);

    SlotArray<std::uint64_t> typeHashes;
    SlotArray<std::shared_ptr<void>> values;
    SlotArray<const Cloner*> cloners;
    detail::FlagArray futureFlags;
    detail::FlagArray packedFlags;
};

} // namespace agent::orvi::core
