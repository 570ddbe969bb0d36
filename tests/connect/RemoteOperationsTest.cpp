#include "connect/RemoteOperations.hpp"

#include "connect/FakeInvokable.hpp"
#include "support/DeviceError.hpp"
#include "support/FutureErrorOf.hpp"
#include "support/ThrowsExactly.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <future>
#include <ios>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf {
namespace {

using core::CompletionHandler;
using core::GenericPayload;
using std::ios_base;
using test::FakeInvokable;
using test::futureErrorOf;
using test::throwsExactly;

constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t beyondFourGiB = (std::int64_t{1} << 32) + 1234;

std::shared_ptr<FakeInvokable> makeService(FakeInvokable::Answer answer) {
    return std::make_shared<FakeInvokable>(std::move(answer));
}

/// Return the one call that was made, which must have the fixed arguments of every call.
GenericPayload onlyCall(FakeInvokable& service, const std::string& method) {
    std::vector<FakeInvokable::Invocation> calls = service.takeInvocations();
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls.at(0).method, method);
    EXPECT_FALSE(calls[0].timeLimit.has_value());
    EXPECT_FALSE(calls[0].oneWay);
    return std::move(calls[0].arguments);
}

TEST(RemoteReadTest, SendsTheCountUnchanged) {
    const auto service = makeService(test::answeringWith(std::string("answer")));
    const ReadFunction read = details::remoteRead(service);
    for (const std::int64_t count :
         {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, smallest, largest}) {
        read(count);
        GenericPayload arguments = onlyCall(*service, "read");
        ASSERT_EQ(arguments.size(), 1u);
        EXPECT_FALSE(arguments.isPackedArguments(0));
        EXPECT_EQ(arguments.take<std::int64_t>(0), count);
    }
}

TEST(RemoteReadTest, ReturnsTheAnswerAsItCame) {
    for (const std::string& answer :
         {std::string(), std::string("a\0\xff\n", 4), std::string(100000, 'x')}) {
        EXPECT_EQ(details::remoteRead(makeService(test::answeringWith(answer)))(3), answer);
    }
}

TEST(RemoteWriteTest, SendsACopyOfTheData) {
    const auto service = makeService(test::answeringWith(std::int64_t{4}));
    const WriteFunction write = details::remoteWrite(service);
    const std::string data("a\0\xff\n", 4);
    write(data);
    GenericPayload arguments = onlyCall(*service, "write");
    ASSERT_EQ(arguments.size(), 1u);
    EXPECT_NE(&arguments.peek<std::string>(0), &data);
    EXPECT_EQ(arguments.take<std::string>(0), data);
    write(std::string());
    EXPECT_EQ(onlyCall(*service, "write").take<std::string>(0), "");
}

TEST(RemoteWriteTest, ReturnsTheAnswerAsItCame) {
    for (const std::int64_t answer :
         {std::int64_t{0}, std::int64_t{-1}, beyondFourGiB, smallest, largest}) {
        EXPECT_EQ(details::remoteWrite(makeService(test::answeringWith(answer)))("x"), answer);
    }
}

TEST(RemoteSeekOffTest, SendsOffsetDirectionCodeAndModeCode) {
    struct Case {
        int direction;
        int mode;
        int directionCode;
        int modeCode;
    };

    constexpr int in = ios_base::in;
    constexpr int out = ios_base::out;
    constexpr int binary = ios_base::binary;
    constexpr int app = ios_base::app;
    const auto service = makeService(test::answeringWith(std::int64_t{0}));
    const SeekOffFunction seekoff = details::remoteSeekOff(service);
    for (const Case& code :
         {Case{ios_base::beg, in, 1, 1}, Case{ios_base::end, out, 2, 2},
          Case{ios_base::cur, in | out, 0, 0}, Case{ios_base::beg, in | out, 1, 0},
          Case{ios_base::end, in, 2, 1}, Case{ios_base::cur, out, 0, 2}, Case{7, 0, 0, 0},
          Case{-1, in | binary, 0, 0}, Case{ios_base::beg, out | app, 1, 0},
          Case{ios_base::end, in | out | binary, 2, 0},
          Case{std::numeric_limits<int>::min(), -1, 0, 0},
          Case{std::numeric_limits<int>::max(), std::numeric_limits<int>::max(), 0, 0}}) {
        SCOPED_TRACE(testing::Message() << code.direction << ", " << code.mode);
        seekoff(-beyondFourGiB, code.direction, code.mode);
        GenericPayload arguments = onlyCall(*service, "seekoff");
        ASSERT_EQ(arguments.size(), 3u);
        EXPECT_EQ(arguments.take<std::int64_t>(0), -beyondFourGiB);
        EXPECT_EQ(arguments.take<int>(1), code.directionCode);
        EXPECT_EQ(arguments.take<int>(2), code.modeCode);
    }
}

