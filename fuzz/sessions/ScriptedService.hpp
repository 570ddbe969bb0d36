#pragma once

#include "Input.hpp"

#include "sessions/AnyEnd.hpp"

#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/ServiceRegistration.h>

#include <deque>
#include <memory>
#include <set>
#include <string>

namespace agent::orvi::fuzz {

/// Services whose methods end as a script says: at once, later, never, well, with an error, with
/// results of all kinds. What they answered well is remembered.
class ServiceScript {
public:
    explicit ServiceScript(Input& input)
        : input(input) {}

    /// Answer a call.
    ///
    /// @param mayWait later, too.
    void answer(core::CompletionHandler handler, bool mayWait);

    /// End a call that waits for its answer.
    ///
    /// @return false when there is none.
    bool endWaiting();

    /// Take note that a client has got an answer.
    ///
    /// @param answer the slots and the bytes.
    /// @return whether a service has given it, and nobody else has got it.
    bool take(const std::string& answer);

private:
    void answerNow(const core::CompletionHandler& handler);
    core::GenericPayload result();

    Input& input;
    std::deque<core::CompletionHandler> waiting;
    std::multiset<std::string> given;
};

/// A service in the registry as a publisher's would be.
class ScriptedService {
public:
    ScriptedService(const std::string& name, long size);
    ~ScriptedService();

    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    /// Return the number by which an endpoint offers it.
    std::uint64_t number() const;

    /// Have calls answered by a script, or dropped without one.
    void follow(ServiceScript* script);

private:
    class Object;

    std::shared_ptr<Object> object;
    cppmicroservices::ServiceRegistration<core::Invokable> registration;
};

} // namespace agent::orvi::fuzz
