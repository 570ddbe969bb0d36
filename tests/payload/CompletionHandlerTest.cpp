#include "payload/CompletionHandler.hpp"

#include "payload/PayloadAdapters.hpp"
#include "support/FutureErrorOf.hpp"
#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace agent::orvi::core {
namespace {

using streambuf::test::futureErrorOf;
using streambuf::test::throwsExactly;

TEST(PayloadWrapperCHTest, CallsTheFunctionWithSlotZero) {
    std::optional<std::string> received;
    const std::function<void(GenericPayload)> wrapped =
        detail::genericPayloadWrapperCH<std::string>([&](std::string text) { received = text; });
    wrapped(GenericPayload::fromValues(std::string("answer"), 2));
    EXPECT_EQ(received, "answer");
}

TEST(PayloadWrapperCHTest, MovesTheValueOutOfThePayload) {
    const char* characters = nullptr;
    const auto wrapped = detail::genericPayloadWrapperCH<std::string>(
        [&](const std::string& text) { characters = text.data(); });
    GenericPayload payload = GenericPayload::fromValues(std::string(1000, 'x'));
    const char* const place = payload.peek<std::string>(0).data();
    wrapped(std::move(payload));
    EXPECT_EQ(characters, place);
}

TEST(PayloadWrapperCHTest, DoesNotCallTheFunctionWithAnUnfitAnswer) {
    bool called = false;
    const auto wrapped =
        detail::genericPayloadWrapperCH<std::int64_t>([&](std::int64_t) { called = true; });
    GenericPayload taken = GenericPayload::fromValues(std::int64_t{1});
    taken.take<std::int64_t>(0);
    EXPECT_THAT(
        [&] { wrapped(GenericPayload()); },
        throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
    EXPECT_THAT(
        [&] { wrapped(taken); },
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
    EXPECT_THAT(
        [&] { wrapped(GenericPayload::fromValues(1)); }, throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_FALSE(called);
}

template <class T>
struct Sample;

template <>
struct Sample<std::int64_t> {
    static std::int64_t value() { return -42; }

    static std::string unfit() { return "no number"; }
};

template <>
struct Sample<std::string> {
    static std::string value() { return std::string("answer\0\xff", 8); }

    static std::int64_t unfit() { return 5; }
};

template <class T>
class PromiseCompletingHandlerTest : public testing::Test {
protected:
    PromiseCompletingHandlerTest() {
        auto promise = std::make_shared<std::promise<T>>();
        answer = promise->get_future();
        handler = promiseCompletingHandler<T>(std::move(promise));
    }

    void succeed() { handler.success(GenericPayload::fromValues(Sample<T>::value())); }

    void fail() { handler.error(std::make_exception_ptr(std::domain_error("remote trouble"))); }

    bool isUnfulfilled() const {
        return answer.wait_for(std::chrono::seconds(0)) == std::future_status::timeout;
    }

    std::future<T> answer;
    CompletionHandler handler;
};

using AnswerTypes = testing::Types<std::int64_t, std::string>;
TYPED_TEST_SUITE(PromiseCompletingHandlerTest, AnswerTypes);

TYPED_TEST(PromiseCompletingHandlerTest, FulfilsThePromiseWithSlotZero) {
    this->succeed();
    EXPECT_EQ(this->answer.get(), Sample<TypeParam>::value());
}

TYPED_TEST(PromiseCompletingHandlerTest, WaitsForAnAnswerThatHoldsAFuture) {
    std::promise<TypeParam> later;
    later.set_value(Sample<TypeParam>::value());
    this->handler.success(GenericPayload::fromFuture(later.get_future()));
    EXPECT_EQ(this->answer.get(), Sample<TypeParam>::value());
}

TYPED_TEST(PromiseCompletingHandlerTest, RethrowsTheVeryErrorItWasGiven) {
    const std::exception_ptr error = std::make_exception_ptr(std::domain_error("remote trouble"));
    this->handler.error(error);
    try {
        this->answer.get();
        FAIL() << "nothing was thrown";
    } catch (const std::domain_error& thrown) {
        EXPECT_STREQ(thrown.what(), "remote trouble");
        EXPECT_EQ(std::current_exception(), error);
    }
}

TYPED_TEST(PromiseCompletingHandlerTest, StaysUnfulfilledAfterAnUnfitAnswer) {
    GenericPayload taken = GenericPayload::fromValues(Sample<TypeParam>::value());
    taken.template take<TypeParam>(0);
    const auto& success = this->handler.success;
    EXPECT_THAT(
        [&] { success(GenericPayload()); },
        throwsExactly<std::out_of_range>("Invalid GenericPayload index"));
    EXPECT_THAT(
        [&] { success(taken); },
        throwsExactly<std::runtime_error>("GenericPayload empty at index"));
    EXPECT_THAT(
        [&] { success(GenericPayload::fromValues(Sample<TypeParam>::unfit())); },
        throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_THAT(
        [&] { success(GenericPayload::fromValues(5)); }, throwsExactly<BadAnyCast>("Bad any_cast"));
    EXPECT_TRUE(this->isUnfulfilled());
    this->succeed();
    EXPECT_EQ(this->answer.get(), Sample<TypeParam>::value());
}

TYPED_TEST(PromiseCompletingHandlerTest, StaysUnfulfilledWhenTheAnswersFutureThrows) {
    std::promise<TypeParam> later;
    later.set_exception(std::make_exception_ptr(std::domain_error("never came")));
    EXPECT_THAT(
        [&] { this->handler.success(GenericPayload::fromFuture(later.get_future())); },
        throwsExactly<std::domain_error>("never came"));
    EXPECT_TRUE(this->isUnfulfilled());
}

TYPED_TEST(PromiseCompletingHandlerTest, RefusesASecondOutcome) {
    this->succeed();
    EXPECT_EQ(futureErrorOf([&] { this->succeed(); }), std::future_errc::promise_already_satisfied);
    EXPECT_EQ(futureErrorOf([&] { this->fail(); }), std::future_errc::promise_already_satisfied);
    EXPECT_EQ(this->answer.get(), Sample<TypeParam>::value());
}

TYPED_TEST(PromiseCompletingHandlerTest, RefusesASecondOutcomeAfterAnError) {
    this->fail();
    EXPECT_EQ(futureErrorOf([&] { this->succeed(); }), std::future_errc::promise_already_satisfied);
    EXPECT_EQ(futureErrorOf([&] { this->fail(); }), std::future_errc::promise_already_satisfied);
    EXPECT_THAT([&] { this->answer.get(); }, throwsExactly<std::domain_error>("remote trouble"));
}

TYPED_TEST(PromiseCompletingHandlerTest, BreaksThePromiseWhenItIsDroppedUnused) {
    auto copy = std::make_optional(this->handler);
    this->handler = {};
    EXPECT_TRUE(this->isUnfulfilled()) << "a copy of the handler still holds the promise";
    copy.reset();
    EXPECT_FALSE(this->isUnfulfilled());
    EXPECT_EQ(futureErrorOf([&] { this->answer.get(); }), std::future_errc::broken_promise);
}

TYPED_TEST(PromiseCompletingHandlerTest, EitherSideAloneKeepsThePromise) {
    for (const bool keepSuccess : {true, false}) {
        auto promise = std::make_shared<std::promise<TypeParam>>();
        const std::weak_ptr<std::promise<TypeParam>> observer = promise;
        CompletionHandler handler = promiseCompletingHandler<TypeParam>(std::move(promise));
        if (keepSuccess) {
            handler.error = nullptr;
        } else {
            handler.success = nullptr;
        }
        EXPECT_FALSE(observer.expired());
        handler = {};
        EXPECT_TRUE(observer.expired());
    }
}

TYPED_TEST(PromiseCompletingHandlerTest, ReportsAPromiseWithoutState) {
    auto promise = std::make_shared<std::promise<TypeParam>>();
    const CompletionHandler handler = promiseCompletingHandler<TypeParam>(promise);
    const std::promise<TypeParam> movedOut = std::move(*promise);
    EXPECT_EQ(
        futureErrorOf(
            [&] { handler.success(GenericPayload::fromValues(Sample<TypeParam>::value())); }),
        std::future_errc::no_state);
    EXPECT_EQ(
        futureErrorOf(
            [&] { handler.error(std::make_exception_ptr(std::domain_error("unheard"))); }),
        std::future_errc::no_state);
}

} // namespace
} // namespace agent::orvi::core
