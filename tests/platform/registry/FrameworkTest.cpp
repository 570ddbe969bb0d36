#include "RegistryFixture.hpp"

#include <cppmicroservices/BundleEvent.h>
#include <cppmicroservices/Constants.h>

#include <functional>
#include <future>
#include <sstream>
#include <unordered_set>

namespace registry_test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr milliseconds endless = milliseconds::zero();

TEST(FrameworkTest, IsInstalledBeforeInit) {
    auto framework = FrameworkFactory().NewFramework();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_FALSE(framework.GetBundleContext());
    EXPECT_EQ(framework.WaitForStop(endless).GetType(), FrameworkEvent::FRAMEWORK_ERROR);
}

TEST(FrameworkTest, InitMakesContextAvailable) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Init();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_STARTING);
    auto const context = framework.GetBundleContext();
    EXPECT_TRUE(context);
    framework.Init();
    EXPECT_TRUE(context == framework.GetBundleContext());
    framework.Start();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
    EXPECT_TRUE(context == framework.GetBundleContext());
    framework.Init();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
}

TEST(FrameworkTest, StartSendsOneStartedEvent) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Init();
    std::vector<FrameworkEvent> events;
    framework.GetBundleContext().AddFrameworkListener(
        [&](FrameworkEvent const& event) { events.push_back(event); });
    framework.Start();
    framework.Start(Bundle::START_TRANSIENT);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].GetType(), FrameworkEvent::FRAMEWORK_STARTED);
    EXPECT_EQ(events[0].GetMessage(), "");
    EXPECT_EQ(events[0].GetThrowable(), nullptr);
    EXPECT_TRUE(events[0].GetBundle() == framework);
}

TEST(FrameworkTest, StopOfFrameworkThatNeverRanIsReported) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Stop();
    EXPECT_EQ(framework.GetState(), Bundle::STATE_INSTALLED);
    EXPECT_EQ(framework.WaitForStop(endless).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkTest, StopsAfterInitAlone) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Init();
    auto const context = framework.GetBundleContext();
    framework.Stop(Bundle::STOP_TRANSIENT);
    EXPECT_EQ(framework.WaitForStop(endless).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    EXPECT_EQ(framework.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_FALSE(context);
}

TEST(FrameworkTest, WaitForStopReportsResult) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    framework.Stop();
    auto const event = framework.WaitForStop(endless);
    EXPECT_EQ(event.GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
    EXPECT_TRUE(event.GetBundle() == framework);
    EXPECT_EQ(framework.GetState(), Bundle::STATE_RESOLVED);
    EXPECT_EQ(framework.WaitForStop(endless).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkTest, WaitForStopTimesOutWhileRunning) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto const event = framework.WaitForStop(milliseconds(1));
    EXPECT_EQ(event.GetType(), FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT);
    EXPECT_TRUE(event.GetBundle() == framework);
    EXPECT_EQ(framework.GetState(), Bundle::STATE_ACTIVE);
}

TEST(FrameworkTest, StopWakesWaitingThreads) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto waiter = std::async(std::launch::async, [framework]() mutable {
        return framework.WaitForStop(std::chrono::minutes(5)).GetType();
    });
    framework.Stop();
    EXPECT_EQ(waiter.get(), FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkTest, StopSendsStoppingEventWhileContextIsValid) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto context = framework.GetBundleContext();
    std::vector<std::string> seen;
    context.AddBundleListener([&](BundleEvent const& event) {
        std::ostringstream text;
        text << event << " " << event.GetBundle().GetState() << (context ? " valid" : " invalid");
        seen.push_back(text.str());
    });
    framework.Stop();
    framework.WaitForStop(endless);
    EXPECT_THAT(seen, ElementsAre("STOPPING #0 (system_bundle at System Bundle) STOPPING valid"));
}

