#include "ComparedBuffers.hpp"

#include "support/DeviceError.hpp"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <sstream>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::orvi::streambuf::test {
namespace {

/// Misbehave in about one call of `rarity`, always in the same way for the same call.
RecordingDevice::Policy misbehaving(std::uint64_t seed, std::size_t rarity) {
    return [seed,
            rarity](Operation operation, int number, std::int64_t amount) -> std::optional<Reply> {
        RandomChoices choices(
            seed + 1000003 * static_cast<std::uint64_t>(number) +
            static_cast<std::uint64_t>(operation));
        if (!choices.oneIn(rarity)) {
            return std::nullopt;
        }
        if (choices.oneIn(4)) {
            return Reply::throwing(DeviceError("call " + std::to_string(number)));
        }
        constexpr std::int64_t lowWord = std::int64_t{1} << 32;
        if (operation == Operation::write) {
            return Reply::with(choices.oneOf<std::int64_t>(
                {-1, 0, 1, amount / 2, amount - 1, amount, amount + 1, lowWord, lowWord + amount,
                 -lowWord + amount, -amount}));
        }
        if (operation == Operation::read) {
            return Reply::with(choices.oneOf<std::int64_t>(
                {0, 1, amount / 2, amount - 1, amount, amount + 1, amount + 40}));
        }
        return Reply::with(choices.oneOf<std::int64_t>({-1, 0, 7, lowWord}));
    };
}

Operations operationsOf(const RecordingDevice& device, std::size_t absent) {
    Operations operations = bothOf(device);
    operations.close = device.close();
    if ((absent & 1) != 0) {
        operations.read = nullptr;
    }
    if ((absent & 2) != 0) {
        operations.write = nullptr;
    }
    if ((absent & 4) != 0) {
        operations.seekoff = nullptr;
    }
    if ((absent & 8) != 0) {
        operations.seekpos = nullptr;
    }
    if ((absent & 16) != 0) {
        operations.close = nullptr;
    }
    return operations;
}

std::string textOf(const std::vector<Call>& calls) {
    std::ostringstream text;
    for (const Call& call : calls) {
        text << call << ' ';
    }
    return text.str();
}

} // namespace

/// What one operation did, as far as its caller can tell.
struct ComparedBuffers::Outcome {
    std::int64_t result = 0;
    std::string characters; ///< Filled by a bulk read, kept when it throws.
    std::string exception;  ///< Type and text, empty when none was thrown.

    friend bool operator==(const Outcome&, const Outcome&) = default;

    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
        return out << outcome.result << " '" << outcome.characters << "' " << outcome.exception;
    }
};

template <class Action>
ComparedBuffers::Outcome ComparedBuffers::outcomeOf(Action action) {
    Outcome outcome;
    try {
        action(outcome);
    } catch (const std::exception& exception) {
        outcome.exception = std::string(typeid(exception).name()) + ": " + exception.what();
    }
    return outcome;
}

/// Where a stream buffer or a model stands.
struct ComparedBuffers::Standing {
    std::int64_t available;
    std::ptrdiff_t getPosition;
    std::ptrdiff_t getEnd;
    std::ptrdiff_t putEnd;
    std::string getCharacters;
    std::string pending;

    friend bool operator==(const Standing&, const Standing&) = default;

    friend std::ostream& operator<<(std::ostream& out, const Standing& standing) {
        return out << "available " << standing.available << ", get " << standing.getPosition << '/'
                   << standing.getEnd << " '" << standing.getCharacters << "', put '"
                   << standing.pending << "' of " << standing.putEnd;
    }
};

ComparedBuffers::Standing ComparedBuffers::standingOf(ExposedStreamBuffer& buffer) {
    return {
        buffer.in_avail(),
        buffer.getPosition(),
        buffer.getEnd(),
        buffer.putEnd(),
        buffer.getEnd() > 0 ? buffer.getCharacters() : std::string(),
        buffer.putPosition() > 0 ? buffer.pendingCharacters() : std::string()};
}

ComparedBuffers::Standing ComparedBuffers::standingOf(const ReferenceModel& model) {
    return {model.inAvail(), model.getPosition(),   model.getEnd(),
            model.putEnd(),  model.getCharacters(), model.pendingCharacters()};
}

ComparedBuffers::ComparedBuffers(Choices& choices, std::size_t bufferSize) {
    const std::string bytes = choices.text(choices.below(300));
    const std::uint64_t seed = choices.number();
    const std::size_t rarity = choices.oneOf<std::size_t>({2, 5, 20, 1000000});
    const std::size_t absent = choices.oneIn(3) ? choices.below(32) : 0;
    for (RecordingDevice* const device : {&subjectDevice, &modelDevice}) {
        *device = RecordingDevice(bytes);
        device->decideBy(misbehaving(seed, rarity));
    }
    model = std::make_unique<ReferenceModel>(operationsOf(modelDevice, absent), bufferSize);
    subject = std::make_unique<ExposedStreamBuffer>(
        makeBuffer(operationsOf(subjectDevice, absent), bufferSize));
}

