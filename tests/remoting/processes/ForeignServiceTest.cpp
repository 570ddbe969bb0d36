#include "remoting/processes/ProcessTest.hpp"

#include "remoting/processes/component/ForeignService.hpp"

#include <orvi/core/InvocationErrors.hpp>
#include <payload/GenericPayload.hpp>

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <tuple>
#include <vector>

namespace agent::orvi::remoting::test {
namespace {

using core::GenericPayload;

/// Call a method and return its result, or throw its error. A handler that is dropped breaks the
/// promise.
GenericPayload call(core::Invokable& service, const std::string& method, GenericPayload arguments) {
    auto promise = std::make_shared<std::promise<GenericPayload>>();
    auto result = promise->get_future();
    core::CompletionHandler handler{
        [promise](GenericPayload payload) { promise->set_value(std::move(payload)); },
        [promise](std::exception_ptr error) { promise->set_exception(std::move(error)); }};
    promise.reset();
    service.invoke(std::nullopt, method, std::move(handler), std::move(arguments), false);
    return result.get();
}

class ForeignServiceTest : public ProcessTest {
protected:
    ForeignServiceTest()
        : lookUp("foreign")
        , rawLookUp("foreign.raw") {
        publisher.ask("open-endpoint" + where());
        publisher.ask("publish-foreign name=foreign service=foreign");
        importer.emplace(importing());
        service = lookUp.wait();
    }

    /// Call "fail" with the name of an error.
    std::function<void()> failing(const std::string& error) const {
        return [this, error] { call(*service, "fail", GenericPayload::fromValues(error)); };
    }

