#include "streambuf/StreamBuffer.hpp"

#include "connect/InterruptedTracker.hpp"
#include "connect/RegisteredService.hpp"
#include "support/RecordingDevice.hpp"
#include "support/Registry.hpp"
#include "support/ThrowsExactly.hpp"

#include <cppmicroservices/IllegalStateException.h>
#include <cppmicroservices/ServiceException.h>
#include <cppmicroservices/ServiceFindHook.h>
#include <cppmicroservices/ServiceListenerHook.h>
#include <cppmicroservices/ShrinkableVector.h>

#include <boost/uuid/nil_generator.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using cppmicroservices::ServiceFindHook;
using cppmicroservices::ServiceListenerHook;
using std::chrono::seconds;
using test::RegisteredService;
using test::throwsExactly;
using testing::IsEmpty;

/// Sees who looks for which services.
class LookUpObserver : public ServiceListenerHook {
public:
    void Added(const std::vector<ListenerInfo>& listeners) override {
        const std::lock_guard lock(mutex);
        for (const ListenerInfo& listener : listeners) {
            filters.push_back(listener.GetFilter());
        }
        changed.notify_all();
    }

    void Removed(const std::vector<ListenerInfo>& listeners) override {
        const std::lock_guard lock(mutex);
        for (const ListenerInfo& listener : listeners) {
            std::erase(filters, listener.GetFilter());
        }
    }

    /// Wait until somebody looks for services by this filter.
    void awaitFilter(const std::string& filter) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return std::count(filters.begin(), filters.end(), filter) > 0; });
    }

    bool seesFilter(const std::string& filter) {
        const std::lock_guard lock(mutex);
        return std::count(filters.begin(), filters.end(), filter) > 0;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> filters;
};

/// Does something once, when services have been looked up by a filter and before whoever has looked
/// gets them.
class WhenFound : public ServiceFindHook {
public:
    WhenFound(std::string filter, std::function<void()> action)
        : filter(std::move(filter))
        , action(std::move(action)) {}

    void Find(
        const cppmicroservices::BundleContext&, const std::string&, const std::string& by,
        cppmicroservices::ShrinkableVector<cppmicroservices::ServiceReferenceBase>& found)
        override {
        if (by.find(filter) != std::string::npos && !found.empty()) {
            std::call_once(done, action);
        }
    }

private:
    const std::string filter;
    const std::function<void()> action;
    std::once_flag done;
};

std::string filterFor(const boost::uuids::uuid& uuid) {
    return "(orvi.servicename=" + test::serviceNameOf(uuid) + ")";
}

class LookUpTest : public testing::Test {
protected:
    ~LookUpTest() override {
        if (registration) {
            registration.Unregister();
        }
    }

    /// Connect on another thread and return once it looks for the service.
    std::future<StreamBuffer> connectElsewhere(const boost::uuids::uuid& uuid) {
        auto connection = std::async(
            std::launch::async, [this, uuid] { return makeDevice(uuid, closeLog.close()); });
        observer->awaitFilter(filterFor(uuid));
        return connection;
    }

    static StreamBuffer publish(const boost::uuids::uuid& uuid) {
        return makeDevice(uuid, test::RecordingDevice("published").read(), {}, {}, {}, 16);
    }

    const test::RecordingDevice closeLog;
    const std::shared_ptr<LookUpObserver> observer = std::make_shared<LookUpObserver>();
    cppmicroservices::ServiceRegistration<ServiceListenerHook> registration =
        test::registryContext().RegisterService<ServiceListenerHook>(observer);
};

TEST_F(LookUpTest, FindsAServiceThatIsThereAtOnce) {
    const boost::uuids::uuid uuid = test::newUuid();
    const StreamBuffer published = publish(uuid);
    StreamBuffer connected = makeDevice(uuid, noCloseFunction());
    EXPECT_EQ(connected.sgetc(), 'p');
    EXPECT_FALSE(observer->seesFilter(filterFor(uuid))) << "nothing is tracked any more";
}

TEST_F(LookUpTest, EndsSoonAfterTheServiceIsPublished) {
    const boost::uuids::uuid uuid = test::newUuid();
    std::future<StreamBuffer> connection = connectElsewhere(uuid);
    const StreamBuffer other = publish(test::newUuid());
    EXPECT_EQ(connection.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout)
        << "another stream's publication does not end it";

    const auto published = std::chrono::steady_clock::now();
    const StreamBuffer publisher = publish(uuid);
    StreamBuffer connected = connection.get();
    EXPECT_LT(std::chrono::steady_clock::now() - published, seconds(10));
    EXPECT_EQ(connected.sgetc(), 'p');
}

TEST_F(LookUpTest, ServesSeveralWhoWaitForTheSameService) {
    const boost::uuids::uuid uuid = test::newUuid();
    std::vector<std::future<StreamBuffer>> connections;
    for (int client = 0; client < 4; ++client) {
        connections.push_back(connectElsewhere(uuid));
    }
    const StreamBuffer publisher = publish(uuid);
    for (auto& connection : connections) {
        StreamBuffer connected = connection.get();
        EXPECT_EQ(connected.toBytes(), publisher.toBytes());
    }
}

