#include "remoting/safety/HostileEndpointTest.hpp"

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <string>

namespace agent::orvi::remoting::test {
namespace {

using testing::ElementsAre;
using Tracker = cppmicroservices::ServiceTracker<core::Invokable>;

/// An endpoint that takes so many look-ups at a time, and says what it was asked for.
class RefusedLookUps : public HostileEndpointTest {
protected:
    ~RefusedLookUps() override {
        importer.reset();
        endpoint.reset(); // it says what it is asked for until it has ended
    }

    void startWithRoomFor(std::size_t count) {
        room = count;
        start(
            [this](grpc::ServerContext&, Stream& stream) {
                stream.Write(hello());
                std::map<std::uint64_t, std::string> taken;
                v1::Frame frame;
                while (stream.Read(&frame)) {
                    if (frame.has_want()) {
                        const auto& want = frame.want();
                        const bool hasRoom = taken.size() < room;
                        asked.add((hasRoom ? "take " : "refuse ") + want.filter());
                        v1::Frame settled;
                        settled.mutable_settled()->set_id(want.id());
                        if (hasRoom) {
                            taken[want.id()] = want.filter();
                        } else {
                            settled.mutable_settled()->set_refusal("No room.");
                        }
                        stream.Write(settled);
                    } else if (frame.has_unwant()) {
                        asked.add("end " + taken[frame.unwant().id()]);
                        taken.erase(frame.unwant().id());
                    }
                }
                return grpc::Status::OK;
            },
            {});
    }

    /// Look for services of a name, once the endpoint has answered all that came before.
    std::unique_ptr<Tracker> lookFor(const std::string& name) {
        auto tracker = std::make_unique<Tracker>(
            streambuf::test::registryContext(), cppmicroservices::LDAPFilter(filterOf(name)));
        tracker->Open();
        EXPECT_TRUE(importer->waitUntilSettled(longTime));
        return tracker;
    }

    static std::string filterOf(const std::string& name) {
        return "(orvi.servicename=" + name + ")";
    }

    /// Wait for the peer's state to say why it does not look for everything; nothing if it does.
    bool refusalBecomes(const std::string& text) const {
        return eventually([&] { return importer->peers().at(0).error == text; });
    }

    std::atomic<std::size_t> room{0};
    EventLog<std::string> asked;
};

TEST_F(RefusedLookUps, AreMadeOneForEachThatEnds) {
    startWithRoomFor(1);
    auto first = lookFor("first");
    auto second = lookFor("second");
    auto third = lookFor("third");
    EXPECT_TRUE(refusalBecomes("No room."));
    first.reset();
    EXPECT_THAT(
        asked.waitFor(5), ElementsAre(
                              "take " + filterOf("first"), "refuse " + filterOf("second"),
                              "refuse " + filterOf("third"), "end " + filterOf("first"),
                              "take " + filterOf("second")));
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_TRUE(refusalBecomes("No room."));
    second.reset();
    EXPECT_THAT(
        asked.waitFor(7),
        testing::IsSupersetOf({"end " + filterOf("second"), "take " + filterOf("third")}));
    EXPECT_TRUE(refusalBecomes(""));
    EXPECT_EQ(asked.all().size(), 7U);
}

TEST_F(RefusedLookUps, AreNotMadeWhenNobodyLooksAnyMore) {
    startWithRoomFor(1);
    auto first = lookFor("first");
    auto second = lookFor("second");
    auto third = lookFor("third");
    EXPECT_TRUE(refusalBecomes("No room."));
    second.reset();
    third.reset();
    EXPECT_TRUE(refusalBecomes(""));
    first.reset();
    const auto fourth = lookFor("fourth");
    EXPECT_THAT(
        asked.waitFor(5), ElementsAre(
                              "take " + filterOf("first"), "refuse " + filterOf("second"),
                              "refuse " + filterOf("third"), "end " + filterOf("first"),
                              "take " + filterOf("fourth")));
}

TEST_F(RefusedLookUps, MayBeRefusedAgain) {
    startWithRoomFor(2);
    auto first = lookFor("first");
    auto second = lookFor("second");
    const auto third = lookFor("third");
    room = 1;
    first.reset();
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    EXPECT_TRUE(refusalBecomes("No room."));
    second.reset();
    EXPECT_THAT(
        asked.waitFor(7), ElementsAre(
                              "take " + filterOf("first"), "take " + filterOf("second"),
                              "refuse " + filterOf("third"), "end " + filterOf("first"),
                              "refuse " + filterOf("third"), "end " + filterOf("second"),
                              "take " + filterOf("third")));
    EXPECT_TRUE(refusalBecomes(""));
}

TEST_F(RefusedLookUps, OfOneThatWasTakenInPartsAreMadeToo) {
    const auto longName = [](char letter) { return std::string(3000, letter); };
    startWithRoomFor(1);
    auto first = lookFor("first");
    auto parts = std::make_unique<Tracker>(
        streambuf::test::registryContext(),
        cppmicroservices::LDAPFilter(
            "(|" + filterOf(longName('a')) + filterOf(longName('b')) + ")"));
    parts->Open();
    EXPECT_TRUE(importer->waitUntilSettled(longTime));
    first.reset();
    EXPECT_THAT(
        asked.waitFor(5), ElementsAre(
                              "take " + filterOf("first"), "refuse " + filterOf(longName('a')),
                              "refuse " + filterOf(longName('b')), "end " + filterOf("first"),
                              "take " + filterOf(longName('a'))));
    EXPECT_TRUE(refusalBecomes("No room."));
    parts.reset();
    EXPECT_TRUE(refusalBecomes(""));
}

} // namespace
} // namespace agent::orvi::remoting::test
