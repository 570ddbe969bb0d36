#include "allocations/FailingAllocation.hpp"
#include "remoting/carrier/ScriptedCarrier.hpp"
#include "remoting/wire/Frames.hpp"
#include "support/Registry.hpp"

#include "exports/CallSession.hpp"
#include "exports/ControlSession.hpp"
#include "wire/FrameLimits.hpp"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/ServiceRegistration.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;
using streambuf::test::registryContext;

const std::string name = "orviStreambuf_faults";
const std::string text(1000, 'x');

/// Answers a read with a text, a write with its length, is where it is, and cannot sync.
class Device final : public core::Invokable {
public:
    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string& method) const override { return method != "seekpos"; }

    void invoke(
        std::optional<std::chrono::milliseconds>, std::string method,
        core::CompletionHandler handler, GenericPayload arguments, bool) override {
        if (method == "read") {
            handler.success(GenericPayload::fromValues(text));
        } else if (method == "seekoff") {
            handler.success(GenericPayload::fromValues(std::int64_t{5}));
        } else if (method == "sync") {
            throw std::runtime_error(text);
        } else {
            const std::size_t size = arguments.peek<std::string>(0).size();
            handler.success(GenericPayload::fromValues(static_cast<std::int64_t>(size)));
        }
    }

private:
    const core::ServiceInterface description{name, core::APIVersion(1, 0), {}, {}};
};

using Registration = cppmicroservices::ServiceRegistration<core::Invokable>;

Registration offerDevice() {
    return registryContext().RegisterService<core::Invokable>(
        std::static_pointer_cast<core::Invokable>(std::make_shared<Device>()),
        {{"orvi.servicename", name}, {"service.exported.interfaces", std::string("*")}});
}

std::uint64_t numberOf(Registration& registration) {
    return static_cast<std::uint64_t>(cppmicroservices::any_cast<long>(
        registration.GetReference().GetProperty(cppmicroservices::Constants::SERVICE_ID)));
}

std::string greeting(std::uint64_t service = 0) {
    v1::Frame frame;
    frame.mutable_hello()->set_major(protocolMajor);
    frame.mutable_hello()->set_service(service);
    return encoded(encodeFrame(frame));
}

std::string look(std::uint64_t id) {
    v1::Frame frame;
    frame.mutable_want()->set_id(id);
    frame.mutable_want()->set_filter("(orvi.servicename=" + name + ")");
    return encoded(encodeFrame(frame));
}

/// The other side of a stream of an endpoint. It allocates nothing while something may fail.
class Importer {
public:
    Importer() {
        heard.reserve(100'000);
        ends.reserve(100);
        stream->whenSent = [this](const std::string& frame) {
            heard += frame;
            ends.push_back(heard.size());
        };
    }

    /// Say all there is to say, as the endpoint listens, until nothing happens any more.
    void talk(const std::vector<std::string>& frames, ScriptedExecutor& executor) {
        std::size_t next = 0;
        for (bool busy = true; busy;) {
            try {
                busy = executor.runNext();
            } catch (const std::bad_alloc&) {
                busy = true; // an executor keeps to itself what a task throws
            }
            busy = stream->acknowledge() || stream->conclude() || busy;
            if (!busy && next < frames.size()) {
                busy = stream->deliver(frames[next++], 1000);
            }
        }
    }

    std::vector<v1::Frame> frames() const {
        std::vector<v1::Frame> result;
        std::size_t begin = 0;
        for (const std::size_t end : ends) {
            EXPECT_TRUE(result.emplace_back().ParseFromString(heard.substr(begin, end - begin)));
            begin = end;
        }
        return result;
    }

    const std::shared_ptr<ScriptedStream> stream = std::make_shared<ScriptedStream>();

private:
    std::string heard;
    std::vector<std::size_t> ends; // of frames
};

struct CallFaults : testing::TestWithParam<bool> {
    CallFaults() {
        options.positionPerConnection = GetParam();
        terms = std::make_shared<CallTerms>(options);
    }

    ~CallFaults() override {
        table->close();
        device.Unregister();
    }

    std::shared_ptr<CallSession> session(Importer& importer) {
        auto made = std::make_shared<CallSession>(
            importer.stream, PeerNames{"uid:1"}, table, terms, *executor);
        importer.stream->follow(made);
        importer.stream->receive();
        return made;
    }

