#pragma once

#include "payload/CompletionHandler.hpp"
#include "payload/GenericPayload.hpp"

#include <foundation/concurrent/threadpool/stop_token.hpp>

#include <cstddef>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

namespace agent::orvi::core {

namespace detail {

/// Call `function` with the arguments that a payload holds: one slot each, or all in one packed
/// slot. A function of one parameter reads slot 0 and ignores further slots.
template <class Result, class Function, class... Arguments, std::size_t... Index>
Result callWithPayload(
    const Function& function, const GenericPayload& payload,
    std::tuple<Arguments...>*, // deduces the argument types
    std::index_sequence<Index...>) {
    constexpr std::size_t parameterCount = sizeof...(Arguments);
    if (parameterCount == 1 || payload.size() == parameterCount) {
        // The braces make the checks run in order, all of them before the call.
        return std::apply(
            function, std::tuple<const Arguments&...>{payload.peek<Arguments>(Index)...});
    }
    if (payload.size() == 1 && payload.isPackedArguments(0)) {
        return std::apply(function, payload.peek<std::tuple<Arguments...>>(0));
    }
    throw BadAnyCast();
}

template <class Function, class Signature>
class PayloadAdapter;

/// A typed function in payload form.
template <class Function, class Result, class... Arguments>
class PayloadAdapter<Function, Result(Arguments...)> {
public:
    explicit PayloadAdapter(Function function)
        : function(std::move(function)) {}

    GenericPayload operator()(
        foundation::concurrent::threadpool::stop_token, const GenericPayload& payload) const {
        return GenericPayload::fromValues(callWithPayload<Result>(
            function, payload, static_cast<std::tuple<std::decay_t<Arguments>...>*>(nullptr),
            std::index_sequence_for<Arguments...>()));
    }

private:
    Function function;
};

template <class Function, class Result, class... Arguments>
auto adaptToPayload(Function function, const std::function<Result(Arguments...)>*) {
    return std::function<GenericPayload(
        foundation::concurrent::threadpool::stop_token, GenericPayload)>(
        PayloadAdapter<Function, Result(Arguments...)>(std::move(function)));
}

/// Adapt a typed function of one or more parameters to payload form.
///
/// The adapted function checks its arguments before it calls `function`, hands them over by
/// reference to their slots, and returns a one-slot payload. It throws what
/// `GenericPayload::check` throws, `BadAnyCast` when the payload's shape fits neither one slot per
/// argument nor one packed slot, and whatever `function` throws (`std::bad_function_call` when it
/// is empty).
template <class Function>
auto genericPayloadWrapper(Function function) {
    using Signature = decltype(std::function(std::declval<Function>()));
    return adaptToPayload(std::move(function), static_cast<const Signature*>(nullptr));
}

/// Adapt a callable that takes a `T` to a success side: it receives slot 0 of the answer.
///
/// The adapted function throws what `GenericPayload::take` throws, without calling `consume`.
template <class T, class Consume>
std::function<void(GenericPayload)> genericPayloadWrapperCH(Consume consume) {
    return
        [consume = std::move(consume)](GenericPayload&& payload) { consume(payload.take<T>(0)); };
}

} // namespace detail

/// Make a completion handler that fulfils `promise` with slot 0 of the answer or with the error.
///
/// The handler is the only owner of the promise that this function leaves behind: dropped unused,
/// it breaks the promise. An unfit answer throws out of the success side and leaves the promise
/// unfulfilled.
template <class T>
CompletionHandler promiseCompletingHandler(std::shared_ptr<std::promise<T>> promise) {
    auto success = detail::genericPayloadWrapperCH<T>(
        [promise](T value) { promise->set_value(std::move(value)); });
    return {std::move(success), [promise = std::move(promise)](std::exception_ptr error) {
                promise->set_exception(std::move(error));
            }};
}

} // namespace agent::orvi::core
