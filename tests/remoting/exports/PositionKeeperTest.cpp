#include "exports/PositionKeeper.hpp"

#include "support/ThrowsExactly.hpp"

#include <orvi/core/Invokable.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace agent::orvi::remoting::details::test {
namespace {

using core::GenericPayload;
using streambuf::test::throwsExactly;

constexpr int input = 1;
constexpr int output = 2;
constexpr int fromCurrent = 0;

/// A device whose sides are where they are put.
class MovableDevice final : public core::Invokable {
public:
    const core::ServiceInterface& serviceInterface() const override { return description; }

    bool hasMethod(const std::string& method) const override {
        return method == "seekoff" || (method == "read" && places.contains(input)) ||
               (method == "write" && places.contains(output));
    }

    void invoke(
        std::optional<std::chrono::milliseconds>, std::string, core::CompletionHandler handler,
        GenericPayload arguments, bool) override {
        const auto offset = arguments.take<std::int64_t>(0);
        const bool isQuestion = arguments.take<int>(1) == fromCurrent;
        std::int64_t& place = places.at(arguments.take<int>(2));
        if (!isQuestion && goesBack) {
            place = offset;
        }
        const bool fails = isQuestion && !tells;
        handler.success(GenericPayload::fromValues(fails ? std::int64_t{-1} : place));
    }

    std::map<int, std::int64_t> places;
    bool tells = true;
    bool goesBack = true;

private:
    const core::ServiceInterface description{"movable", core::APIVersion(1, 0), {}, {}};
};

class PositionKeeperTest : public testing::Test {
protected:
    PositionKeeperTest() { device.places[input] = 7; }

    /// Have a client read some bytes.
    void read(PositionKeeper::Client client, std::int64_t count) {
        keeper().prepareFor(client);
        device.places.at(input) += count;
    }

    /// Return where a client is.
    std::int64_t placeOf(PositionKeeper::Client client) {
        keeper().prepareFor(client);
        return device.places.at(input);
    }

    PositionKeeper& keeper() {
        if (!made) {
            made.emplace(device);
        }
        return *made;
    }

    MovableDevice device;

private:
    std::optional<PositionKeeper> made;
};

TEST_F(PositionKeeperTest, GivesEachClientItsOwnPlaceFromWhereTheDeviceWas) {
    read(1, 10);
    read(2, 100);
    EXPECT_EQ(placeOf(1), 17);
    EXPECT_EQ(placeOf(2), 107);
    EXPECT_EQ(placeOf(3), 7);
}

TEST_F(PositionKeeperTest, KeepsBothSides) {
    device.places[output] = 20;
    read(1, 10);
    device.places[output] += 5;
    read(2, 1);
    EXPECT_EQ(device.places, (std::map<int, std::int64_t>{{input, 8}, {output, 20}}));
    keeper().prepareFor(1);
    EXPECT_EQ(device.places, (std::map<int, std::int64_t>{{input, 17}, {output, 25}}));
}

TEST_F(PositionKeeperTest, LosesNoPlaceWhenTheDeviceDoesNotSayWhereItIs) {
    read(1, 10);
    device.tells = false;
    EXPECT_THAT(
        [&] { keeper().prepareFor(2); },
        throwsExactly<std::runtime_error>(
            "The device does not say where the client before has left it."));
    EXPECT_EQ(placeOf(1), 17); // it is there still
    device.tells = true;
    read(2, 100);
    EXPECT_EQ(placeOf(1), 17);
    EXPECT_EQ(placeOf(2), 107);
}

TEST_F(PositionKeeperTest, NeedNotKnowWhereAClientThatIsGoneHasLeftTheDevice) {
    read(1, 10);
    device.tells = false;
    keeper().forget(1);
    EXPECT_EQ(placeOf(2), 7);
}

TEST_F(PositionKeeperTest, LosesNoPlaceWhenTheDeviceDoesNotGoBack) {
    read(1, 10);
    device.goesBack = false;
    EXPECT_THAT(
        [&] { keeper().prepareFor(2); },
        throwsExactly<std::runtime_error>(
            "The device does not go back to where this client left it."));
    device.goesBack = true;
    EXPECT_EQ(placeOf(1), 17);
    EXPECT_EQ(placeOf(2), 7);
}

TEST_F(PositionKeeperTest, LeavesADeviceAloneThatNeverSaysWhereItIs) {
    device.tells = false;
    read(1, 10);
    EXPECT_EQ(placeOf(2), 17);
    read(2, 100);
    EXPECT_EQ(placeOf(1), 117);
}

TEST_F(PositionKeeperTest, KeepsNothingOfAClientThatIsGone) {
    read(1, 10);
    keeper().forget(1);
    EXPECT_EQ(placeOf(1), 7);
}

} // namespace
} // namespace agent::orvi::remoting::details::test