    bool nothingIsUsed() { return terms->budget.awaitNoCalls({}); }

    Registration device = offerDevice();
    EndpointOptions options;
    std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
    std::shared_ptr<ExportTable> table = ExportTable::open(registryContext(), "endpoint", executor);
    std::shared_ptr<CallTerms> terms;

    const std::vector<std::string> script = [this] {
        std::vector<std::string> frames{greeting(numberOf(device))};
        for (auto& frame : framesOf(OutgoingMessage::request(
                 "write", false, GenericPayload::fromValues(patternOf(200'000))))) {
            frames.push_back(std::move(frame));
        }
        for (auto& frame : framesOf(OutgoingMessage::request(
                 "read", false, GenericPayload::fromValues(std::int64_t{1000})))) {
            frames.push_back(std::move(frame));
        }
        return frames;
    }();
};

/// Say whether frames are a greeting and two good answers.
bool areAnswers(const std::vector<v1::Frame>& frames) {
    return frames.size() == 3 && frames[0].has_hello() && frames[1].has_answer() &&
           frames[1].answer().slots(0).numbers(0) == 200'000 && frames[2].has_answer() &&
           frames[2].data() == text;
}

TEST_P(CallFaults, EveryCallIsAnsweredOrItsStreamEnds) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Importer importer;
        auto running = session(importer);
        EXPECT_TRUE(failure.allows([&] { importer.talk(script, *executor); }));
        const auto frames = importer.frames();
        if (!areAnswers(frames)) {
            EXPECT_TRUE(failure.happened());
            // The answers that there are, are right.
            for (const v1::Frame& frame : frames) {
                EXPECT_TRUE(!frame.has_answer() || frame.data().empty() || frame.data() == text);
            }
            EXPECT_TRUE(frames.size() == 3 || importer.stream->isOver());
        }
        if (importer.stream->isOver()) {
            EXPECT_EQ(importer.stream->end()->kind, StreamEnd::Kind::disconnected);
            EXPECT_EQ(importer.stream->end()->text, "No memory left.");
        }
        importer.stream->lose({StreamEnd::Kind::disconnected, {}});
        importer.talk({}, *executor);
        running.reset();
        EXPECT_TRUE(nothingIsUsed());

        Importer next;
        const auto after = session(next);
        next.talk(script, *executor);
        EXPECT_TRUE(areAnswers(next.frames())) << "the device goes on to serve others";
        next.stream->lose({StreamEnd::Kind::disconnected, {}});
        next.talk({}, *executor);
    });
    EXPECT_GT(failures, 50U);
}

TEST_P(CallFaults, AFailureIsReportedOrItsStreamEnds) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Importer importer;
        const auto running = session(importer);
        const std::vector<std::string> failing{
            greeting(numberOf(device)),
            framesOf(OutgoingMessage::request("sync", false, GenericPayload())).front()};
        EXPECT_TRUE(failure.allows([&] { importer.talk(failing, *executor); }));
        const auto frames = importer.frames();
        EXPECT_TRUE(importer.stream->isOver() || (frames.size() == 2 && frames[1].has_failure()));
        importer.stream->lose({StreamEnd::Kind::disconnected, {}});
        importer.talk({}, *executor);
        EXPECT_TRUE(nothingIsUsed());
        running->abandon(); // which has nothing to say any more
    });
    EXPECT_GT(failures, 20U);
}

TEST_P(CallFaults, ACallThatWaitsForItsTurnIsAnsweredOrItsStreamEnds) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Importer first;
        Importer second;
        auto one = session(first);
        auto two = session(second);
        EXPECT_TRUE(failure.allows([&] {
            std::size_t next = 0;
            for (bool busy = true; busy;) {
                // Both have sent a request before either is run.
                const bool sent = next < 3 && first.stream->deliver(script[next], 1000);
                busy = (next < 3 && second.stream->deliver(script[next], 1000)) || sent;
                ++next;
                first.stream->acknowledge();
                second.stream->acknowledge();
            }
            first.talk({}, *executor);
            second.talk({}, *executor);
            first.talk({}, *executor);
        }));
        for (Importer* const importer : {&first, &second}) {
            const auto frames = importer->frames();
            EXPECT_TRUE(
                importer->stream->isOver() ||
                (frames.size() == 2 && (frames[1].has_answer() || frames[1].has_failure())));
            importer->stream->lose({StreamEnd::Kind::disconnected, {}});
            importer->talk({}, *executor);
        }
        one.reset();
        two.reset();
        EXPECT_TRUE(nothingIsUsed());
    });
    EXPECT_GT(failures, 30U);
}