void ComparedBuffers::step(Choices& choices) {
    switch (choices.below(16)) {
    case 0:
        compare("sgetc", [](auto& each) { return each.sgetc(); });
        break;
    case 1:
        compare("sbumpc", [](auto& each) { return each.sbumpc(); });
        break;
    case 2:
        compare("snextc", [](auto& each) { return each.snextc(); });
        break;
    case 3:
        compare("sungetc", [](auto& each) { return each.sungetc(); });
        break;
    case 4: {
        const char character = choices.text(1)[0];
        compare("sputbackc", [&](auto& each) { return each.sputbackc(character); });
        break;
    }
    case 5:
    case 6:
    case 7:
        read(length(choices));
        break;
    case 8:
    case 9: {
        const char character = choices.text(1)[0];
        compare("sputc", [&](auto& each) { return each.sputc(character); });
        break;
    }
    case 10:
    case 11:
    case 12:
        write(choices.text(length(choices)));
        break;
    case 13:
        checkSame(
            "sync", outcomeOf([&](Outcome& outcome) { outcome.result = subject->pubsync(); }),
            outcomeOf([&](Outcome& outcome) { outcome.result = model->sync(); }));
        break;
    case 14:
        seek(choices);
        break;
    default:
        move(choices);
    }
}

void ComparedBuffers::finish() {
    subject.reset();
    model->destroy();
    checkSame("destroy", {}, {});
}

/// Lengths around the multiples of the buffer size are where mistakes hide.
std::size_t ComparedBuffers::length(Choices& choices) const {
    const auto size = static_cast<std::size_t>(std::max(model->getEnd(), model->putEnd()));
    const std::size_t around = size * choices.below(4) + choices.below(3);
    return choices.oneIn(3) ? choices.below(120) : (around > 0 ? around - 1 : 0);
}

template <class Action>
void ComparedBuffers::compare(const std::string& what, Action action) {
    checkSame(
        what, outcomeOf([&](Outcome& outcome) { outcome.result = action(*subject); }),
        outcomeOf([&](Outcome& outcome) { outcome.result = action(*model); }));
}

void ComparedBuffers::read(std::size_t count) {
    const auto length = static_cast<std::streamsize>(count);
    std::string actual(count, '.');
    std::string expected(count, '.');
    Outcome subjectOutcome = outcomeOf(
        [&](Outcome& outcome) { outcome.result = subject->sgetn(actual.data(), length); });
    Outcome modelOutcome =
        outcomeOf([&](Outcome& outcome) { outcome.result = model->sgetn(expected, length); });
    subjectOutcome.characters = actual;
    modelOutcome.characters = expected;
    checkSame("sgetn " + std::to_string(count), subjectOutcome, modelOutcome);
}

void ComparedBuffers::write(const std::string& text) {
    checkSame(
        "sputn " + std::to_string(text.size()),
        outcomeOf([&](Outcome& outcome) { outcome.result = put(*subject, text); }),
        outcomeOf([&](Outcome& outcome) { outcome.result = model->sputn(text); }));
}

void ComparedBuffers::seek(Choices& choices) {
    constexpr auto in = std::ios_base::in;
    constexpr auto out = std::ios_base::out;
    const auto mode = choices.oneOf<std::ios_base::openmode>(
        {in, out, in | out, in, out, in | out, std::ios_base::openmode{},
         in | std::ios_base::binary, std::ios_base::app});
    const auto direction = choices.oneOf<std::ios_base::seekdir>(
        {std::ios_base::beg, std::ios_base::cur, std::ios_base::end});
    const std::int64_t offset = choices.oneIn(10)
                                    ? static_cast<std::int64_t>(choices.number() >> 2)
                                    : static_cast<std::int64_t>(choices.below(300)) - 20;
    if (choices.oneIn(2)) {
        checkSame(
            "seekpos", outcomeOf([&](Outcome& outcome) {
                outcome.result = std::streamoff(subject->pubseekpos(offset, mode));
            }),
            outcomeOf([&](Outcome& outcome) { outcome.result = model->seekpos(offset, mode); }));
        return;
    }
    checkSame(
        "seekoff", outcomeOf([&](Outcome& outcome) {
            outcome.result = std::streamoff(subject->pubseekoff(offset, direction, mode));
        }),
        outcomeOf(
            [&](Outcome& outcome) { outcome.result = model->seekoff(offset, direction, mode); }));
}

void ComparedBuffers::move(Choices& choices) {
    if (choices.oneIn(2)) {
        subject = std::make_unique<ExposedStreamBuffer>(std::move(*subject));
        model->moveConstruct();
        checkSame("move construction", {}, {});
        return;
    }
    // The target has a device of its own, which is released, and something pending for it.
    ComparedBuffers target(choices, choices.below(20));
    target.write(choices.text(choices.below(40)));
    target.read(choices.below(40));
    *target.subject = std::move(*subject);
    target.model->release();
    target.checkSameCalls("release by move assignment");
    if (failure.empty()) {
        failure = target.failure;
    }
    std::swap(target.subject, subject);
    checkSame("move assignment", {}, {});
}

void ComparedBuffers::checkSame(
    const std::string& what, const Outcome& actual, const Outcome& expected) {
    checkEqual(what, actual, expected);
    checkSameCalls(what);
    if (subject) {
        checkEqual(what, standingOf(*subject), standingOf(*model));
    }
}

void ComparedBuffers::checkSameCalls(const std::string& what) {
    const std::vector<Call> actual = subjectDevice.takeCalls();
    const std::vector<Call> expected = modelDevice.takeCalls();
    if (actual != expected && failure.empty()) {
        failure = what + ": device calls " + textOf(actual) + ", expected " + textOf(expected);
    }
}

template <class Value>
void ComparedBuffers::checkEqual(
    const std::string& what, const Value& actual, const Value& expected) {
    if (actual != expected && failure.empty()) {
        std::ostringstream text;
        text << what << ": " << actual << ", expected " << expected;
        failure = text.str();
    }
}

} // namespace agent::orvi::streambuf::test