TEST(FrameworkTest, RefusesToStartWhileStopping) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    framework.GetBundleContext().AddBundleListener([&](BundleEvent const& event) {
        auto bundle = event.GetBundle();
        expectThrow<std::runtime_error>(
            [&] { bundle.Start(); }, "INTERNAL ERROR, Illegal state, 16");
        expectThrow<std::logic_error>(
            [&] { Framework(bundle).Init(); }, "INTERNAL ERROR, Illegal state, 16");
        bundle.Stop();
    });
    framework.Stop();
    EXPECT_EQ(framework.WaitForStop(endless).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkTest, CanBeStartedAgainWithNewContextAndIdentity) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto const first = framework.GetBundleContext();
    auto const uuid = first.GetProperty(Constants::FRAMEWORK_UUID).ToString();
    framework.Stop();
    framework.WaitForStop(endless);
    framework.Start();
    auto second = framework.GetBundleContext();
    EXPECT_TRUE(second);
    EXPECT_FALSE(first);
    EXPECT_TRUE(first != second);
    EXPECT_NE(second.GetProperty(Constants::FRAMEWORK_UUID).ToString(), uuid);
    auto const registration = second.RegisterService<Codec>(codec());
    EXPECT_TRUE(registration.GetReference());
    framework.Stop();
    EXPECT_EQ(framework.WaitForStop(endless).GetType(), FrameworkEvent::FRAMEWORK_STOPPED);
}

TEST(FrameworkTest, DropsServicesAndListenersWithoutEventsWhenItStops) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto context = framework.GetBundleContext();
    EventRecorder recorder;
    context.AddServiceListener(recorder.listener());
    auto impl = codec();
    std::weak_ptr<Codec> const watch = impl;
    auto const reference = context.RegisterService<Codec>(std::move(impl)).GetReference();
    recorder.take();
    framework.Stop();
    framework.WaitForStop(endless);
    EXPECT_THAT(recorder.take(), ElementsAre());
    EXPECT_FALSE(reference);
    framework.Start();
    EXPECT_FALSE(framework.GetBundleContext().GetServiceReference<Codec>());
    auto const later = framework.GetBundleContext().RegisterService<Codec>(codec());
    EXPECT_THAT(recorder.take(), ElementsAre());
}

TEST(FrameworkTest, RegistrationOutlivesStoppedFramework) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    auto registration = framework.GetBundleContext().RegisterService<Codec>(codec());
    auto const reference = registration.GetReference();
    framework.Stop();
    framework.WaitForStop(endless);
    registration.SetProperties({{"late", 1}});
    EXPECT_TRUE(reference.GetProperty("late") == 1);
    registration.Unregister();
    expectThrow<std::logic_error>([&] { registration.Unregister(); }, "Service is unregistered");
    EXPECT_FALSE(reference);
    EXPECT_TRUE(reference.GetProperty("late") == 1);
}

TEST(FrameworkTest, StopsWhenLastBundleGoes) {
    BundleContext context;
    std::vector<BundleEvent::Type> events;
    ServiceRegistration<Codec> registration;
    {
        auto framework = FrameworkFactory().NewFramework();
        framework.Start();
        context = framework.GetBundleContext();
        context.AddBundleListener(
            [&](BundleEvent const& event) { events.push_back(event.GetType()); });
        registration = context.RegisterService<Codec>(codec());
        EXPECT_TRUE(context);
    }
    EXPECT_FALSE(context);
    EXPECT_THAT(events, ElementsAre(BundleEvent::BUNDLE_STOPPING));
    EXPECT_FALSE(registration.GetReference());
    registration.Unregister();
    expectThrow<std::logic_error>([&] { registration.Unregister(); }, "Service is unregistered");
}

TEST(FrameworkTest, EachIsIndependent) {
    auto first = FrameworkFactory().NewFramework();
    auto second = FrameworkFactory().NewFramework();
    first.Start();
    second.Start();
    auto const registration = first.GetBundleContext().RegisterService<Codec>(codec());
    EXPECT_FALSE(second.GetBundleContext().GetServiceReference<Codec>());
    EXPECT_FALSE(first == second);
    EXPECT_TRUE(first != second);
    EXPECT_NE(first < second, second < first);
    EXPECT_NE(
        first.GetBundleContext().GetProperty(Constants::FRAMEWORK_UUID).ToString(),
        second.GetBundleContext().GetProperty(Constants::FRAMEWORK_UUID).ToString());
}

TEST(FrameworkTest, GivesConfigurationAsProperties) {
    auto framework = FrameworkFactory().NewFramework(FrameworkConfiguration{
        {"my.key", std::string("value")}, {Constants::FRAMEWORK_THREADING_SUPPORT, 0}});
    framework.Init();
    auto const context = framework.GetBundleContext();
    EXPECT_TRUE(context.GetProperty("my.key") == std::string("value"));
    EXPECT_TRUE(context.GetProperty("absent").Empty());
    EXPECT_TRUE(
        context.GetProperty(Constants::FRAMEWORK_THREADING_SUPPORT) ==
        Constants::FRAMEWORK_THREADING_MULTI);
    EXPECT_TRUE(context.GetProperty(Constants::FRAMEWORK_LOG) == false);
    EXPECT_FALSE(context.GetProperty(Constants::FRAMEWORK_WORKING_DIR).ToString().empty());
    EXPECT_FALSE(context.GetProperty(Constants::FRAMEWORK_VERSION).ToString().empty());
    auto const all = context.GetProperties();
    EXPECT_TRUE(all.at("my.key") == std::string("value"));
    EXPECT_EQ(all.count(Constants::FRAMEWORK_VENDOR), 1U);
}