TEST(RemoteSeekPosTest, SendsPositionAndModeCode) {
    struct Case {
        int mode;
        int code;
    };

    constexpr int in = ios_base::in;
    constexpr int out = ios_base::out;
    constexpr int binary = ios_base::binary;
    const auto service = makeService(test::answeringWith(std::int64_t{0}));
    const SeekPosFunction seekpos = details::remoteSeekPos(service);
    for (const Case& mode :
         {Case{in, 1}, Case{out, 2}, Case{in | out, 0}, Case{0, 0}, Case{in | binary, 0},
          Case{-1, 0}, Case{std::numeric_limits<int>::min(), 0}}) {
        SCOPED_TRACE(mode.mode);
        for (const std::int64_t position : {std::int64_t{1234}, std::int64_t{-1}, beyondFourGiB}) {
            seekpos(std::streampos(position), mode.mode);
            GenericPayload arguments = onlyCall(*service, "seekpos");
            ASSERT_EQ(arguments.size(), 2u);
            EXPECT_EQ(arguments.take<std::int64_t>(0), position);
            EXPECT_EQ(arguments.take<int>(1), mode.code);
        }
    }
}

TEST(RemoteSeekTest, MakesAPositionFromTheAnswer) {
    for (const std::int64_t answer : {std::int64_t{0}, std::int64_t{-1}, beyondFourGiB}) {
        const auto service = makeService(test::answeringWith(answer));
        EXPECT_EQ(
            details::remoteSeekOff(service)(1, ios_base::beg, ios_base::in),
            std::streampos(answer));
        EXPECT_EQ(details::remoteSeekPos(service)(1, ios_base::in), std::streampos(answer));
    }
}

TEST(RemoteOperationsTest, ShareTheServiceAndKeepNothingElseAlive) {
    auto service = makeService(test::answeringWith(std::int64_t{0}));
    const std::weak_ptr<FakeInvokable> observer = service;
    auto read = std::make_optional(details::remoteRead(service));
    auto seekpos = std::make_optional(details::remoteSeekPos(service));
    service.reset();
    read.reset();
    EXPECT_FALSE(observer.expired());
    (*seekpos)(0, ios_base::in);
    EXPECT_EQ(observer.use_count(), 1) << "a call leaves no reference to the service behind";
    seekpos.reset();
    EXPECT_TRUE(observer.expired());
}

/// Every remote operation, called with arguments that do not matter.
struct AnyOperation {
    std::string name;
    std::function<void(std::shared_ptr<core::Invokable>)> call;
    /// Answers in a type that the operation does not expect.
    FakeInvokable::Answer misfit;
    /// Answers as the operation expects.
    FakeInvokable::Answer fitting;

    friend std::ostream& operator<<(std::ostream& out, const AnyOperation& operation) {
        return out << operation.name;
    }
};

class AnyRemoteOperationTest : public testing::TestWithParam<AnyOperation> {
protected:
    static void call(const std::shared_ptr<core::Invokable>& service) { GetParam().call(service); }
};

TEST_P(AnyRemoteOperationTest, RethrowsTheVeryErrorOfThePublisher) {
    const std::exception_ptr error =
        std::make_exception_ptr(test::DeviceError("the publisher is out of paper"));
    const auto service =
        makeService([&](const CompletionHandler& handler) { handler.error(error); });
    try {
        call(service);
        FAIL() << "nothing was thrown";
    } catch (const test::DeviceError& thrown) {
        EXPECT_STREQ(thrown.what(), "the publisher is out of paper");
        EXPECT_EQ(std::current_exception(), error);
    }
}

TEST_P(AnyRemoteOperationTest, RethrowsErrorsThatAreNoStandardExceptions) {
    const auto service = makeService(
        [](const CompletionHandler& handler) { handler.error(std::make_exception_ptr(42)); });
    EXPECT_THROW(call(service), int);
}

TEST_P(AnyRemoteOperationTest, LetsOutWhatInvokeItselfThrows) {
    const auto service =
        makeService([](const CompletionHandler&) { throw test::DeviceError("nothing was sent"); });
    EXPECT_THAT([&] { call(service); }, throwsExactly<test::DeviceError>("nothing was sent"));
}

/// Plays a framework that drops what the success side throws, and the handler with it.
template <class Exception>
FakeInvokable::Answer dropping(FakeInvokable::Answer answer, const std::string& text) {
    return [=](const CompletionHandler& handler) {
        EXPECT_THAT([&] { answer(handler); }, throwsExactly<Exception>(text));
    };
}