TEST_P(CallFaults, AStreamThatEndsAtAnyStepLeavesNothing) {
    // Each step of the script, and of what follows from it.
    for (std::size_t last = 0; last < script.size(); ++last) {
        for (const bool settled : {false, true}) {
            Importer importer;
            auto running = session(importer);
            const std::vector<std::string> begun(
                script.begin(), script.begin() + static_cast<std::ptrdiff_t>(last));
            importer.talk(begun, *executor);
            if (!settled) {
                importer.stream->deliver(script[last], 1000);
            }
            importer.stream->lose({StreamEnd::Kind::disconnected, {}});
            importer.talk({}, *executor);
            const std::weak_ptr<CallSession> watch = running;
            running.reset();
            EXPECT_TRUE(watch.expired());
            EXPECT_TRUE(nothingIsUsed());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Positions, CallFaults, testing::Bool());

class OfferFaults : public testing::Test {
protected:
    struct Listening {
        explicit Listening(OfferFaults& faults)
            : faults(faults)
            , session(std::make_shared<ControlSession>(
                  importer.stream, faults.table, EndpointName{"framework", "endpoint"}, 100,
                  *faults.executor)) {
            importer.stream->follow(session);
            importer.stream->receive();
        }

        ~Listening() {
            importer.stream->lose({StreamEnd::Kind::disconnected, {}});
            importer.talk({}, *faults.executor);
        }

        /// Return how many services it has been told of and not been told that they are gone.
        int offers() const {
            int count = 0;
            for (const v1::Frame& frame : importer.frames()) {
                count += frame.has_offer() ? 1 : frame.has_withdrawal() ? -1 : 0;
            }
            return count;
        }

        OfferFaults& faults;
        Importer importer;
        const std::shared_ptr<ControlSession> session;
    };

    ~OfferFaults() override { table->close(); }

    int offersToOthers() {
        Listening other(*this);
        other.importer.talk(script, *executor);
        EXPECT_FALSE(other.importer.stream->isOver());
        return other.offers();
    }

    std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
    const std::shared_ptr<ExportTable> table =
        ExportTable::open(registryContext(), "endpoint", executor);
    const std::vector<std::string> script{greeting(), look(1), look(2)};
};

TEST_F(OfferFaults, ALookUpFindsWhatThereIsOrItsStreamEnds) {
    auto device = offerDevice();
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Listening listening(*this);
        EXPECT_TRUE(failure.allows([&] { listening.importer.talk(script, *executor); }));
        EXPECT_TRUE(listening.importer.stream->isOver() || listening.offers() == 1);
        EXPECT_EQ(offersToOthers(), 1);
    });
    EXPECT_GT(failures, 50U);
    device.Unregister();
}

TEST_F(OfferFaults, AServiceThatComesIsOfferedAtTheNextLookUpAtTheLatest) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Listening listening(*this);
        listening.importer.talk(script, *executor);
        Registration device;
        const bool done = failure.allows([&] {
            device = offerDevice();
            listening.importer.talk({}, *executor);
        });
        if (done) {
            EXPECT_TRUE(
                listening.importer.stream->isOver() || listening.offers() == 1 ||
                failure.happened());
            EXPECT_EQ(offersToOthers(), 1);
            listening.importer.talk({}, *executor);
            EXPECT_TRUE(listening.importer.stream->isOver() || listening.offers() == 1);
            device.Unregister();
        }
        EXPECT_EQ(offersToOthers(), 0);
    });
    EXPECT_GT(failures, 50U);
}

TEST_F(OfferFaults, AServiceThatGoesIsWithdrawnOrTheStreamEnds) {
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        Listening listening(*this);
        listening.importer.talk(script, *executor);
        auto device = offerDevice();
        listening.importer.talk({}, *executor);
        EXPECT_EQ(listening.offers(), 1);
        EXPECT_TRUE(failure.allows([&] {
            device.Unregister();
            listening.importer.talk({}, *executor);
        }));
        EXPECT_TRUE(listening.importer.stream->isOver() || listening.offers() == 0);
        EXPECT_EQ(offersToOthers(), 0);
    });
    EXPECT_GT(failures, 3U);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