TEST(FrameworkTest, RefusesLogSettingThatIsNoBool) {
    EXPECT_THROW(
        FrameworkFactory().NewFramework(FrameworkConfiguration{{Constants::FRAMEWORK_LOG, 1}}),
        BadAnyCastException);
}

TEST(FrameworkTest, LogsExceptionsOfFrameworkListenersWhenAsked) {
    std::ostringstream log;
    auto framework = FrameworkFactory().NewFramework(
        FrameworkConfiguration{{Constants::FRAMEWORK_LOG, true}}, &log);
    framework.Init();
    auto context = framework.GetBundleContext();
    context.AddFrameworkListener(
        [](FrameworkEvent const&) { throw std::runtime_error("from listener"); });
    context.AddFrameworkListener([](FrameworkEvent const&) { throw 5; });
    framework.Start();
    framework.Stop();
    framework.WaitForStop(endless);
    EXPECT_THAT(
        log.str(), testing::HasSubstr("A Framework Listener threw an exception: from listener"));
    EXPECT_THAT(log.str(), testing::HasSubstr("A Framework Listener threw an exception: unknown"));
}

TEST(FrameworkTest, RunsShutdownFunctionAfterWait) {
    int calls = 0;
    {
        auto framework = FrameworkFactory().NewFramework(FrameworkConfiguration{
            {Constants::FRAMEWORK_EXTRA_SHUTDOWN_FUNC,
             std::function<void()>([&calls] { ++calls; })}});
        framework.Start();
        framework.WaitForStop(milliseconds(1));
        EXPECT_EQ(calls, 0);
        framework.Stop();
        framework.WaitForStop(endless);
        EXPECT_EQ(calls, 1);
    }
    EXPECT_EQ(calls, 2);
}

TEST(BundleTest, ThrowsWhenInvalid) {
    Bundle bundle;
    EXPECT_FALSE(bundle);
    auto const refused = [](auto const& action) {
        expectThrow<std::invalid_argument>(action, "invalid bundle");
    };
    refused([&] { bundle.GetState(); });
    refused([&] { bundle.GetBundleContext(); });
    refused([&] { bundle.GetBundleId(); });
    refused([&] { bundle.GetLocation(); });
    refused([&] { bundle.GetSymbolicName(); });
    refused([&] { bundle.GetVersion(); });
    refused([&] { bundle.GetHeaders(); });
    refused([&] { bundle.GetRegisteredServices(); });
    refused([&] { bundle.GetServicesInUse(); });
    refused([&] { bundle.GetLastModified(); });
    refused([&] { bundle.Start(); });
    refused([&] { bundle.Start(0); });
    refused([&] { bundle.Stop(); });
    refused([&] { bundle.Stop(0); });
    refused([&] { bundle.Uninstall(); });
    refused([&] { Framework framework(bundle); });
}

class BundleOfFrameworkTest : public RegistryTest {};

TEST_F(BundleOfFrameworkTest, DescribesItself) {
    EXPECT_EQ(framework.GetBundleId(), 0);
    EXPECT_EQ(framework.GetLocation(), Constants::SYSTEM_BUNDLE_LOCATION);
    EXPECT_EQ(framework.GetSymbolicName(), Constants::SYSTEM_BUNDLE_SYMBOLICNAME);
    EXPECT_EQ(framework.GetVersion().GetMajor(), 3U);
    EXPECT_EQ(framework.GetVersion().GetMinor(), 8U);
    EXPECT_EQ(
        framework.GetVersion().ToString(),
        "3.8." + std::to_string(framework.GetVersion().GetMicro()));
    auto const& headers = framework.GetHeaders();
    EXPECT_TRUE(
        headers.at(Constants::BUNDLE_SYMBOLICNAME) == Constants::SYSTEM_BUNDLE_SYMBOLICNAME);
    EXPECT_TRUE(headers.at(Constants::BUNDLE_NAME) == Constants::SYSTEM_BUNDLE_LOCATION);
    EXPECT_TRUE(headers.at(Constants::BUNDLE_VERSION) == framework.GetVersion().ToString());
    std::ostringstream text;
    Bundle const& bundle = framework;
    text << bundle << &bundle;
    std::string const once = "Bundle[id=0, loc=System Bundle, name=system_bundle, state=ACTIVE]";
    EXPECT_EQ(text.str(), once + once);
    EXPECT_LE(framework.GetLastModified(), std::chrono::steady_clock::now());
}

