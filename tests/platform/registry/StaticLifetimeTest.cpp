#include "RegistryFixture.hpp"

#include <cppmicroservices/ServiceTracker.h>

namespace registry_test {
namespace {

/// What a program may keep in static variables, destroyed at its end in any order.
struct Keepsakes {
    ~Keepsakes() {
        if (registration) {
            try {
                registration.Unregister();
            } catch (std::logic_error const&) {
                // Unregistered already.
            }
        }
    }

    BundleContext context;
    ServiceRegistration<Codec> registration;
    ServiceReference<Codec> reference;
    std::shared_ptr<Codec> service;
    ListenerToken token;
    std::unique_ptr<ServiceTracker<Codec>> tracker;
};

void fill(Keepsakes& keepsakes, Framework framework) {
    keepsakes.context = framework.GetBundleContext();
    keepsakes.registration = keepsakes.context.RegisterService<Codec>(codec(1));
    keepsakes.reference = keepsakes.registration.GetReference();
    keepsakes.service = keepsakes.context.GetService(keepsakes.reference);
    keepsakes.token = keepsakes.context.AddServiceListener([](ServiceEvent const&) {});
    keepsakes.tracker = std::make_unique<ServiceTracker<Codec>>(keepsakes.context);
    keepsakes.tracker->Open();
}

Keepsakes outlivingFramework;
Framework* runningAtExit = nullptr;
Keepsakes outlivedByFramework;

TEST(StaticLifetimeTest, KeepsakesOutliveTheirFramework) {
    auto framework = FrameworkFactory().NewFramework();
    framework.Start();
    fill(outlivingFramework, framework);
    EXPECT_EQ(outlivingFramework.tracker->Size(), 1);
}

TEST(StaticLifetimeTest, FrameworkStillRunsAtExit) {
    static Framework framework = FrameworkFactory().NewFramework();
    runningAtExit = &framework;
    framework.Start();
    fill(outlivedByFramework, framework);
    EXPECT_TRUE(outlivedByFramework.context);
}

TEST(StaticLifetimeTest, KeepsakesAreQuietOnceTheFrameworkHasGone) {
    Keepsakes keepsakes;
    {
        auto framework = FrameworkFactory().NewFramework();
        framework.Start();
        fill(keepsakes, framework);
    }
    EXPECT_FALSE(keepsakes.context);
    EXPECT_FALSE(keepsakes.reference);
    EXPECT_FALSE(keepsakes.reference.GetBundle());
    EXPECT_EQ(keepsakes.service->number(), 1);
    EXPECT_EQ(keepsakes.tracker->Size(), 1);
    keepsakes.registration.SetProperties({{"a", 1}});
    EXPECT_TRUE(keepsakes.reference.GetProperty("a") == 1);
    keepsakes.tracker->Close();
    keepsakes.registration.Unregister();
    expectThrow<std::logic_error>(
        [&] { keepsakes.registration.Unregister(); }, "Service is unregistered");
}

} // namespace
} // namespace registry_test
