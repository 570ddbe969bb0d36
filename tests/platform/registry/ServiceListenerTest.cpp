#include "RegistryFixture.hpp"

#include <cppmicroservices/BundleEvent.h>

namespace registry_test {
namespace {

using testing::ElementsAre;

class ServiceListenerTest : public RegistryTest {
protected:
    std::string event(char const* type, ServiceReferenceBase const& reference) {
        return std::string(type) + " " + std::to_string(idOf(reference));
    }

    EventRecorder recorder;
};

TEST_F(ServiceListenerTest, SeesTheLifeOfAService) {
    context.AddServiceListener(recorder.listener());
    auto registration = registerCodec();
    auto const reference = registration.GetReference();
    EXPECT_THAT(recorder.take(), ElementsAre(event("REGISTERED", reference)));
    registration.SetProperties({{"a", 1}});
    EXPECT_THAT(recorder.take(), ElementsAre(event("MODIFIED", reference)));
    registration.Unregister();
    EXPECT_THAT(recorder.take(), ElementsAre(event("UNREGISTERING", reference)));
}

TEST_F(ServiceListenerTest, CanUseServiceInEveryEvent) {
    std::vector<bool> usable;
    context.AddServiceListener([&](ServiceEvent const& event) {
        auto const service = context.GetService(event.GetServiceReference<Codec>());
        usable.push_back(service && service->number() == 9);
    });
    auto registration = context.RegisterService<Codec>(codec(9));
    registration.SetProperties({});
    registration.Unregister();
    EXPECT_THAT(usable, ElementsAre(true, true, true));
}

TEST_F(ServiceListenerTest, CannotFindServiceThatIsBeingUnregistered) {
    auto registration = registerCodec();
    bool found = true;
    context.AddServiceListener([&](ServiceEvent const&) {
        found = static_cast<bool>(context.GetServiceReference<Codec>()) ||
                !context.GetServiceReferences("", "(service.id=*)").empty();
    });
    registration.Unregister();
    EXPECT_FALSE(found);
}

TEST_F(ServiceListenerTest, SeesOnlyWhatItsFilterMatches) {
    EventRecorder byClass;
    EventRecorder byId;
    EventRecorder byBoth;
    EventRecorder negated;
    auto const other = context.RegisterService<Encoder>(codec());
    context.AddServiceListener(byClass.listener(), "(objectClass=registry_test::Codec)");
    context.AddServiceListener(
        byId.listener(), "(service.id=" + std::to_string(idOf(other.GetReference())) + ")");
    context.AddServiceListener(byBoth.listener(), "(&(objectclass=registry_test::Codec)(a=1))");
    context.AddServiceListener(negated.listener(), "(!(objectclass=registry_test::Codec))");
    auto const first = context.RegisterService<Codec, Encoder>(codec(), {{"a", 1}});
    auto const second = registerCodec({{"a", 2}});
    auto changed = other;
    changed.SetProperties({{"b", 1}});
    auto const one = event("REGISTERED", first.GetReference());
    auto const two = event("REGISTERED", second.GetReference());
    auto const three = event("MODIFIED", other.GetReference());
    EXPECT_THAT(byClass.take(), ElementsAre(one, two));
    EXPECT_THAT(byId.take(), ElementsAre(three));
    EXPECT_THAT(byBoth.take(), ElementsAre(one));
    EXPECT_THAT(negated.take(), ElementsAre(three));
}

TEST_F(ServiceListenerTest, RefusesMalformedFilter) {
    expectThrow<std::invalid_argument>(
        [&] { context.AddServiceListener(recorder.listener(), "(a=b"); },
        "Unexpected end of query: ");
    auto const registration = registerCodec();
    EXPECT_THAT(recorder.take(), ElementsAre());
}

TEST_F(ServiceListenerTest, SeesEndMatchWhenFilterMatchesNoLonger) {
    context.AddServiceListener(recorder.listener(), "(a=1)");
    auto registration = registerCodec({{"a", 1}});
    auto const reference = registration.GetReference();
    recorder.take();
    registration.SetProperties({{"a", 1}, {"b", 2}});
    EXPECT_THAT(recorder.take(), ElementsAre(event("MODIFIED", reference)));
    registration.SetProperties({{"a", 2}});
    EXPECT_THAT(recorder.take(), ElementsAre(event("MODIFIED_ENDMATCH", reference)));
    registration.SetProperties({{"a", 3}});
    EXPECT_THAT(recorder.take(), ElementsAre());
    registration.SetProperties({{"a", 1}});
    EXPECT_THAT(recorder.take(), ElementsAre(event("MODIFIED", reference)));
    registration.SetProperties({});
    registration.Unregister();
    EXPECT_THAT(recorder.take(), ElementsAre(event("MODIFIED_ENDMATCH", reference)));
}

TEST_F(ServiceListenerTest, ModifiedIsDeliveredBeforeEndMatch) {
    context.AddServiceListener(recorder.listener(), "(a=1)");
    context.AddServiceListener(recorder.listener(), "(a=2)");
    auto registration = registerCodec({{"a", 1}});
    recorder.take();
    registration.SetProperties({{"a", 2}});
    auto const reference = registration.GetReference();
    EXPECT_THAT(
        recorder.take(),
        ElementsAre(event("MODIFIED", reference), event("MODIFIED_ENDMATCH", reference)));
}

TEST_F(ServiceListenerTest, SeesNothingOnceRemoved) {
    auto first =
        context.AddServiceListener(recorder.listener(), "(objectclass=registry_test::Codec)");
    auto second = context.AddServiceListener(recorder.listener(), "(service.id=1000000)");
    auto third = context.AddServiceListener(recorder.listener());
    context.RemoveListener(std::move(first));
    context.RemoveListener(std::move(second));
    context.RemoveListener(std::move(third));
    auto const registration = registerCodec();
    EXPECT_THAT(recorder.take(), ElementsAre());
}

TEST_F(ServiceListenerTest, CanRemoveItselfAndAddOthersDuringAnEvent) {
    ListenerToken token;
    int calls = 0;
    token = context.AddServiceListener([&](ServiceEvent const&) {
        ++calls;
        context.RemoveListener(std::move(token));
        context.AddServiceListener(recorder.listener());
    });
    auto const first = registerCodec();
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(recorder.take(), ElementsAre());
    auto const second = registerCodec();
    EXPECT_EQ(calls, 1);
    EXPECT_THAT(recorder.take(), ElementsAre(event("REGISTERED", second.GetReference())));
}

TEST_F(ServiceListenerTest, ExceptionBecomesFrameworkEvent) {
    FrameworkEventRecorder reports(context);
    context.AddServiceListener(
        [](ServiceEvent const&) { throw std::runtime_error("bad listener"); });
    auto registration = registerCodec();
    registration.SetProperties({});
    registration.Unregister();
    std::string const report =
        "ERROR: Service listener in system_bundle threw an exception! | bad listener";
    EXPECT_THAT(reports.events, ElementsAre(report, report, report));
}

TEST_F(ServiceListenerTest, ExceptionDoesNotKeepOthersFromTheEvent) {
    context.AddServiceListener([](ServiceEvent const&) { throw 1; });
    context.AddServiceListener(recorder.listener());
    context.AddServiceListener([](ServiceEvent const&) { throw 2; });
    auto const registration = registerCodec();
    EXPECT_EQ(recorder.take().size(), 1U);
}

TEST_F(ServiceListenerTest, ExceptionOfBundleListenerBecomesFrameworkEvent) {
    FrameworkEventRecorder reports(context);
    context.AddBundleListener(
        [](BundleEvent const&) { throw std::runtime_error("bad bundle listener"); });
    stop();
    EXPECT_THAT(
        reports.events,
        ElementsAre("ERROR: Bundle listener threw an exception | bad bundle listener"));
}

TEST_F(ServiceListenerTest, ExceptionOfFrameworkListenerIsDropped) {
    context.AddFrameworkListener([](FrameworkEvent const&) { throw std::runtime_error("worse"); });
    FrameworkEventRecorder reports(context);
    context.AddServiceListener([](ServiceEvent const&) { throw std::runtime_error("bad"); });
    auto const registration = registerCodec();
    EXPECT_EQ(reports.events.size(), 1U);
}

TEST_F(ServiceListenerTest, NestedRegistrationsDeliverNestedEvents) {
    ServiceRegistration<Encoder> nested;
    context.AddServiceListener(recorder.listener());
    context.AddServiceListener(
        [&](ServiceEvent const& event) {
            if (event.GetType() == ServiceEvent::SERVICE_REGISTERED) {
                nested = context.RegisterService<Encoder>(codec());
            } else {
                nested.Unregister();
            }
        },
        "(objectclass=registry_test::Codec)");
    auto registration = registerCodec();
    auto const outer = registration.GetReference();
    auto const inner = nested.GetReference();
    EXPECT_THAT(
        recorder.take(),
        testing::UnorderedElementsAre(event("REGISTERED", outer), event("REGISTERED", inner)));
    registration.Unregister();
    EXPECT_THAT(
        recorder.take(), testing::UnorderedElementsAre(
                             event("UNREGISTERING", outer), event("UNREGISTERING", inner)));
}

} // namespace
} // namespace registry_test
