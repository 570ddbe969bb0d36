#pragma once

#include <orvi/core/Invokable.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf::test {

/// A service that records its calls and answers them as a test says.
///
/// Thread-safe.
class FakeInvokable : public core::Invokable {
public:
    struct Invocation {
        std::optional<std::chrono::milliseconds> timeLimit;
        std::string method;
        core::GenericPayload arguments;
        bool oneWay;
    };

    /// Answers a call: it owns the completion handler and may keep it or drop it.
    using Answer = std::function<void(core::CompletionHandler handler)>;

    explicit FakeInvokable(Answer answer)
        : answer(std::move(answer)) {}

    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string&) const override { return true; }

    void invoke(
        std::optional<std::chrono::milliseconds> timeLimit, std::string method,
        core::CompletionHandler handler, core::GenericPayload arguments, bool oneWay) override {
        {
            const std::lock_guard lock(mutex);
            recorded.push_back({timeLimit, std::move(method), std::move(arguments), oneWay});
        }
        answer(std::move(handler));
    }

    /// Return the calls since the last `takeInvocations`, oldest first.
    std::vector<Invocation> takeInvocations() {
        const std::lock_guard lock(mutex);
        return std::exchange(recorded, {});
    }

private:
    core::ServiceInterface description{"fake", core::APIVersion(1, 0), {}, {}};
    Answer answer;
    std::mutex mutex;
    std::vector<Invocation> recorded;
};

/// Answer every call with this value.
template <class T>
FakeInvokable::Answer answeringWith(T value) {
    return [value = std::move(value)](const core::CompletionHandler& handler) {
        handler.success(core::GenericPayload::fromValues(value));
    };
}

} // namespace agent::orvi::streambuf::test
