#include "support/Characters.hpp"
#include "support/StreamBuffers.hpp"

#include <boost/uuid/string_generator.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <locale>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

boost::uuids::uuid otherUuid() {
    return boost::uuids::string_generator()("ffffffff-0000-0000-0000-000000000001");
}

Operations closing(Operations operations, const RecordingDevice& device) {
    operations.close = device.close();
    return operations;
}

TEST(MoveConstructionTest, DropsTheReadAheadAndThePendingOutput) {
    RecordingDevice device(pattern(100));
    auto source = makeBuffer(bothOf(device), 16);
    take(source, 5);
    put(source, "abc");

    ExposedStreamBuffer target(std::move(source));

    EXPECT_EQ(target.getPosition(), 16);
    EXPECT_EQ(target.getEnd(), 16);
    EXPECT_EQ(target.putPosition(), 0);
    EXPECT_EQ(target.putEnd(), 16);
    EXPECT_EQ(target.pubsync(), 0);
    EXPECT_EQ(take(target, 1), pattern(1, 16));
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16), readCall(16)));
    EXPECT_EQ(device.bytes(), pattern(100));
}

TEST(MoveConstructionTest, KeepsTheUuidAndTheOperations) {
    RecordingDevice device("abc");
    auto source = makeBuffer(inputOf(device), 16, otherUuid());
    const auto bytes = source.toBytes();

    ExposedStreamBuffer target(std::move(source));

    EXPECT_EQ(target.toBytes(), bytes);
    EXPECT_FALSE(target.hasPutArea());
    EXPECT_EQ(take(target, 3), "abc");
}

TEST(MoveConstructionTest, LeavesASourceThatIsDestroyedWithoutACall) {
    RecordingDevice device;
    std::optional<StreamBuffer> target;
    {
        auto source = makeBuffer(closing(bothOf(device), device), 16);
        put(source, "abc");
        target.emplace(std::move(source));
    }
    EXPECT_THAT(device.calls(), IsEmpty());

    target.reset();
    EXPECT_THAT(device.calls(), ElementsAre(closeCall(exampleUuid())));
}

TEST(MoveConstructionTest, TakesNothingFromTheSourcesBase) {
    RecordingDevice device;
    auto source = makeBuffer(bothOf(device), 16);
    source.pubimbue(std::locale(std::locale::classic(), new std::numpunct<char>));

    const StreamBuffer target(std::move(source));

    EXPECT_EQ(target.getloc(), std::locale());
}

TEST(MoveAssignmentTest, CarriesTheReadAheadAndThePendingOutputOver) {
    RecordingDevice device(pattern(100));
    RecordingDevice old;
    auto source = makeExposedBuffer(bothOf(device), 16);
    auto target = makeExposedBuffer(bothOf(old), 4);
    take(source, 5);
    put(source, "abc");

    StreamBuffer& result = target = std::move(source);

    EXPECT_EQ(&result, &target);
    EXPECT_EQ(target.getPosition(), 5);
    EXPECT_EQ(target.getEnd(), 16);
    EXPECT_EQ(target.getCharacters(), pattern(16));
    EXPECT_EQ(target.pendingCharacters(), "abc");
    EXPECT_EQ(target.putEnd(), 16);
    EXPECT_EQ(target.sungetc(), pattern(1, 4)[0]);
    EXPECT_EQ(take(target, 12), pattern(12, 4));
    EXPECT_EQ(target.pubsync(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16), writeCall("abc")));
    EXPECT_THAT(old.calls(), IsEmpty());
}

TEST(MoveAssignmentTest, CarriesAFullPutAreaOver) {
    RecordingDevice device;
    auto source = makeBuffer(outputOf(device), 3);
    auto target = makeExposedBuffer(outputOf(device), 3);
    put(source, "abc");

    static_cast<StreamBuffer&>(target) = std::move(source);
    target.sputc('d');

    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
    EXPECT_EQ(target.pendingCharacters(), "d");
}

TEST(MoveAssignmentTest, ReleasesTheOldRecordAtOnceWithoutAFlush) {
    RecordingDevice device;
    RecordingDevice old;
    auto source = makeBuffer(closing(outputOf(device), device), 16, otherUuid());
    std::optional<StreamBuffer> target(makeBuffer(closing(outputOf(old), old), 16));
    put(*target, "lost");

    *target = std::move(source);

    EXPECT_THAT(old.takeCalls(), ElementsAre(closeCall(exampleUuid())));
    target.reset();
    EXPECT_THAT(old.calls(), IsEmpty());
    EXPECT_THAT(device.calls(), ElementsAre(closeCall(otherUuid())));
}

TEST(MoveAssignmentTest, LeavesASourceThatIsDestroyedWithoutACall) {
    RecordingDevice device;
    auto target = makeBuffer({}, 1);
    {
        auto source = makeBuffer(closing(bothOf(device), device), 16);
        put(source, "abc");
        target = std::move(source);
    }
    EXPECT_THAT(device.calls(), IsEmpty());
    EXPECT_EQ(target.pubsync(), 0);
    EXPECT_THAT(device.calls(), ElementsAre(writeCall("abc")));
}

TEST(MoveAssignmentTest, DoesNothingToItself) {
    RecordingDevice device(pattern(100));
    auto buffer = makeExposedBuffer(closing(bothOf(device), device), 16);
    take(buffer, 5);
    put(buffer, "abc");
    StreamBuffer& same = buffer;

    StreamBuffer& result = static_cast<StreamBuffer&>(buffer) = std::move(same);

    EXPECT_EQ(&result, &buffer);
    EXPECT_EQ(buffer.getPosition(), 5);
    EXPECT_EQ(buffer.getEnd(), 16);
    EXPECT_EQ(buffer.pendingCharacters(), "abc");
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16)));
}

