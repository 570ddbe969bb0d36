#include "contract/StreamContract.hpp"

#include "streambuf/ReferenceModel.hpp"

#include <gmock/gmock.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <ios>
#include <istream>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <typeinfo>
#include <utility>

namespace agent::orvi::streambuf::test {
namespace {

using std::ios_base;

/// What one operation gave its caller: a number, characters or an error.
template <class Action>
std::string outcomeOf(Action action) {
    try {
        return action();
    } catch (const std::exception& exception) {
        return std::string(typeid(exception).name()) + ": " + exception.what();
    }
}

/// Fall short, answer nonsense or throw now and then, in the same way for the same call. The model
/// stands over the bare device, so that it is given the neutral result in the place of an error.
RecordingDevice::Policy misbehaving(std::uint32_t seed, bool neutral) {
    return [seed,
            neutral](Operation operation, int number, std::int64_t amount) -> std::optional<Reply> {
        std::minstd_rand random(
            seed + 7919 * static_cast<std::uint32_t>(number) +
            static_cast<std::uint32_t>(operation));
        random.discard(3);
        switch (random() % 12) {
        case 0:
            if (neutral) {
                const bool seek =
                    operation == Operation::seekoff || operation == Operation::seekpos;
                return Reply::with(seek ? -1 : 0);
            }
            return Reply::throwing(std::string("no standard exception"));
        case 1:
            return Reply::with(amount / 2);
        case 2:
            return Reply::with(operation == Operation::read ? 0 : -1);
        case 3:
            return Reply::with(amount + 1);
        default:
            return std::nullopt;
        }
    };
}

/// One random operation, the same on a stream buffer and on the model of it.
class Step {
public:
    Step(std::mt19937& random, std::size_t bufferSize)
        : kind(random() % 11)
        , length(random() % (3 * bufferSize + 2))
        , text(pattern(length, random() % 89))
        , offset(static_cast<std::int64_t>(random() % 400) - 100)
        , direction(std::array{ios_base::beg, ios_base::cur, ios_base::end}[random() % 3])
        , mode(std::array{
              ios_base::in, ios_base::out, ios_base::in | ios_base::out,
              ios_base::in | ios_base::binary}[random() % 4]) {}

    std::string on(std::streambuf& buffer) const {
        return outcomeOf([&] { return run(buffer); });
    }

    std::string on(ReferenceModel& model) const {
        return outcomeOf([&] { return run(model); });
    }

private:
    std::string run(std::streambuf& buffer) const {
        switch (kind) {
        case 7:
            return take(buffer, length);
        case 8:
            return std::to_string(put(buffer, text));
        case 9:
            return std::to_string(std::streamoff(buffer.pubseekoff(offset, direction, mode)));
        case 10:
            return std::to_string(std::streamoff(buffer.pubseekpos(offset, mode)));
        case 6:
            return std::to_string(buffer.pubsync());
        default:
            return runSingle(buffer);
        }
    }

    std::string run(ReferenceModel& model) const {
        switch (kind) {
        case 7: {
            std::string result(length, '\0');
            result.resize(
                static_cast<std::size_t>(model.sgetn(result, static_cast<std::int64_t>(length))));
            return result;
        }
        case 8:
            return std::to_string(model.sputn(text));
        case 9:
            return std::to_string(model.seekoff(offset, direction, mode));
        case 10:
            return std::to_string(model.seekpos(offset, mode));
        case 6:
            return std::to_string(model.sync());
        default:
            return runSingle(model);
        }
    }

    template <class Buffer>
    std::string runSingle(Buffer& buffer) const {
        const auto character = static_cast<char>(offset);
        switch (kind) {
        case 0:
            return std::to_string(buffer.sgetc());
        case 1:
            return std::to_string(buffer.sbumpc());
        case 2:
            return std::to_string(buffer.snextc());
        case 3:
            return std::to_string(buffer.sungetc());
        case 4:
            return std::to_string(buffer.sputbackc(character));
        default:
            return std::to_string(buffer.sputc(character));
        }
    }

    std::size_t kind;
    std::size_t length;
    std::string text;
    std::int64_t offset;
    ios_base::seekdir direction;
    ios_base::openmode mode;
};

/// Return a new seed, or the one to replay.
std::uint32_t chosenSeed() {
    if (const char* const given = std::getenv("ORVI_TEST_SEED")) {
        return static_cast<std::uint32_t>(std::stoul(given));
    }
    return std::random_device()();
}

TEST_P(MixedContract, RandomOperationsDoWhatTheModelDoes) {
    const std::uint32_t firstSeed = chosenSeed();
    for (std::uint32_t script = 0; script < 20; ++script) {
        const std::uint32_t seed = firstSeed + script;
        SCOPED_TRACE(testing::Message() << "replay with ORVI_TEST_SEED=" << seed);
        std::mt19937 random(seed);
        RecordingDevice device(pattern(300));
        RecordingDevice modelDevice(pattern(300));
        device.decideBy(misbehaving(seed, false));
        modelDevice.decideBy(misbehaving(seed, true));
        const auto stream = open(bothOf(device));
        ReferenceModel model(bothOf(modelDevice), std::get<1>(GetParam()));
        for (int step = 0; step < 100; ++step) {
            const Step operation(random, bufferSize());
            ASSERT_EQ(operation.on(stream->buffer()), operation.on(model)) << "step " << step;
            ASSERT_EQ(device.takeCalls(), modelDevice.takeCalls()) << "step " << step;
        }
        ASSERT_EQ(device.bytes(), modelDevice.bytes());
    }
}

TEST_P(MixedContract, AStandardStreamReadsBackWhatItHasWritten) {
    RecordingDevice device;
    const auto stream = open(bothOf(device));
    std::stringstream oracle;
    std::iostream subject(&stream->buffer());
    for (std::iostream* each : std::initializer_list<std::iostream*>{&oracle, &subject}) {
        for (int number = 0; number < 500; ++number) {
            *each << number << (number % 10 == 9 ? '\n' : ' ');
        }
        each->flush();
        each->seekg(0);
    }
    int expected = 0;
    int number = 0;
    while (oracle >> expected) {
        ASSERT_TRUE(subject >> number);
        ASSERT_EQ(number, expected);
    }
    EXPECT_FALSE(subject >> number);
    EXPECT_TRUE(subject.eof());
    EXPECT_FALSE(subject.bad());
}

} // namespace
} // namespace agent::orvi::streambuf::test
