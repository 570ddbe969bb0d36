#include "platform/bridge/BridgeFixture.hpp"
#include "support/ThrowsExactly.hpp"

#include <cstdint>
#include <stdexcept>
#include <thread>

namespace agent::orvi::core::test {
namespace {

using foundation::concurrent::threadpool::stop_token;
using streambuf::test::throwsExactly;

auto throwing(const std::exception_ptr& error) {
    return [error] { std::rethrow_exception(error); };
}

class LocalInvokableTest : public BridgeFixture {
protected:
    void SetUp() override {
        BridgeFixture::SetUp();
        provider = provide(
            {MultiMethodInterfaceBuilder("service", APIVersion(2, 5))
                 .addMetadata("b", "1")
                 .addMetadata("a", "2")
                 .addMethod(ExportedFunction(
                     "twice",
                     [](stop_token token, GenericPayload arguments) {
                         EXPECT_FALSE(token.stop_requested());
                         return GenericPayload::fromValues(2 * arguments.take<int>(0));
                     },
                     11, {12, 13}, DataMarker::source))
                 .addMethod(makeMethod(
                     "fail",
                     [](GenericPayload) -> GenericPayload { throw std::domain_error("failed"); }))
                 .addMethod(ExportedFunction("empty", nullptr, 0, {}))
                 .build()});
        configuration = configure({"service"});
        service = find("service").front();
    }

    void TearDown() override { configuration.reset(); }

    ProviderRegistration provider;
    Configuration configuration;
    std::shared_ptr<Invokable> service;
};

TEST_F(LocalInvokableTest, DescribesTheServiceInOrder) {
    const ServiceInterface& description = service->serviceInterface();
    EXPECT_EQ(description.name(), "service");
    EXPECT_EQ(description.version(), APIVersion(2, 5));
    EXPECT_EQ(description.metadata(), (ServiceInterface::Metadata{{"b", "1"}, {"a", "2"}}));
    ASSERT_EQ(description.methods().size(), 3U);
    const ExportedFunction& twice = description.methods()[0];
    EXPECT_EQ(twice.name(), "twice");
    EXPECT_EQ(twice.resultType(), 11U);
    EXPECT_EQ(twice.argumentTypes(), (std::vector<std::uint64_t>{12, 13}));
    EXPECT_EQ(twice.marker(), DataMarker::source);
    EXPECT_EQ(description.methods()[1].name(), "fail");
    EXPECT_EQ(description.methods()[1].marker(), std::nullopt);
    EXPECT_EQ(description.methods()[2].name(), "empty");
}

TEST_F(LocalInvokableTest, KnowsItsMethods) {
    EXPECT_TRUE(service->hasMethod("twice"));
    EXPECT_TRUE(service->hasMethod("fail"));
    EXPECT_FALSE(service->hasMethod("Twice"));
    EXPECT_FALSE(service->hasMethod(""));
}

TEST_F(LocalInvokableTest, HandsTheResultToTheSuccessSide) {
    Outcome outcome = call(*service, "twice", GenericPayload::fromValues(21));
    EXPECT_EQ(outcome.successes, 1);
    EXPECT_EQ(outcome.errors, 0);
    EXPECT_EQ(outcome.result.take<int>(0), 42);
}

TEST_F(LocalInvokableTest, RunsMethodAndHandlerOnTheCallingThreadBeforeItReturns) {
    std::thread::id methodThread;
    std::thread::id handlerThread;
    auto other =
        provide({makeInterface("other", [&] { methodThread = std::this_thread::get_id(); })});
    const auto otherConfiguration = configure({"other"});
    find("other").front()->invoke(
        std::chrono::milliseconds(0), "run",
        {[&](GenericPayload) { handlerThread = std::this_thread::get_id(); }, {}}, {}, false);
    EXPECT_EQ(methodThread, std::this_thread::get_id());
    EXPECT_EQ(handlerThread, std::this_thread::get_id());
}

TEST_F(LocalInvokableTest, HandsWhatTheMethodThrowsToTheErrorSide) {
    const Outcome outcome = call(*service, "fail");
    EXPECT_EQ(outcome.successes, 0);
    EXPECT_THAT(throwing(outcome.error), throwsExactly<std::domain_error>("failed"));
}

TEST_F(LocalInvokableTest, RefusesAnUnknownMethodByName) {
    const Outcome outcome = call(*service, "thrice");
    EXPECT_EQ(outcome.successes, 0);
    EXPECT_THAT(
        throwing(outcome.error),
        throwsExactly<UnknownMethod>("Service \"service\" has no method \"thrice\"."));
}

TEST_F(LocalInvokableTest, ReportsAMethodWithoutAFunction) {
    const Outcome outcome = call(*service, "empty");
    EXPECT_THROW(std::rethrow_exception(outcome.error), std::bad_function_call);
}

TEST_F(LocalInvokableTest, AnswersAOneWayCallAlike) {
    Outcome outcome;
    service->invoke(std::nullopt, "twice", outcome.handler(), GenericPayload::fromValues(1), true);
    EXPECT_EQ(outcome.successes, 1);
    service->invoke(std::nullopt, "thrice", outcome.handler(), {}, true);
    EXPECT_EQ(outcome.errors, 1);
    EXPECT_THROW(std::rethrow_exception(outcome.error), UnknownMethod);
}

TEST_F(LocalInvokableTest, RefusesCallsAfterItWasClosed) {
    configuration.reset();
    for (const char* method : {"twice", "thrice"}) {
        for (const bool oneWay : {false, true}) {
            Outcome outcome;
            service->invoke(std::nullopt, method, outcome.handler(), {}, oneWay);
            EXPECT_EQ(outcome.successes, 0);
            EXPECT_EQ(outcome.errors, 1);
            EXPECT_THAT(
                throwing(outcome.error), throwsExactly<ServiceUnavailable>(
                                             "Service \"service\" is not available any more."));
        }
    }
}

TEST_F(LocalInvokableTest, KeepsItsDescriptionAfterItWasClosed) {
    configuration.reset();
    provider.Unregister();
    EXPECT_EQ(service->serviceInterface().name(), "service");
    EXPECT_EQ(service->serviceInterface().methods().size(), 3U);
    EXPECT_TRUE(service->hasMethod("twice"));
}

TEST_F(LocalInvokableTest, DescribedMethodsRunWhileItIsOpen) {
    const ServiceInterface description = service->serviceInterface();
    const PayloadFunction& twice = description.findMethod("twice")->function();
    EXPECT_EQ(twice(stop_token(), GenericPayload::fromValues(4)).take<int>(0), 8);
    service.reset();
    EXPECT_EQ(twice(stop_token(), GenericPayload::fromValues(5)).take<int>(0), 10);
    configuration.reset();
    EXPECT_THAT(
        [&] { twice(stop_token(), GenericPayload::fromValues(6)); },
        throwsExactly<ServiceUnavailable>("Service \"service\" is not available any more."));
}

/// A completion handler whose sides throw, and whose life can be seen.
struct ThrowingHandler {
    CompletionHandler handler() {
        return {
            [this, alive = alive](GenericPayload) {
                ++successes;
                throw std::runtime_error("success side");
            },
            [this, alive = alive](std::exception_ptr) {
                ++errors;
                throw std::runtime_error("error side");
            }};
    }

