#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceEventListenerHook.h>
#include <cppmicroservices/ServiceFindHook.h>
#include <cppmicroservices/ServiceListenerHook.h>
#include <cppmicroservices/ServiceTracker.h>

#include <algorithm>
#include <unordered_set>

namespace registry_test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using Infos = std::vector<ServiceListenerHook::ListenerInfo>;

struct RecordingHook : ServiceListenerHook {
    void Added(std::vector<ListenerInfo> const& listeners) override { record("+", listeners); }

    void Removed(std::vector<ListenerInfo> const& listeners) override { record("-", listeners); }

    void record(std::string const& what, Infos const& listeners) {
        for (auto const& info : listeners) {
            calls.push_back(prefix + what + info.GetFilter());
            infos.push_back(info);
        }
    }

    std::vector<std::string> take() {
        infos.clear();
        return std::exchange(calls, {});
    }

    std::string prefix;
    std::vector<std::string> calls;
    Infos infos;
};

class ServiceListenerHookTest : public RegistryTest {
protected:
    ServiceRegistration<ServiceListenerHook> registerHook(int ranking = 0) {
        return context.RegisterService<ServiceListenerHook>(hook, {{"service.ranking", ranking}});
    }

    std::shared_ptr<RecordingHook> const hook = std::make_shared<RecordingHook>();
};

TEST_F(ServiceListenerHookTest, LearnsOfPresentListenersWhenRegistered) {
    context.AddServiceListener([](ServiceEvent const&) {}, "(a=1)");
    auto gone = context.AddServiceListener([](ServiceEvent const&) {}, "(b=1)");
    context.RemoveListener(std::move(gone));
    auto const registration = registerHook();
    EXPECT_THAT(hook->calls, Contains("+(a=1)"));
    EXPECT_THAT(hook->calls, Not(Contains("+(b=1)")));
}

TEST_F(ServiceListenerHookTest, LearnsOfListenersThatComeAndGo) {
    auto const registration = registerHook();
    hook->take();
    auto token = context.AddServiceListener([](ServiceEvent const&) {}, "( a=1)");
    ASSERT_EQ(hook->infos.size(), 1U);
    auto const added = hook->infos[0];
    EXPECT_FALSE(added.IsNull());
    EXPECT_FALSE(added.IsRemoved());
    EXPECT_TRUE(added.GetBundleContext() == context);
    EXPECT_THAT(hook->take(), ElementsAre("+( a=1)"));
    context.RemoveListener(std::move(token));
    ASSERT_EQ(hook->infos.size(), 1U);
    EXPECT_TRUE(hook->infos[0] == added);
    EXPECT_TRUE(added.IsRemoved());
    EXPECT_EQ(
        (std::unordered_set<
             ServiceListenerHook::ListenerInfo, std::hash<ServiceListenerHook::ListenerInfo>>(
             {added, hook->infos[0]})
             .size()),
        1U);
    EXPECT_THAT(hook->take(), ElementsAre("-( a=1)"));
    context.AddServiceListener([](ServiceEvent const&) {});
    EXPECT_THAT(hook->take(), ElementsAre("+"));
}

TEST_F(ServiceListenerHookTest, LearnsOfTrackersThatOpenAndClose) {
    auto const registration = registerHook();
    hook->take();
    ServiceTracker<Codec> tracker(context);
    EXPECT_THAT(hook->take(), ElementsAre());
    tracker.Open();
    EXPECT_THAT(hook->take(), ElementsAre("+(objectclass=registry_test::Codec)"));
    tracker.Close();
    EXPECT_THAT(hook->take(), ElementsAre("-(objectclass=registry_test::Codec)"));
    ServiceTracker<Codec> filtered(
        context, LDAPFilter("(&(objectclass=registry_test::Codec)(a=1))"));
    filtered.Open();
    EXPECT_THAT(hook->take(), ElementsAre("+(&(objectclass=registry_test::Codec)(a=1))"));
}

TEST_F(ServiceListenerHookTest, IsNotToldOfOtherListeners) {
    auto const registration = registerHook();
    hook->take();
    auto token = context.AddFrameworkListener([](FrameworkEvent const&) {});
    context.RemoveListener(std::move(token));
    context.AddBundleListener([](BundleEvent const&) {});
    EXPECT_THAT(hook->take(), ElementsAre());
}

TEST_F(ServiceListenerHookTest, HooksAreCalledInOrderOfPreference) {
    auto const second = std::make_shared<RecordingHook>();
    std::vector<std::string> order;

    struct Ordered : ServiceListenerHook {
        explicit Ordered(std::vector<std::string>& o, std::string n)
            : order(o)
            , name(std::move(n)) {}

        void Added(std::vector<ListenerInfo> const& listeners) override {
            if (listeners.size() == 1 && listeners[0].GetFilter() == "(x=1)") {
                order.push_back(name);
            }
        }

        void Removed(std::vector<ListenerInfo> const&) override {}

        std::vector<std::string>& order;
        std::string name;
    };

    auto const a =
        context.RegisterService<ServiceListenerHook>(std::make_shared<Ordered>(order, "low"));
    auto const b = context.RegisterService<ServiceListenerHook>(
        std::make_shared<Ordered>(order, "high"), {{"service.ranking", 3}});
    auto const c =
        context.RegisterService<ServiceListenerHook>(std::make_shared<Ordered>(order, "late"));
    context.AddServiceListener([](ServiceEvent const&) {}, "(x=1)");
    EXPECT_THAT(order, ElementsAre("high", "low", "late"));
}

TEST_F(ServiceListenerHookTest, IsNotCalledOnceUnregistered) {
    auto registration = registerHook();
    registration.Unregister();
    hook->take();
    context.AddServiceListener([](ServiceEvent const&) {}, "(a=1)");
    EXPECT_THAT(hook->take(), ElementsAre());
}

