#include "RegistryFixture.hpp"

#include <cppmicroservices/BundleEvent.h>
#include <cppmicroservices/ServiceException.h>

#include <sstream>

namespace registry_test {
namespace {

template <class T>
std::string text(T const& value) {
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

class EventsTest : public RegistryTest {};

TEST_F(EventsTest, InvalidEventsHaveDefaults) {
    EXPECT_FALSE(ServiceEvent());
    EXPECT_EQ(text(ServiceEvent()), "NONE");
    EXPECT_FALSE(BundleEvent());
    EXPECT_EQ(text(BundleEvent()), "NONE");
    EXPECT_EQ(BundleEvent().GetType(), BundleEvent::BUNDLE_UNINSTALLED);
    EXPECT_FALSE(BundleEvent().GetBundle());
    EXPECT_FALSE(BundleEvent().GetOrigin());
    EXPECT_FALSE(FrameworkEvent());
    EXPECT_EQ(text(FrameworkEvent()), "NONE");
    EXPECT_EQ(FrameworkEvent().GetType(), FrameworkEvent::FRAMEWORK_ERROR);
    EXPECT_EQ(FrameworkEvent().GetMessage(), "");
    EXPECT_EQ(FrameworkEvent().GetThrowable(), nullptr);
    EXPECT_FALSE(FrameworkEvent().GetBundle());
}

TEST_F(EventsTest, ServiceEventDescribesService) {
    auto const registration = registerCodec();
    ServiceEvent const event(ServiceEvent::SERVICE_MODIFIED, registration.GetReference());
    EXPECT_TRUE(event);
    EXPECT_EQ(event.GetType(), ServiceEvent::SERVICE_MODIFIED);
    EXPECT_TRUE(event.GetServiceReference() == ServiceReferenceU(registration.GetReference()));
    EXPECT_TRUE(event.GetServiceReference<Codec>());
    EXPECT_FALSE(event.GetServiceReference<Encoder>());
    ServiceEvent copy;
    copy = event;
    EXPECT_EQ(
        text(copy), "MODIFIED " + std::to_string(idOf(registration.GetReference())) +
                        " objectClass=[registry_test::Codec])");
    EXPECT_EQ(
        text(ServiceEvent(ServiceEvent::SERVICE_REGISTERED, ServiceReferenceU())), "REGISTERED");
}

TEST_F(EventsTest, TypesArePrinted) {
    EXPECT_EQ(text(ServiceEvent::SERVICE_UNREGISTERING), "UNREGISTERING");
    EXPECT_EQ(text(ServiceEvent::SERVICE_MODIFIED_ENDMATCH), "MODIFIED_ENDMATCH");
    EXPECT_EQ(text(static_cast<ServiceEvent::Type>(99)), "unknown service event type (99)");
    EXPECT_EQ(text(BundleEvent::BUNDLE_INSTALLED), "INSTALLED");
    EXPECT_EQ(text(BundleEvent::BUNDLE_STARTED), "STARTED");
    EXPECT_EQ(text(BundleEvent::BUNDLE_STOPPED), "STOPPED");
    EXPECT_EQ(text(BundleEvent::BUNDLE_UNINSTALLED), "UNINSTALLED");
    EXPECT_EQ(text(BundleEvent::BUNDLE_RESOLVED), "RESOLVED");
    EXPECT_EQ(text(BundleEvent::BUNDLE_UNRESOLVED), "UNRESOLVED");
    EXPECT_EQ(text(BundleEvent::BUNDLE_STARTING), "STARTING");
    EXPECT_EQ(text(BundleEvent::BUNDLE_LAZY_ACTIVATION), "LAZY_ACTIVATION");
    EXPECT_EQ(text(static_cast<BundleEvent::Type>(0x4000)), "Unknown bundle event type (16384)");
    EXPECT_EQ(text(FrameworkEvent::FRAMEWORK_ERROR), "ERROR");
    EXPECT_EQ(text(FrameworkEvent::FRAMEWORK_WARNING), "WARNING");
    EXPECT_EQ(text(FrameworkEvent::FRAMEWORK_INFO), "INFO");
    EXPECT_EQ(text(FrameworkEvent::FRAMEWORK_STOPPED), "STOPPED");
    EXPECT_EQ(text(FrameworkEvent::FRAMEWORK_STOPPED_UPDATE), "STOPPED_UPDATE");
    EXPECT_EQ(text(FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT), "WAIT_TIMEDOUT");
    EXPECT_EQ(text(static_cast<FrameworkEvent::Type>(0x4000)), "Unknown bundle event type (16384)");
}

TEST_F(EventsTest, BundleEventDescribesBundle) {
    BundleEvent const event(BundleEvent::BUNDLE_STARTED, framework);
    EXPECT_TRUE(event.GetBundle() == framework);
    EXPECT_TRUE(event.GetOrigin() == framework);
    EXPECT_EQ(text(event), "STARTED #0 (system_bundle at System Bundle)");
    EXPECT_TRUE(event == BundleEvent(BundleEvent::BUNDLE_STARTED, framework, framework));
    EXPECT_FALSE(event == BundleEvent(BundleEvent::BUNDLE_STOPPED, framework));
    EXPECT_FALSE(event == BundleEvent());
    EXPECT_TRUE(BundleEvent() == BundleEvent());
}

TEST_F(EventsTest, BundleEventRefusesInvalidBundles) {
    expectThrow<std::invalid_argument>(
        [] { BundleEvent event(BundleEvent::BUNDLE_STARTED, Bundle()); }, "invalid bundle");
    expectThrow<std::invalid_argument>(
        [&] { BundleEvent event(BundleEvent::BUNDLE_STARTED, framework, Bundle()); },
        "invalid origin");
}

TEST_F(EventsTest, FrameworkEventDescribesCause) {
    auto const cause = std::make_exception_ptr(std::runtime_error("cause"));
    FrameworkEvent const event(FrameworkEvent::FRAMEWORK_ERROR, framework, "message", cause);
    std::string const bundle = "Bundle[id=0, loc=System Bundle, name=system_bundle, state=ACTIVE]";
    EXPECT_EQ(text(event), "ERROR\n message\n " + bundle + "\n Exception: cause");
    EXPECT_EQ(
        text(FrameworkEvent(FrameworkEvent::FRAMEWORK_INFO, framework, "m")),
        "INFO\n m\n " + bundle + "\n Exception: NONE");
    EXPECT_EQ(
        text(FrameworkEvent(
            FrameworkEvent::FRAMEWORK_INFO, framework, "m", std::make_exception_ptr(1))),
        "INFO\n m\n " + bundle + "\n Exception: unknown");
    EXPECT_TRUE(
        event == FrameworkEvent(FrameworkEvent::FRAMEWORK_ERROR, framework, "message", cause));
    EXPECT_FALSE(event == FrameworkEvent(FrameworkEvent::FRAMEWORK_ERROR, framework, "message"));
}

TEST(ServiceExceptionTest, CarriesTextAndType) {
    ServiceException const plain("text");
    EXPECT_STREQ(plain.what(), "text");
    EXPECT_EQ(plain.GetType(), ServiceException::UNSPECIFIED);
    ServiceException copy = plain;
    copy = ServiceException("remote", ServiceException::REMOTE);
    EXPECT_EQ(copy.GetType(), ServiceException::REMOTE);
    EXPECT_EQ(text(copy), "ServiceException: remote");
}

} // namespace
} // namespace registry_test