TEST(MoveAssignmentTest, ClearsTheAreaOfADirectionTheSourceLacks) {
    RecordingDevice device(pattern(100));
    for (const bool sourceReads : {true, false}) {
        auto target = makeExposedBuffer(bothOf(device), 16);
        take(target, 5);
        put(target, "abc");

        target = makeExposedBuffer(sourceReads ? inputOf(device) : outputOf(device), 8);

        EXPECT_EQ(target.hasGetArea(), sourceReads);
        EXPECT_EQ(target.hasPutArea(), !sourceReads);
        if (sourceReads) {
            EXPECT_EQ(target.sputc('x'), endOfFile);
            EXPECT_EQ(put(target, "xyz"), 0);
        } else {
            EXPECT_EQ(target.in_avail(), 0);
            EXPECT_EQ(target.sgetc(), endOfFile);
            EXPECT_EQ(target.sungetc(), endOfFile);
            EXPECT_EQ(take(target, 3), "");
        }
    }
}

TEST(MoveAssignmentTest, ClearsBothAreasWhenTheSourceHasNoOperation) {
    RecordingDevice device(pattern(100));
    auto target = makeExposedBuffer(bothOf(device), 16);
    take(target, 5);
    put(target, "abc");

    target = makeExposedBuffer({}, 8);

    EXPECT_FALSE(target.hasGetArea());
    EXPECT_FALSE(target.hasPutArea());
}

TEST(MoveAssignmentTest, RevivesAnObjectThatWasMovedFrom) {
    RecordingDevice device(pattern(100));
    auto target = makeBuffer(bothOf(device), 16);
    const StreamBuffer elsewhere(std::move(target));
    auto source = makeBuffer(inputOf(device), 16, otherUuid());
    take(source, 5);

    target = std::move(source);

    EXPECT_EQ(target.in_avail(), 11);
    EXPECT_EQ(take(target, 11), pattern(11, 5));
}

TEST(MoveAssignmentTest, TakesNothingOverFromAnObjectThatWasMovedFrom) {
    RecordingDevice device;
    auto source = makeBuffer(bothOf(device), 16);
    const StreamBuffer elsewhere(std::move(source));
    auto target = makeExposedBuffer(closing(bothOf(device), device), 16);
    put(target, "abc");

    static_cast<StreamBuffer&>(target) = std::move(source);

    EXPECT_THAT(device.calls(), ElementsAre(closeCall(exampleUuid())));
    EXPECT_FALSE(target.hasGetArea());
    EXPECT_FALSE(target.hasPutArea());
}

TEST(MoveAssignmentTest, KeepsTheTargetsLocale) {
    RecordingDevice device;
    const std::locale own(std::locale::classic(), new std::numpunct<char>);
    auto source = makeBuffer(bothOf(device), 16);
    auto target = makeBuffer(bothOf(device), 16);
    target.pubimbue(own);

    target = std::move(source);

    EXPECT_EQ(target.getloc(), own);
}

TEST(MoveAssignmentTest, CarriesTheAreasOfABufferOfSizeZeroOver) {
    RecordingDevice device("ab");
    auto source = makeExposedBuffer(bothOf(device), 0);
    EXPECT_EQ(source.sgetc(), 'a');
    EXPECT_EQ(source.sputc('x'), 'x');
    auto target = makeExposedBuffer({}, 0);

    target = std::move(source);

    EXPECT_EQ(target.sbumpc(), 'a');
    EXPECT_EQ(target.pendingCharacters(), "x");
    EXPECT_EQ(target.pubsync(), 0);
    EXPECT_EQ(device.bytes(), "xb");
}

TEST(MovedFromStreamBufferTest, RefusesEverything) {
    RecordingDevice device(pattern(100));
    auto constructedFrom = makeBuffer(bothOf(device), 16);
    auto assignedFrom = makeBuffer(bothOf(device), 16);
    for (StreamBuffer* const source : {&constructedFrom, &assignedFrom}) {
        take(*source, 5);
        put(*source, "abc");
    }
    const StreamBuffer first(std::move(constructedFrom));
    auto second = makeBuffer({}, 1);
    second = std::move(assignedFrom);
    device.takeCalls();

    for (StreamBuffer* const source : {&constructedFrom, &assignedFrom}) {
        EXPECT_EQ(source->in_avail(), 0);
        EXPECT_EQ(source->sgetc(), endOfFile);
        EXPECT_EQ(source->sungetc(), endOfFile);
        EXPECT_EQ(take(*source, 3), "");
        EXPECT_EQ(source->sputc('x'), endOfFile);
        EXPECT_EQ(put(*source, "xyz"), 0);
        EXPECT_EQ(source->pubsync(), 0);
        EXPECT_EQ(source->pubseekoff(0, std::ios_base::beg), std::streampos(std::streamoff(-1)));
        EXPECT_EQ(source->pubseekpos(0), std::streampos(std::streamoff(-1)));
        EXPECT_THAT(
            [&] { source->toBytes(); },
            ::testing::ThrowsMessage<std::logic_error>("The stream buffer has been moved from."));
    }
    EXPECT_THAT(device.calls(), IsEmpty());
}

} // namespace
} // namespace agent::orvi::streambuf::test