TEST_F(ServiceListenerHookTest, ExceptionBecomesWarning) {
    struct Throwing : ServiceListenerHook {
        void Added(std::vector<ListenerInfo> const&) override { throw std::runtime_error("added"); }

        void Removed(std::vector<ListenerInfo> const&) override {
            throw std::runtime_error("removed");
        }
    };

    FrameworkEventRecorder reports(context);
    auto registration = context.RegisterService<ServiceListenerHook>(std::make_shared<Throwing>());
    auto token = context.AddServiceListener([](ServiceEvent const&) {});
    context.RemoveListener(std::move(token));
    auto const id = std::to_string(idOf(registration.GetReference()));
    EXPECT_THAT(
        reports.events, ElementsAre(
                            "WARNING: Failed to call listener hook # " + id + " | added",
                            "WARNING: Failed to call listener hook # " + id + " | added",
                            "WARNING: Failed to call listener hook # " + id + " | removed"));
}

TEST_F(ServiceListenerHookTest, NullInfoSaysSo) {
    EXPECT_TRUE(ServiceListenerHook::ListenerInfo().IsNull());
    EXPECT_TRUE(ServiceListenerHook::ListenerInfo() == ServiceListenerHook::ListenerInfo());
}

class ServiceFindHookTest : public RegistryTest {};

struct HidingFindHook : ServiceFindHook {
    void Find(
        BundleContext const& context, std::string const& name, std::string const& filter,
        ShrinkableVector<ServiceReferenceBase>& references) override {
        asked.push_back(name + filter + (context ? "" : " without context"));
        if (throws) {
            throw std::runtime_error("find");
        }
        for (auto it = references.begin(); it != references.end();) {
            it = it->GetProperty("hidden").Empty() ? it + 1 : references.erase(it);
        }
    }

    bool throws = false;
    std::vector<std::string> asked;
};

TEST_F(ServiceFindHookTest, HidesServicesFromLookUps) {
    auto const hook = std::make_shared<HidingFindHook>();
    auto const registration = context.RegisterService<ServiceFindHook>(hook);
    auto const hidden = registerCodec({{"hidden", 1}, {"service.ranking", 9}});
    auto const shown = registerCodec();
    EXPECT_THAT(context.GetServiceReferences<Codec>(), ElementsAre(shown.GetReference()));
    EXPECT_TRUE(context.GetServiceReference<Codec>() == shown.GetReference());
    EXPECT_TRUE(context.GetServiceReferences("", "(hidden=1)").empty());
    EXPECT_THAT(hook->asked, ElementsAre(codecName, codecName, "(hidden=1)"));
    EXPECT_TRUE(context.GetServiceReferences("unknown").empty());
    EXPECT_EQ(hook->asked.size(), 3U);
}

TEST_F(ServiceFindHookTest, ExceptionBecomesWarning) {
    FrameworkEventRecorder reports(context);
    auto const hook = std::make_shared<HidingFindHook>();
    hook->throws = true;
    auto const registration = context.RegisterService<ServiceFindHook>(hook);
    auto const found = registerCodec();
    EXPECT_TRUE(context.GetServiceReference<Codec>() == found.GetReference());
    EXPECT_THAT(
        reports.events, ElementsAre(
                            "WARNING: Failed to call find hook # " +
                            std::to_string(idOf(registration.GetReference())) + " | find"));
}

class ServiceEventListenerHookTest : public RegistryTest {};

struct HidingEventHook : ServiceEventListenerHook {
    void Event(ServiceEvent const& event, ShrinkableMapType& listeners) override {
        if (throws) {
            throw std::runtime_error("event");
        }
        if (event.GetServiceReference().GetProperty("hidden").Empty()) {
            return;
        }
        for (auto& entry : listeners) {
            auto& infos = entry.second;
            for (auto it = infos.begin(); it != infos.end();) {
                it = it->GetFilter() == "(trusted=*)" ? it + 1 : infos.erase(it);
            }
        }
    }

    bool throws = false;
};

TEST_F(ServiceEventListenerHookTest, HidesEventsFromListeners) {
    auto const registration =
        context.RegisterService<ServiceEventListenerHook>(std::make_shared<HidingEventHook>());
    EventRecorder all;
    EventRecorder trusted;
    context.AddServiceListener(all.listener());
    context.AddServiceListener(trusted.listener(), "(trusted=*)");
    auto hidden = registerCodec({{"hidden", 1}, {"trusted", 1}});
    EXPECT_EQ(all.take().size(), 0U);
    EXPECT_EQ(trusted.take().size(), 1U);
    auto const shown = registerCodec();
    EXPECT_EQ(all.take().size(), 1U);
    EXPECT_EQ(trusted.take().size(), 0U);
    hidden.SetProperties({{"hidden", 1}});
    EXPECT_EQ(all.take().size(), 0U);
    EXPECT_EQ(trusted.take().size(), 1U);
}

TEST_F(ServiceEventListenerHookTest, ExceptionBecomesWarning) {
    FrameworkEventRecorder reports(context);
    auto const hook = std::make_shared<HidingEventHook>();
    auto const registration = context.RegisterService<ServiceEventListenerHook>(hook);
    hook->throws = true;
    EventRecorder recorder;
    context.AddServiceListener(recorder.listener());
    auto const registered = registerCodec();
    EXPECT_EQ(recorder.take().size(), 1U);
    EXPECT_THAT(
        reports.events, ElementsAre(
                            "WARNING: Failed to call event hook  # " +
                            std::to_string(idOf(registration.GetReference())) + " | event"));
}

} // namespace
} // namespace registry_test