    LookUp lookUp;
    LookUp rawLookUp;
    std::optional<Importer> importer;
    std::shared_ptr<core::Invokable> service;
};

TEST_F(ForeignServiceTest, ReportsErrorsOfTheStandardLibraryAsWhatTheyWere) {
    EXPECT_EQ(errorOf(failing("range")), "std::out_of_range: beyond the end");
    try {
        failing("system")();
        FAIL() << "no error";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(28, std::generic_category()));
        EXPECT_EQ(
            std::string(error.what()),
            std::system_error(28, std::generic_category(), "cannot write").what());
    }
}

TEST_F(ForeignServiceTest, ReportsErrorsOfThePlatformAsWhatTheyWere) {
    EXPECT_EQ(errorOf(failing("refused")), "agent::orvi::core::ServiceUnavailable: not today");
    EXPECT_EQ(errorOf(failing("payload")), "agent::orvi::core::BadAnyCast: Bad any_cast");
    EXPECT_THAT(
        errorOf([&] { call(*service, "no such method", {}); }),
        testing::AllOf(
            testing::StartsWith("agent::orvi::core::UnknownMethod: "),
            testing::HasSubstr("no such method"), testing::HasSubstr("foreign")));
}

TEST_F(ForeignServiceTest, ReportsOtherErrorsByNameAndText) {
    try {
        failing("foreign")();
        FAIL() << "no error";
    } catch (const RemoteError& error) {
        EXPECT_EQ(error.typeName(), "agent::orvi::remoting::test::ForeignError");
        EXPECT_EQ(std::string(error.what()), "known here only");
    }
    try {
        failing("number")();
        FAIL() << "no error";
    } catch (const RemoteError& error) {
        EXPECT_EQ(error.typeName(), "int");
    }
}

TEST_F(ForeignServiceTest, BreaksThePromiseOfACallerWhoseHandlerItDrops) {
    const auto raw = rawLookUp.wait();
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(errorOf([&] { call(*raw, "unanswered", {}); }), errorOf([] {
                  throw std::future_error(std::future_errc::broken_promise);
              }));
}

TEST_F(ForeignServiceTest, RefusesWhatDoesNotTravelBeforeItIsSent) {
    EXPECT_EQ(
        errorOf([&] { call(*service, "echo", GenericPayload::fromValues(1, 2.5)); }),
        "agent::orvi::remoting::UnsupportedType: "
        "Slot 1 holds a value of a type that cannot be sent to another process.");
    EXPECT_EQ(call(*service, "slots", GenericPayload::fromValues(1)).take<std::int64_t>(0), 1);
}

TEST_F(ForeignServiceTest, ThatIsWithdrawnIsUnavailable) {
    publisher.ask("withdraw name=foreign");
    EXPECT_THAT(
        errorOf([&] { call(*service, "slots", {}); }),
        testing::StartsWith("agent::orvi::core::ServiceUnavailable: "));
}

/// One way to call, whose outcome is the same here as in another process.
struct Shape {
    std::string name;
    std::string method;
    std::function<GenericPayload()> arguments;
};

template <class... Values>
std::function<GenericPayload()> values(Values... all) {
    return [=] { return GenericPayload::fromValues(all...); };
}

template <class... Values>
std::function<GenericPayload()> packed(Values... all) {
    return [=] { return GenericPayload::fromPackedArguments(std::tuple<Values...>(all...)); };
}

GenericPayload takenText() {
    GenericPayload payload = GenericPayload::fromValues(std::string("gone"));
    payload.take<std::string>(0);
    return payload;
}

GenericPayload futureText() {
    std::promise<std::string> promise;
    promise.set_value("later");
    return GenericPayload::fromFuture(promise.get_future());
}

constexpr std::int64_t large = std::int64_t{1} << 40;

std::vector<Shape> shapes() {
    const std::string zeros("a\0b\0", 4);
    return {
        {"Nothing", "echo", [] { return GenericPayload(); }},
        {"Int64", "echo", values(large)},
        {"NegativeInt64", "echo", values(-large)},
        {"Int", "echo", values(-7)},
        {"Text", "echo", values(std::string("text"))},
        {"EmptyText", "echo", values(std::string())},
        {"TextWithZeros", "echo", values(zeros)},
        {"LongText", "echo", values(pattern(300000))},
        {"ManySlots", "echo", values(large, 1, std::string("x"), 2, std::string(), large)},
        {"Tuple", "echo", values(std::tuple<std::int64_t, int>(large, 3))},
        {"PackedPair", "echo", packed(large, 3)},
        {"PackedTriple", "echo", packed(large, 3, 4)},
        {"TakenSlot", "echo", takenText},
        {"TupleIsNotPacked", "packed", values(std::tuple<std::int64_t, int>(large, 3))},
        {"PackedIsPacked", "packed", packed(large, 3)},
        {"TextArgument", "length", values(std::string("four"))},
        {"TextArgumentAndMore", "length", values(std::string("four"), 1)},
        {"NumberForText", "length", values(large)},
        {"NoArgument", "length", [] { return GenericPayload(); }},
        {"TakenArgument", "length", takenText},
        {"FutureArgument", "length", futureText},
        {"FutureIsASlot", "slots", futureText},
        {"TwoArguments", "sum", values(large, 3)},
        {"TwoPackedArguments", "sum", packed(large, 3)},
        {"TwoUnpackedArguments", "sum", values(std::tuple<std::int64_t, int>(large, 3))},
        {"ThreePackedArguments", "sum", packed(large, 3, 4)},
        {"ArgumentsOfOtherTypes", "sum", values(3, large)},
        {"OneArgumentOfTwo", "sum", values(large)},
        {"ThreeArgumentsOfTwo", "sum", values(large, 3, 4)},
        {"FutureResult", "later", [] { return GenericPayload(); }},
        {"BrokenFutureResult", "broken", [] { return GenericPayload(); }},
        {"FailedFutureResult", "future-error", [] { return GenericPayload(); }},
        {"UnknownMethod", "nothing", [] { return GenericPayload(); }}};
}

template <class T>
bool tryDescribe(GenericPayload& payload, std::size_t slot, std::string& text) {
    if (payload.slotType(slot) != GenericPayload::typeHash<T>()) {
        return false;
    }
    T value = payload.take<T>(slot);
    if constexpr (std::is_same_v<T, std::string>) {
        text += "\"" + value + "\"";
    } else if constexpr (std::is_arithmetic_v<T>) {
        text += std::to_string(sizeof value) + ":" + std::to_string(value);
    } else {
        text += "(";
        std::apply([&](auto... each) { ((text += std::to_string(each) + " "), ...); }, value);
        text += ")";
    }
    return true;
}

/// Write down what a call has come to.
std::string outcomeOf(core::Invokable& service, const Shape& shape) {
    std::string text;
    const std::string error = errorOf([&] {
        GenericPayload result = call(service, shape.method, shape.arguments());
        for (std::size_t slot = 0; slot < result.size(); ++slot) {
            text += result.isPackedArguments(slot) ? " packed " : " ";
            if (result.isEmpty(slot)) {
                text += "empty";
            } else if (
                !tryDescribe<std::int64_t>(result, slot, text) &&
                !tryDescribe<int>(result, slot, text) &&
                !tryDescribe<std::string>(result, slot, text) &&
                !tryDescribe<std::tuple<std::int64_t, int>>(result, slot, text) &&
                !tryDescribe<std::tuple<std::int64_t, int, int>>(result, slot, text)) {
                text += "something else";
            }
        }
    });
    // A result that will never be there fails the call here, and its use at once.
    return error == "no error" ? text : error;
}

TEST_F(ForeignServiceTest, TakesAndGivesPayloadsOfEveryShapeAsALocalOneDoes) {
    const ForeignService here("foreign.here");
    LookUp lookUpHere("foreign.here");
    const auto local = lookUpHere.wait();
    ASSERT_NE(local, nullptr);
    ASSERT_NE(service, nullptr);
    for (const Shape& shape : shapes()) {
        std::string expected = outcomeOf(*local, shape);
        // Errors name the service that was called.
        const auto name = expected.find("foreign.here");
        if (name != std::string::npos) {
            expected.erase(name + std::string("foreign").size(), std::string(".here").size());
        }
        EXPECT_EQ(outcomeOf(*service, shape), expected) << shape.name;
    }
}

} // namespace
} // namespace agent::orvi::remoting::test