    bool isReleased() const { return alive.use_count() == 1; }

    std::shared_ptr<int> alive = std::make_shared<int>();
    int successes = 0;
    int errors = 0;
};

TEST_F(LocalInvokableTest, DropsWhatTheSuccessSideThrowsAndReleasesTheHandler) {
    ThrowingHandler recorder;
    CompletionHandler handler = recorder.handler();
    service->invoke(
        std::nullopt, "twice", std::move(handler), GenericPayload::fromValues(1), false);
    EXPECT_EQ(recorder.successes, 1);
    EXPECT_EQ(recorder.errors, 0);
    EXPECT_TRUE(recorder.isReleased());
}

TEST_F(LocalInvokableTest, DropsWhatTheErrorSideThrowsAndReleasesTheHandler) {
    for (const char* method : {"fail", "thrice"}) {
        ThrowingHandler recorder;
        service->invoke(std::nullopt, method, recorder.handler(), {}, false);
        EXPECT_EQ(recorder.successes, 0);
        EXPECT_EQ(recorder.errors, 1);
        EXPECT_TRUE(recorder.isReleased());
    }
}

TEST_F(LocalInvokableTest, ReleasesHandlerAndArgumentsBeforeItReturns) {
    // As a caller sees it that looks while its own full expression is not over.
    for (const char* method : {"twice", "fail", "thrice"}) {
        auto token = std::make_shared<int>(0);
        const std::weak_ptr<int> alive = token;
        CompletionHandler handler{
            [token](const GenericPayload&) {}, [token](const std::exception_ptr&) {}};
        GenericPayload arguments = GenericPayload::fromValues(std::move(token));
        const bool released =
            (service->invoke(std::nullopt, method, std::move(handler), std::move(arguments), false),
             alive.expired());
        EXPECT_TRUE(released) << method;
    }
}

TEST_F(LocalInvokableTest, AMissingSideIsNoError) {
    EXPECT_NO_THROW(
        service->invoke(std::nullopt, "twice", {}, GenericPayload::fromValues(1), false));
    EXPECT_NO_THROW(service->invoke(std::nullopt, "fail", {}, {}, false));
    Outcome outcome;
    service->invoke(
        std::nullopt, "fail", {outcome.handler().success, nullptr}, GenericPayload(), false);
    EXPECT_EQ(outcome.successes, 0);
}

TEST_F(LocalInvokableTest, ItsCompletionMayEndThePublication) {
    bool completed = false;
    service->invoke(
        std::nullopt, "twice",
        {[&](GenericPayload) {
             configuration.reset();
             provider.Unregister();
             completed = true;
         },
         {}},
        GenericPayload::fromValues(1), false);
    EXPECT_TRUE(completed);
    EXPECT_FALSE(isReachable("service"));
}

} // namespace
} // namespace agent::orvi::core::test
