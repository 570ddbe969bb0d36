#include "support/DeviceError.hpp"
#include "support/StreamBuffers.hpp"
#include "support/TemporaryFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ThrowsMessage;

constexpr std::size_t bufferSizes[] = {0, 1, 2, 3, 7, 16, 100, 4096};

std::string sampleText() {
    std::string text = "12 -7 3.5 word\nsecond line\n\n  \t indented\nlast but one\n";
    for (int line = 0; line < 40; ++line) {
        text += std::to_string(line * line) + ' ' + pattern(static_cast<std::size_t>(line), 3) +
                (line % 7 == 0 ? "\xff\n" : "\n");
    }
    return text + "no newline at the end";
}

/// Write down what a step left in the stream.
void note(std::ostream& transcript, std::istream& stream, const std::string& got) {
    transcript << '[' << got << "] count " << stream.gcount() << " state " << stream.rdstate()
               << '\n';
}

std::string readBlock(std::istream& stream, std::streamsize count) {
    std::string block(static_cast<std::size_t>(count), '\0');
    stream.read(block.data(), count);
    block.resize(static_cast<std::size_t>(stream.gcount()));
    return block;
}

/// Read in all the ways a standard stream offers and write down what came.
std::string readingTranscript(std::istream& stream) {
    std::ostringstream transcript;
    int number = 0;
    double fraction = 0;
    std::string text;
    stream >> number >> text >> fraction;
    note(transcript, stream, std::to_string(number) + text + std::to_string(fraction));
    stream >> text;
    note(transcript, stream, text);
    stream.ignore();
    std::getline(stream, text);
    note(transcript, stream, text);
    std::getline(stream, text);
    note(transcript, stream, text);
    stream >> std::ws;
    note(transcript, stream, std::to_string(stream.peek()));
    const char character = static_cast<char>(stream.get());
    stream.putback(character);
    note(transcript, stream, std::string(1, static_cast<char>(stream.get())));
    stream.unget();
    note(transcript, stream, readBlock(stream, 5));
    stream.ignore(4);
    note(transcript, stream, readBlock(stream, 1));
    stream.ignore(1000, '\n');
    char fixed[8];
    stream.get(fixed, sizeof(fixed));
    note(transcript, stream, fixed);
    stream.getline(fixed, sizeof(fixed));
    note(transcript, stream, fixed);
    stream.clear();
    for (const std::streamsize count : {0, 1, 2, 3, 15, 16, 17, 100, 101, 33}) {
        note(transcript, stream, readBlock(stream, count));
    }
    stream.seekg(0, std::ios_base::beg);
    note(transcript, stream, readBlock(stream, 20));
    stream.seekg(-30, std::ios_base::end);
    std::ostringstream rest;
    stream >> rest.rdbuf();
    note(transcript, stream, rest.str());
    stream.clear();
    stream.seekg(40);
    while (std::getline(stream, text)) {
        note(transcript, stream, text);
    }
    note(transcript, stream, text);
    stream.clear();
    note(transcript, stream, std::to_string(stream.get()));
    stream.clear();
    stream.seekg(-1);
    note(transcript, stream, "before the beginning");
    stream.clear();
    stream.seekg(5);
    note(transcript, stream, readBlock(stream, 100'000));
    return transcript.str();
}

TEST(StandardStreamsTest, ReadTheSameAsFromAStringBuffer) {
    std::istringstream oracle(sampleText());
    const std::string expected = readingTranscript(oracle);

    for (const std::size_t bufferSize : bufferSizes) {
        SCOPED_TRACE(bufferSize);
        RecordingDevice device(sampleText());
        auto buffer = makeBuffer(inputOf(device), bufferSize);
        std::istream stream(&buffer);
        EXPECT_EQ(readingTranscript(stream), expected);
    }
}

TEST(StandardStreamsTest, ReadTheSameAsFromAFileBuffer) {
    const TemporaryFile file(sampleText());
    // A file buffer moves before its beginning no more than ours, so all steps apply.
    std::ifstream oracle(file.path, std::ios_base::binary);
    const std::string expected = readingTranscript(oracle);

    for (const std::size_t bufferSize : bufferSizes) {
        SCOPED_TRACE(bufferSize);
        RecordingDevice device(sampleText());
        auto buffer = makeBuffer(inputOf(device), bufferSize);
        std::istream stream(&buffer);
        EXPECT_EQ(readingTranscript(stream), expected);
    }
}

/// Write in all the ways a standard stream offers; report states and positions.
std::string writingTranscript(std::ostream& stream) {
    std::ostringstream transcript;
    const auto note = [&] { transcript << stream.rdstate() << ' '; };
    stream << 42 << ' ' << -1.25 << " text " << std::hex << 255 << std::dec << '\n';
    note();
    stream << std::setw(12) << std::setfill('*') << "wide" << std::endl;
    note();
    stream.put('x').put('\xff').put('\0');
    note();
    for (const std::size_t count : {0U, 1U, 2U, 3U, 15U, 16U, 17U, 100U, 101U, 5000U}) {
        stream.write(pattern(count).data(), static_cast<std::streamsize>(count));
        note();
    }
    transcript << stream.tellp() << ' ';
    stream.flush();
    stream.seekp(10);
    stream << "overwritten";
    transcript << stream.tellp() << ' ';
    stream.seekp(-3, std::ios_base::cur) << "back";
    stream.seekp(0, std::ios_base::end) << "end";
    std::istringstream source("copied from another buffer");
    stream << source.rdbuf();
    note();
    stream.seekp(2, std::ios_base::beg) << "begin";
    transcript << stream.tellp() << ' ';
    stream.flush();
    note();
    return transcript.str();
}

TEST(StandardStreamsTest, WriteTheSameAsToAStringBuffer) {
    std::ostringstream oracle;
    const std::string expected = writingTranscript(oracle);

    for (const std::size_t bufferSize : bufferSizes) {
        SCOPED_TRACE(bufferSize);
        RecordingDevice device;
        auto buffer = makeBuffer(outputOf(device), bufferSize);
        std::ostream stream(&buffer);
        EXPECT_EQ(writingTranscript(stream), expected);
        EXPECT_EQ(device.bytes(), oracle.str());
    }
}

TEST(StandardStreamsTest, WriteTheSameAsToAFileBuffer) {
    const TemporaryFile file;
    std::ofstream oracle(file.path, std::ios_base::binary);
    const std::string expected = writingTranscript(oracle);
    oracle.close();

    for (const std::size_t bufferSize : bufferSizes) {
        SCOPED_TRACE(bufferSize);
        RecordingDevice device;
        auto buffer = makeBuffer(outputOf(device), bufferSize);
        std::ostream stream(&buffer);
        EXPECT_EQ(writingTranscript(stream), expected);
        EXPECT_EQ(device.bytes(), file.content());
    }
}

TEST(StandardStreamsTest, ReadBackWhatWasWrittenThroughOneStream) {
    RecordingDevice device;
    auto buffer = makeBuffer(bothOf(device), 16);
    std::iostream stream(&buffer);

    stream << pattern(100) << std::flush;
    EXPECT_EQ(readBlock(stream, 200), pattern(100));
    EXPECT_TRUE(stream.eof());
    stream.clear();
    stream.seekg(50);
    EXPECT_EQ(readBlock(stream, 3), pattern(3, 50));
}

TEST(StreamStateTest, IsBadAfterADeviceExceptionOnInput) {
    RecordingDevice device(pattern(100));
    device.onCall(Operation::read, 2, Reply::throwing(DeviceError("torn tape")));
    auto buffer = makeBuffer(inputOf(device), 16);
    std::istream stream(&buffer);

    EXPECT_EQ(readBlock(stream, 15), pattern(15));
    EXPECT_TRUE(stream.good());
    readBlock(stream, 10);
    EXPECT_TRUE(stream.bad());
    EXPECT_FALSE(stream.eof());

    stream.clear();
    EXPECT_EQ(readBlock(stream, 4), pattern(4, 16));
}

TEST(StreamStateTest, RethrowsTheDevicesExceptionWhereTheMaskAsksForIt) {
    RecordingDevice device;
    device.always(Operation::read, Reply::throwing(DeviceError("torn tape")));
    device.always(Operation::write, Reply::throwing(DeviceError("disk full")));
    device.always(Operation::seekoff, Reply::throwing(DeviceError("stuck head")));
    auto buffer = makeBuffer(bothOf(device), 4);
    std::iostream stream(&buffer);
    stream.exceptions(std::ios_base::badbit);

    EXPECT_THAT([&] { stream.get(); }, ThrowsMessage<DeviceError>("torn tape"));
    stream.clear();
    EXPECT_THAT(
        [&] { stream.seekg(0, std::ios_base::beg); }, ThrowsMessage<DeviceError>("stuck head"));
    stream.clear();
    EXPECT_THAT([&] { stream.write("abcde", 5); }, ThrowsMessage<DeviceError>("disk full"));
    stream.clear();
    stream << "ab";
    EXPECT_THAT([&] { stream.flush(); }, ThrowsMessage<DeviceError>("disk full"));
    EXPECT_TRUE(stream.bad());
}

TEST(StreamStateTest, IsBadAfterADeviceExceptionOnOutput) {
    RecordingDevice device;
    device.onCall(Operation::write, 1, Reply::throwing(DeviceError("disk full")));
    auto buffer = makeBuffer(outputOf(device), 4);
    std::ostream stream(&buffer);

    stream << "abcdefgh";
    EXPECT_TRUE(stream.bad());
}

TEST(StreamStateTest, IsBadAfterAnAnswerLongerThanAsked) {
    RecordingDevice device(pattern(100));
    device.onCall(Operation::read, 1, Reply::with(17));
    auto buffer = makeBuffer(inputOf(device), 16);
    std::istream stream(&buffer);

    EXPECT_EQ(stream.get(), std::char_traits<char>::eof());
    EXPECT_TRUE(stream.bad());
    EXPECT_FALSE(stream.eof());
}

TEST(StreamStateTest, IsAtItsEndAfterAShortRead) {
    RecordingDevice device(pattern(10));
    auto buffer = makeBuffer(inputOf(device), 16);
    std::istream stream(&buffer);

    EXPECT_EQ(readBlock(stream, 11), pattern(10));

    EXPECT_EQ(stream.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
    EXPECT_THAT(device.calls(), ElementsAre(readCall(16)));
}

TEST(StreamStateTest, IsBadAfterAShortWriteOrFlush) {
    RecordingDevice device;
    device.always(Operation::write, Reply::with(1));
    auto buffer = makeBuffer(outputOf(device), 4);
    std::ostream stream(&buffer);

    stream.write("ab", 2).flush();
    EXPECT_EQ(stream.rdstate(), std::ios_base::badbit);
    stream.clear();
    stream.write("cdefgh", 6);
    EXPECT_EQ(stream.rdstate(), std::ios_base::badbit);
}

TEST(StreamStateTest, FailsWhenTheDeviceCannotMove) {
    RecordingDevice device(pattern(10));
    auto buffer = makeBuffer(inputOf(device), 4);
    std::istream stream(&buffer);

    stream.seekg(11);
    EXPECT_EQ(stream.rdstate(), std::ios_base::failbit);
    EXPECT_EQ(stream.tellg(), std::streampos(std::streamoff(-1)));
}

TEST(StreamStateTest, RefusesTheMissingDirection) {
    RecordingDevice device(pattern(10));
    auto input = makeBuffer(inputOf(device), 4);
    auto output = makeBuffer(outputOf(device), 4);
    std::iostream reader(&input);
    std::iostream writer(&output);

    reader << 'x';
    EXPECT_EQ(reader.rdstate(), std::ios_base::badbit);
    EXPECT_EQ(writer.get(), std::char_traits<char>::eof());
    EXPECT_EQ(writer.rdstate(), std::ios_base::eofbit | std::ios_base::failbit);
    EXPECT_THAT(device.calls(), ::testing::IsEmpty());
}

} // namespace
} // namespace agent::orvi::streambuf::test
