#pragma once

#include "ReferenceModel.hpp"

#include "streambuf/Choices.hpp"
#include "support/RecordingDevice.hpp"
#include "support/StreamBuffers.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace agent::orvi::streambuf::test {

/// A stream buffer and a model of it, over two devices that behave alike: often as asked for, and
/// else they fall short, throw, or answer with counts that are not true.
class ComparedBuffers {
public:
    ComparedBuffers(Choices& choices, std::size_t bufferSize);

    /// Do one operation of any kind on both and compare what can be seen of it.
    void step(Choices& choices);

    /// Destroy both and compare what their devices see of it.
    void finish();

    std::string failure; ///< What differed first.

private:
    struct Outcome;
    struct Standing;

    template <class Action>
    static Outcome outcomeOf(Action action);
    static Standing standingOf(ExposedStreamBuffer& buffer);
    static Standing standingOf(const ReferenceModel& model);

    std::size_t length(Choices& choices) const;
    template <class Action>
    void compare(const std::string& what, Action action);
    void read(std::size_t count);
    void write(const std::string& text);
    void seek(Choices& choices);
    void move(Choices& choices);
    void checkSame(const std::string& what, const Outcome& actual, const Outcome& expected);
    void checkSameCalls(const std::string& what);
    template <class Value>
    void checkEqual(const std::string& what, const Value& actual, const Value& expected);

    RecordingDevice subjectDevice;
    RecordingDevice modelDevice;
    std::unique_ptr<ExposedStreamBuffer> subject;
    std::unique_ptr<ReferenceModel> model;
};

} // namespace agent::orvi::streambuf::test