TEST_P(AnyRemoteOperationTest, ReportsAnUnfitAnswerAsABrokenPromise) {
    const FakeInvokable::Answer nothing = [](const CompletionHandler& handler) {
        handler.success(GenericPayload());
    };
    const FakeInvokable::Answer emptySlot = [](const CompletionHandler& handler) {
        GenericPayload answer = GenericPayload::fromValues(1);
        answer.take<int>(0);
        handler.success(std::move(answer));
    };
    for (const auto& answer :
         {dropping<std::out_of_range>(nothing, "Invalid GenericPayload index"),
          dropping<std::runtime_error>(emptySlot, "GenericPayload empty at index"),
          dropping<core::BadAnyCast>(GetParam().misfit, "Bad any_cast"),
          dropping<core::BadAnyCast>(test::answeringWith(1), "Bad any_cast")}) {
        const auto service = makeService(answer);
        EXPECT_EQ(futureErrorOf([&] { call(service); }), std::future_errc::broken_promise);
    }
}

TEST_P(AnyRemoteOperationTest, ReportsAHandlerDroppedUnusedAsABrokenPromise) {
    const auto service = makeService([](const CompletionHandler&) {});
    EXPECT_EQ(futureErrorOf([&] { call(service); }), std::future_errc::broken_promise);
}

TEST_P(AnyRemoteOperationTest, EndsItsWaitWhenAnotherThreadDropsTheHandler) {
    std::promise<CompletionHandler> handed;
    const auto service =
        makeService([&](CompletionHandler handler) { handed.set_value(std::move(handler)); });
    // The error outlives both threads' use of it: the standard library counts its owners in a way
    // that a race detector does not see.
    std::future<std::exception_ptr> waiting = std::async(std::launch::async, [&] {
        try {
            call(service);
        } catch (...) {
            return std::current_exception();
        }
        return std::exception_ptr();
    });
    std::future<CompletionHandler> taken = handed.get_future();
    auto handler = std::make_optional(taken.get());
    taken = {};
    // The answer can only come from the drop.
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    handler.reset();
    const std::exception_ptr error = waiting.get();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(
        futureErrorOf([&] { std::rethrow_exception(error); }), std::future_errc::broken_promise);
}

TEST_P(AnyRemoteOperationTest, TakesItsAnswerFromAnotherThread) {
    std::vector<std::jthread> answering;
    const auto service = makeService([&](CompletionHandler handler) {
        answering.emplace_back([handler = std::move(handler)] { GetParam().fitting(handler); });
    });
    EXPECT_NO_THROW(call(service));
}

TEST_P(AnyRemoteOperationTest, TakesItsErrorFromAnotherThread) {
    const std::exception_ptr error = std::make_exception_ptr(test::DeviceError("from afar"));
    std::vector<std::jthread> answering;
    const auto service = makeService([&](CompletionHandler handler) {
        answering.emplace_back([&, handler = std::move(handler)] { handler.error(error); });
    });
    EXPECT_THAT([&] { call(service); }, throwsExactly<test::DeviceError>("from afar"));
}

TEST_P(AnyRemoteOperationTest, ReturnsWhileTheFrameworkStillKeepsTheHandler) {
    std::vector<CompletionHandler> kept;
    const auto service = makeService([&](const CompletionHandler& handler) {
        GetParam().fitting(handler);
        kept.push_back(handler);
    });
    EXPECT_NO_THROW(call(service));
    EXPECT_EQ(
        futureErrorOf([&] { GetParam().fitting(kept.front()); }),
        std::future_errc::promise_already_satisfied);
}

TEST_P(AnyRemoteOperationTest, CallsAreIndependentOfEachOther) {
    std::mutex mutex;
    std::vector<std::jthread> answering;
    const auto service = makeService([&](CompletionHandler handler) {
        const std::lock_guard lock(mutex);
        answering.emplace_back([handler = std::move(handler)] { GetParam().fitting(handler); });
    });
    std::vector<std::jthread> callers;
    for (int caller = 0; caller < 4; ++caller) {
        callers.emplace_back([&] {
            for (int repetition = 0; repetition < 25; ++repetition) {
                EXPECT_NO_THROW(call(service));
            }
        });
    }
    callers.clear();
    EXPECT_EQ(service->takeInvocations().size(), 100u);
}

INSTANTIATE_TEST_SUITE_P(
    , AnyRemoteOperationTest,
    testing::Values(
        AnyOperation{
            "Read", [](auto service) { details::remoteRead(service)(1); },
            test::answeringWith(std::int64_t{1}), test::answeringWith(std::string("x"))},
        AnyOperation{
            "Write", [](auto service) { details::remoteWrite(service)("x"); },
            test::answeringWith(std::string("1")), test::answeringWith(std::int64_t{1})},
        AnyOperation{
            "SeekOff",
            [](auto service) { details::remoteSeekOff(service)(1, ios_base::beg, ios_base::in); },
            test::answeringWith(std::string("1")), test::answeringWith(std::int64_t{1})},
        AnyOperation{
            "SeekPos", [](auto service) { details::remoteSeekPos(service)(1, ios_base::in); },
            test::answeringWith(std::string("1")), test::answeringWith(std::int64_t{1})}),
    [](const auto& parameter) { return parameter.param.name; });

} // namespace
} // namespace agent::orvi::streambuf
