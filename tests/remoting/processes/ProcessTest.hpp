#pragma once

#include "remoting/discovery/TemporaryDirectory.hpp"
#include "remoting/discovery/Waiting.hpp"
#include "remoting/processes/ProcessFigures.hpp"
#include "remoting/processes/RemoteComponent.hpp"

#include "streambuf/StreamBuffer.hpp"
#include "support/Registry.hpp"
#include "support/Sanitizers.hpp"
#include "support/StreamBuffers.hpp"

#include <orvi/remoting/Errors.hpp>
#include <orvi/remoting/Importer.hpp>

#include <gtest/gtest.h>

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/ServiceReference.h>
#include <cppmicroservices/ServiceTracker.h>

#include <boost/core/demangle.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::test {

using streambuf::makeDevice;
using streambuf::noCloseFunction;
using streambuf::StreamBuffer;
using streambuf::test::newUuid;
using streambuf::test::pattern;
using streambuf::test::put;
using streambuf::test::take;

/// No call that ends with an error takes longer than that.
inline constexpr std::chrono::seconds errorTime{10};

#if defined(ORVI_ADDRESS_SANITIZER) || defined(ORVI_THREAD_SANITIZER)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif

/// Settings that several tests need.
namespace settings {
inline const std::string quickKeepalive = " keepalive=800 timeout=800";
} // namespace settings

/// An action on a thread of its own.
///
/// A test that would never end is ended: there is no way to go on with a thread that hangs.
template <class Result>
class Background {
public:
    template <class Action>
    explicit Background(Action action) {
        std::packaged_task<Result()> task(std::move(action));
        result = task.get_future();
        thread = std::thread(std::move(task));
    }

    ~Background() {
        if (thread.joinable()) {
            finish(longTime);
        }
    }

    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    bool isRunning() const {
        return result.wait_for(std::chrono::seconds::zero()) == std::future_status::timeout;
    }

    /// Wait for the end of the action, and return its result or throw what it has thrown.
    Result get(std::chrono::milliseconds limit = longTime) {
        finish(limit);
        return result.get();
    }

private:
    void finish(std::chrono::milliseconds limit) {
        if (result.wait_for(limit) != std::future_status::ready) {
            std::cerr << "A call hangs." << std::endl;
            std::_Exit(1);
        }
        thread.join();
    }

    std::future<Result> result;
    std::thread thread;
};

template <class Action>
Background(Action) -> Background<std::invoke_result_t<Action>>;

/// Say what an action throws, here or in a component: its type, and the text behind it.
template <class Action>
std::string errorOf(const Action& action) {
    try {
        action();
    } catch (const PeerLost& error) {
        constexpr const char* causes[] = {"terminated", "disconnected", "unresponsive"};
        return std::string("PeerLost ") + causes[static_cast<int>(error.cause())];
    } catch (const ComponentError& error) {
        return error.type() + ": " + error.what();
    } catch (const std::exception& error) {
        return boost::core::demangle(typeid(error).name()) + ": " + error.what();
    }
    return "no error";
}

/// Do something that an endpoint may have no room for at the moment, until it has.
template <class Action>
auto insist(const Action& action) {
    for (;;) {
        try {
            return action();
        } catch (const LimitExceeded&) {
            std::this_thread::yield();
        }
    }
}

inline const std::string terminated = "PeerLost terminated";
inline const std::string disconnected = "PeerLost disconnected";
inline const std::string unresponsive = "PeerLost unresponsive";

/// Looks for a service by its name, so that it is imported, for as long as this lives.
class LookUp {
public:
    explicit LookUp(const std::string& service)
        : tracker(
              streambuf::test::registryContext(),
              cppmicroservices::LDAPFilter("(orvi.servicename=" + service + ")")) {
        tracker.Open();
    }

    explicit LookUp(const boost::uuids::uuid& uuid)
        : LookUp(streambuf::test::serviceNameOf(uuid)) {}

    ~LookUp() { tracker.Close(); }

    LookUp(const LookUp&) = delete;
    LookUp& operator=(const LookUp&) = delete;

    /// Wait for the service.
    std::shared_ptr<core::Invokable> wait() { return tracker.WaitForService(longTime); }

    std::vector<cppmicroservices::ServiceReference<core::Invokable>> found() const {
        return tracker.GetServiceReferences();
    }

private:
    cppmicroservices::ServiceTracker<core::Invokable> tracker;
};

/// Milliseconds that an action takes.
template <class Action>
std::chrono::milliseconds timeOf(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
}

/// A directory where processes meet, and a process that publishes.
class ProcessTest : public testing::Test {
protected:
    /// Return the setting that names the directory.
    std::string where() const { return " directory=" + directory.path.string(); }

    ImporterOptions importing() const {
        ImporterOptions options;
        options.runtimeDirectory = directory.path;
        return options;
    }

    /// Let a component publish under a new UUID.
    static boost::uuids::uuid
    publish(RemoteComponent& component, const std::string& name, const std::string& settings) {
        const auto uuid = newUuid();
        publish(component, name, uuid, settings);
        return uuid;
    }

    static void publish(
        RemoteComponent& component, const std::string& name, const boost::uuids::uuid& uuid,
        const std::string& settings) {
        component.ask(
            "publish name=" + name + " uuid=" + boost::uuids::to_string(uuid) + " " + settings);
    }

    static StreamBuffer connect(const boost::uuids::uuid& uuid) {
        return makeDevice(uuid, noCloseFunction());
    }

    /// Let a component connect.
    static void
    connect(RemoteComponent& component, const std::string& name, const boost::uuids::uuid& uuid) {
        component.ask("connect name=" + name + " uuid=" + boost::uuids::to_string(uuid));
    }

    /// Return the files that endpoints have in the directory.
    std::size_t endpointFiles() const {
        std::size_t count = 0;
        for (const auto& file : std::filesystem::directory_iterator(directory.path)) {
            const auto extension = file.path().extension();
            count += extension == ".sock" || extension == ".lock" ? 1 : 0;
        }
        return count;
    }

    TemporaryDirectory directory;
    RemoteComponent publisher;
};

} // namespace agent::orvi::remoting::test