TEST_F(LookUpTest, PassesOverServicesThatAreNotInvokable) {
    struct Unrelated {};

    const boost::uuids::uuid uuid = test::newUuid();
    auto unrelated = test::registryContext().RegisterService<Unrelated>(
        std::make_shared<Unrelated>(), test::completeProperties(uuid));
    std::future<StreamBuffer> connection = connectElsewhere(uuid);
    const RegisteredService service(test::completeProperties(uuid));
    EXPECT_NO_THROW(connection.get());
    unrelated.Unregister();
}

TEST_F(LookUpTest, GoesOnWhenTheServiceIsWithdrawnBetweenTheLookAndItsUse) {
    const boost::uuids::uuid uuid = test::newUuid();
    RegisteredService withdrawn(test::completeProperties(uuid));
    std::promise<void> isWithdrawn;
    auto hook = test::registryContext().RegisterService<ServiceFindHook>(
        std::make_shared<WhenFound>(test::serviceNameOf(uuid), [&] {
            withdrawn.withdraw();
            isWithdrawn.set_value();
        }));
    std::future<StreamBuffer> connection = connectElsewhere(uuid);
    isWithdrawn.get_future().wait();
    const StreamBuffer published = publish(uuid);
    EXPECT_EQ(connection.get().sgetc(), 'p');
    EXPECT_THAT(withdrawn.fake().takeInvocations(), IsEmpty());
    hook.Unregister();
}

TEST_F(LookUpTest, LooksAgainWhenTheRegistryHasFoundAServiceThatIsNotThereAnyMore) {
    const boost::uuids::uuid uuid = test::newUuid();
    std::optional<StreamBuffer> published;
    test::insteadOfOpening() = [&] {
        published = publish(uuid);
        throw std::invalid_argument("The registry's own error");
    };
    EXPECT_EQ(makeDevice(uuid, noCloseFunction()).sgetc(), 'p');
    EXPECT_TRUE(published.has_value());
}

TEST_F(LookUpTest, GivesUpAfterTwentySeconds) {
    const boost::uuids::uuid nil = boost::uuids::nil_uuid();
    const auto start = std::chrono::steady_clock::now();
    std::future<StreamBuffer> connection = connectElsewhere(nil);
    EXPECT_TRUE(observer->seesFilter(
        "(orvi.servicename=orviStreambuf_00000000-0000-0000-0000-000000000000)"));
    EXPECT_THAT(
        [&] { connection.get(); },
        throwsExactly<std::runtime_error>(
            "Stream Buffer with orviStreambuf_00000000-0000-0000-0000-000000000000 streamId was "
            "not found."));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, seconds(20));
    EXPECT_LT(waited, seconds(25));
    EXPECT_THAT(closeLog.calls(), IsEmpty());
    EXPECT_FALSE(observer->seesFilter(filterFor(nil))) << "nothing is tracked any more";
}

TEST_F(LookUpTest, ReportsAServiceThatVanishesBeforeItsPropertiesAreRead) {
    const boost::uuids::uuid uuid = test::newUuid();
    RegisteredService service(test::completeProperties(uuid));
    test::afterServiceIsFound() = [&] { service.withdraw(); };
    EXPECT_THAT(
        [&] { makeDevice(uuid, closeLog.close()); },
        throwsExactly<cppmicroservices::ServiceException>("No service is being tracked"));
    EXPECT_THAT(closeLog.calls(), IsEmpty());
    EXPECT_FALSE(observer->seesFilter(filterFor(uuid)));
}

TEST(LookUpWithoutFrameworkTest, IsALogicErrorOnceTheFrameworkHasStopped) {
    const test::RecordingDevice closeLog;
    const boost::uuids::uuid uuid = test::newUuid();
    const StreamBuffer published =
        makeDevice(uuid, test::RecordingDevice("published").read(), {}, {}, {}, 16);
    test::stopFramework();
    const auto start = std::chrono::steady_clock::now();
    try {
        makeDevice(uuid, closeLog.close());
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "The bundle context cannot be null.");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    EXPECT_THAT(closeLog.calls(), IsEmpty());
    foundation::cppmicroservices::getFramework()->Start();
}

TEST_F(LookUpTest, EndsInTimeWhenTheFrameworkStopsMeanwhile) {
    const boost::uuids::uuid uuid = test::newUuid();
    const auto start = std::chrono::steady_clock::now();
    std::future<StreamBuffer> connection = connectElsewhere(uuid);
    test::stopFramework();
    registration = {};
    try {
        connection.get();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::logic_error& error) {
        EXPECT_THAT(
            error.what(), testing::AnyOf(
                              testing::StrEq("The bundle context cannot be null."),
                              testing::StrEq("The bundle context became null.")));
    } catch (const cppmicroservices::IllegalStateException& error) {
        // The framework stopped while the tracker opened.
        EXPECT_STREQ(error.what(), "The bundle context is no longer valid");
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(
            error.what(),
            "Stream Buffer with " + test::serviceNameOf(uuid) + " streamId was not found.");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(25));
    EXPECT_THAT(closeLog.calls(), IsEmpty());
    foundation::cppmicroservices::getFramework()->Start();
}

} // namespace
} // namespace agent::orvi::streambuf