TEST_F(BundleOfFrameworkTest, CannotBeUninstalled) {
    expectThrow<std::runtime_error>(
        [&] { framework.Uninstall(); }, "Cannot uninstall a system bundle.");
}

TEST_F(BundleOfFrameworkTest, IsFoundThroughItsContext) {
    EXPECT_TRUE(context.GetBundle() == framework);
    EXPECT_TRUE(context.GetBundle(0) == framework);
    EXPECT_FALSE(context.GetBundle(4711));
    ASSERT_EQ(context.GetBundles("System Bundle").size(), 1U);
    EXPECT_TRUE(context.GetBundles("System Bundle")[0] == framework);
    EXPECT_TRUE(context.GetBundles("elsewhere").empty());
    EXPECT_TRUE(context.GetBundles().front() == framework);
}

TEST_F(BundleOfFrameworkTest, ComparesAndHashesAsValue) {
    Bundle bundle = context.GetBundle();
    Bundle const invalid;
    EXPECT_FALSE(bundle == invalid);
    EXPECT_TRUE(invalid == Bundle());
    EXPECT_TRUE(bundle < invalid);
    EXPECT_FALSE(invalid < bundle);
    EXPECT_FALSE(invalid < invalid);
    EXPECT_FALSE(bundle < bundle);
    EXPECT_EQ(std::unordered_set<Bundle>({bundle, framework}).size(), 1U);
    Bundle moved = std::move(bundle);
    EXPECT_TRUE(moved == framework);
    moved = Bundle();
    EXPECT_FALSE(moved);
    moved = framework;
    moved = nullptr;
    EXPECT_FALSE(moved);
    Framework copy = framework;
    Framework const second = std::move(copy);
    EXPECT_TRUE(second == framework);
}

TEST_F(BundleOfFrameworkTest, ListsServicesRegisteredAndInUse) {
    EXPECT_TRUE(framework.GetRegisteredServices().empty());
    auto const first = registerCodec();
    auto const second = registerCodec();
    EXPECT_THAT(
        framework.GetRegisteredServices(),
        ElementsAre(
            ServiceReferenceU(first.GetReference()), ServiceReferenceU(second.GetReference())));
    EXPECT_TRUE(framework.GetServicesInUse().empty());
    auto const used = context.GetService(second.GetReference());
    EXPECT_THAT(
        framework.GetServicesInUse(), ElementsAre(ServiceReferenceU(second.GetReference())));
}

TEST(BundleStateTest, IsPrinted) {
    std::ostringstream text;
    for (auto const state :
         {Bundle::STATE_UNINSTALLED, Bundle::STATE_INSTALLED, Bundle::STATE_RESOLVED,
          Bundle::STATE_STARTING, Bundle::STATE_STOPPING, Bundle::STATE_ACTIVE,
          static_cast<Bundle::State>(0)}) {
        text << state << ",";
    }
    EXPECT_EQ(text.str(), "UNINSTALLED,INSTALLED,RESOLVED,STARTING,STOPPING,ACTIVE,,");
}

TEST(BundleVersionTest, ComparesNumbersInOrder) {
    BundleVersion const version(1, 2, 3);
    EXPECT_EQ(version.GetMicro(), 3U);
    EXPECT_TRUE(version == BundleVersion(1, 2, 3));
    EXPECT_FALSE(version == BundleVersion(1, 2, 4));
    EXPECT_EQ(version.Compare(BundleVersion(1, 2, 3)), 0);
    EXPECT_LT(version.Compare(BundleVersion(1, 3, 0)), 0);
    EXPECT_LT(version.Compare(BundleVersion(2, 0, 0)), 0);
    EXPECT_GT(version.Compare(BundleVersion(1, 2, 2)), 0);
    EXPECT_GT(version.Compare(BundleVersion(1, 1, 9)), 0);
    std::ostringstream text;
    text << version;
    EXPECT_EQ(text.str(), "1.2.3");
}

} // namespace
} // namespace registry_test
