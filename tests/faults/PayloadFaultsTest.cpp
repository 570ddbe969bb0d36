#include "payload/GenericPayload.hpp"
#include "payload/PayloadAdapters.hpp"

#include "allocations/FailingAllocation.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace agent::orvi::core {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;

const std::string longText(100, 'x');

/// More slots than have room in the payload itself.
GenericPayload manySlots() {
    return GenericPayload::fromValues(1, longText, std::int64_t{3}, longText + "4", 5);
}

void expectManySlots(GenericPayload payload) {
    ASSERT_EQ(payload.size(), 5u);
    EXPECT_EQ(payload.take<int>(0), 1);
    EXPECT_EQ(payload.take<std::string>(1), longText);
    EXPECT_EQ(payload.take<std::int64_t>(2), 3);
    EXPECT_EQ(payload.take<std::string>(3), longText + "4");
    EXPECT_EQ(payload.take<int>(4), 5);
}

TEST(PayloadFaults, APayloadIsMadeWholeOrNotAtAll) {
    const auto owned = std::make_shared<int>();
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        GenericPayload payload;
        const bool done = failure.allows(
            [&] { payload = GenericPayload::fromValues(owned, longText, owned, longText, 5); });
        EXPECT_EQ(done, !failure.happened());
        EXPECT_EQ(payload.size(), done ? 5u : 0u);
        payload = GenericPayload();
        EXPECT_EQ(owned.use_count(), 1);
    });
    EXPECT_GT(failures, 7u) << "five values, two texts and the slots that have no room";
}

TEST(PayloadFaults, PackedArgumentsAreMadeWholeOrNotAtAll) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        GenericPayload payload;
        const bool done = failure.allows([&] {
            payload = GenericPayload::fromPackedArguments(std::tuple(std::int64_t{1}, longText));
        });
        EXPECT_EQ(done, !failure.happened());
        EXPECT_EQ(payload.size(), done ? 1u : 0u);
    });
    EXPECT_EQ(failures, 2u);
}

TEST(PayloadFaults, ACopyThatFailsLeavesBothAsTheyWere) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        const GenericPayload original = manySlots();
        GenericPayload copy = GenericPayload::fromValues(7);
        if (!failure.allows([&] { copy = original; })) {
            ASSERT_EQ(copy.size(), 1u);
            EXPECT_EQ(copy.peek<int>(0), 7);
            copy = original;
        }
        expectManySlots(original);
        expectManySlots(std::move(copy));
    });
    EXPECT_GT(failures, 7u);
}

TEST(PayloadFaults, ATakeThatFailsLeavesTheValue) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        GenericPayload payload = manySlots();
        EXPECT_TRUE(failure.allows([&] {
            EXPECT_EQ(payload.take<std::string>(1).size(), longText.size());
            EXPECT_EQ(payload.takeSlot(3).size(), 1u);
        }));
    });
    EXPECT_EQ(failures, 0u) << "what is there is only moved";
}

TEST(PayloadFaults, AFutureWhosePayloadFailsIsReleased) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        std::promise<std::string> promise;
        std::future<std::string> future = promise.get_future();
        GenericPayload payload;
        const bool done = failure.allows(
            [&] { payload = GenericPayload::fromFuture<std::string>(std::move(future)); });
        EXPECT_EQ(done, !failure.happened());
        promise.set_value(longText);
        if (done) {
            EXPECT_EQ(payload.take<std::string>(0), longText);
        }
    });
    EXPECT_GT(failures, 0u);
}

TEST(PayloadFaults, AppendedSlotsAreThereAllOrNone) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        GenericPayload payload = GenericPayload::fromValues(1, longText);
        GenericPayload rest = GenericPayload::fromValues(std::int64_t{3}, longText + "4", 5);
        if (!failure.allows([&] { payload.append(std::move(rest)); })) {
            EXPECT_EQ(payload.size(), 2u);
            ASSERT_EQ(rest.size(), 3u);
            payload.append(std::move(rest));
        }
        EXPECT_EQ(rest.size(), 0u);
        expectManySlots(std::move(payload));
    });
    EXPECT_GT(failures, 0u);
}

TEST(PayloadFaults, AnAdaptedFunctionFailsBeforeItRunsOrAnswers) {
    const auto adapted =
        detail::genericPayloadWrapper([](const std::string& text) { return text + longText; });
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        GenericPayload answer;
        GenericPayload arguments = GenericPayload::fromValues(longText);
        const bool done = failure.allows([&] { answer = adapted({}, std::move(arguments)); });
        EXPECT_EQ(done, !failure.happened());
        EXPECT_EQ(answer.size(), done ? 1u : 0u);
    });
    EXPECT_GT(failures, 1u);
}

TEST(PayloadFaults, AHandlerThatCannotBeMadeBreaksItsPromise) {
    const std::size_t failures = failEachAllocation([](FailingAllocation& failure) {
        auto promise = std::make_shared<std::promise<std::string>>();
        std::future<std::string> answer = promise->get_future();
        const bool done = failure.allows([&] {
            const CompletionHandler handler = promiseCompletingHandler(std::move(promise));
            handler.success(GenericPayload::fromValues(longText));
        });
        promise.reset();
        EXPECT_EQ(done, !failure.happened());
        ASSERT_EQ(answer.wait_for(std::chrono::seconds(0)), std::future_status::ready);
        if (done) {
            EXPECT_EQ(answer.get(), longText);
        } else {
            EXPECT_THROW(answer.get(), std::future_error);
        }
    });
    EXPECT_GT(failures, 1u);
}

} // namespace
} // namespace agent::orvi::core
