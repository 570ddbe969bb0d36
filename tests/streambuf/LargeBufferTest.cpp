#include "support/SparseDevice.hpp"
#include "support/StreamBuffers.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

// Buffers and counts that no 32-bit number holds. Each case takes 2 to 5 GiB of memory.

namespace agent::orvi::streambuf::test {
namespace {

using ::testing::ElementsAre;

constexpr std::int64_t gibibyte = std::int64_t{1} << 30;
constexpr std::int64_t bufferSize = 2 * gibibyte + 10;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// An address range of any length over one mebibyte of memory that shows up again and again.
class RepeatingMemory {
public:
    static constexpr std::size_t period = std::size_t{1} << 20;

    explicit RepeatingMemory(std::int64_t atLeast)
        : length((static_cast<std::size_t>(atLeast) / period + 1) * period) {
        const int file = ::memfd_create("repeating", 0);
        if (file < 0 || ::ftruncate(file, period) != 0) {
            fail("memfd");
        }
        void* const range =
            ::mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (range == MAP_FAILED) {
            fail("mmap of the range");
        }
        characters = static_cast<char*>(range);
        for (std::size_t offset = 0; offset < length; offset += period) {
            if (::mmap(
                    characters + offset, period, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
                    file, 0) == MAP_FAILED) {
                fail("mmap of a period");
            }
        }
        ::close(file);
        fillSparse(characters, period, 0);
    }

    RepeatingMemory(const RepeatingMemory&) = delete;
    RepeatingMemory& operator=(const RepeatingMemory&) = delete;

    ~RepeatingMemory() { ::munmap(characters, length); }

    /// Whether `data` equals this range from `start` on.
    bool continuesWith(std::int64_t start, const std::string& data) const {
        for (std::size_t done = 0; done < data.size(); done += period) {
            const std::size_t count = std::min(period, data.size() - done);
            const char* const expected = characters + static_cast<std::size_t>(start) % period;
            if (std::memcmp(expected, data.data() + done, count) != 0) {
                return false;
            }
        }
        return true;
    }

    char* data() const { return characters; }

private:
    std::size_t length;
    char* characters;
};

/// The lengths of the writes that a device saw, each answered as told, fully by default.
class CountingDevice {
public:
    explicit CountingDevice(const RepeatingMemory& source)
        : source(source) {}

    WriteFunction write() {
        return [this](const std::string& data) {
            const auto length = static_cast<std::int64_t>(data.size());
            lengths.push_back(length);
            EXPECT_TRUE(source.continuesWith(position, data));
            const std::int64_t answer = answers.empty() ? length : answers.front();
            if (!answers.empty()) {
                answers.erase(answers.begin());
            }
            if (answer > 0) {
                position += answer;
            }
            return answer;
        };
    }

    std::vector<std::int64_t> lengths;
    std::vector<std::int64_t> answers;
    std::int64_t position = 0;

private:
    const RepeatingMemory& source;
};

ExposedStreamBuffer makeOutput(CountingDevice& device, std::int64_t size) {
    return makeExposedBuffer({{}, device.write(), {}, {}, {}}, static_cast<std::size_t>(size));
}

TEST(LargeBufferTest, ServesABulkReadFromAGetAreaBeyondTwoGibibytes) {
    const SparseDevice device(bufferSize + 100);
    const RepeatingMemory destination(bufferSize);
    auto buffer = makeExposedBuffer(inputOf(device), bufferSize);
    EXPECT_EQ(buffer.sgetc(), static_cast<unsigned char>(sparseCharacter(0)));
    EXPECT_EQ(buffer.in_avail(), bufferSize);

    constexpr std::int64_t count = bufferSize - 5;
    EXPECT_EQ(buffer.sgetn(destination.data(), count), count);

    EXPECT_EQ(buffer.getPosition(), count);
    EXPECT_EQ(buffer.getEnd(), bufferSize);
    constexpr auto tail = static_cast<std::int64_t>(RepeatingMemory::period);
    EXPECT_EQ(
        std::string(destination.data() + count - tail, RepeatingMemory::period),
        sparseCharacters(count - tail, RepeatingMemory::period));
    EXPECT_EQ(take(buffer, 5), sparseCharacters(count, 5));
    EXPECT_EQ(take(buffer, 200), sparseCharacters(bufferSize, 100));
}

TEST(LargeBufferTest, StandsBeyondTwoGibibytesAfterABulkReadFromTheDevice) {
    const SparseDevice device(bufferSize);
    const RepeatingMemory destination(bufferSize);
    auto buffer = makeExposedBuffer(inputOf(device), bufferSize);

    constexpr std::int64_t count = bufferSize - 7;
    EXPECT_EQ(buffer.sgetn(destination.data(), count), count);

    EXPECT_EQ(buffer.getPosition(), count);
    EXPECT_EQ(buffer.getEnd(), bufferSize);
    EXPECT_EQ(buffer.sungetc(), static_cast<unsigned char>(sparseCharacter(count - 1)));
    auto target = makeExposedBuffer({}, 1);
    target = std::move(buffer);
    EXPECT_EQ(take(target, 20), sparseCharacters(count - 1, 8));
}

TEST(LargeBufferTest, FillsAndWritesAPutAreaBeyondTwoGibibytes) {
    const RepeatingMemory source(bufferSize);
    CountingDevice device(source);
    auto buffer = makeOutput(device, bufferSize);

    constexpr std::int64_t count = bufferSize - 6;
    EXPECT_EQ(buffer.sputn(source.data(), count), count);
    EXPECT_EQ(buffer.putPosition(), count);
    for (std::int64_t index = count; index < bufferSize; ++index) {
        buffer.sputc(source.data()[index]);
    }
    EXPECT_THAT(device.lengths, ElementsAre());
    EXPECT_EQ(buffer.putPosition(), bufferSize);

    // A count of two gibibytes is negative as a signed 32-bit number but covers the buffer.
    EXPECT_EQ(
        buffer.sputc(source.data()[bufferSize]),
        static_cast<unsigned char>(source.data()[bufferSize]));
    EXPECT_THAT(device.lengths, ElementsAre(bufferSize));
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_THAT(device.lengths, ElementsAre(bufferSize, 1));
}

TEST(LargeBufferTest, KeepsMoreThanTwoGibibytesPendingThroughAShortSyncAndAMove) {
    const RepeatingMemory source(bufferSize);
    CountingDevice device(source);
    auto buffer = makeOutput(device, bufferSize);
    constexpr std::int64_t count = bufferSize - 6;
    buffer.sputn(source.data(), count);
    device.answers = {3};

    EXPECT_EQ(buffer.pubsync(), -1);
    EXPECT_EQ(buffer.putPosition(), count - 3);
    EXPECT_EQ(buffer.putEnd(), bufferSize);

    auto target = makeExposedBuffer({}, 1);
    target = std::move(buffer);
    EXPECT_EQ(target.putPosition(), count - 3);
    EXPECT_EQ(target.pubsync(), 0);
    EXPECT_THAT(device.lengths, ElementsAre(count, count - 3));
}

TEST(LargeBufferTest, WritesATailWhoseLow32BitsWouldFitPastTheBuffer) {
    constexpr std::int64_t tail = 4 * gibibyte + 5;
    const RepeatingMemory source(16 + tail);
    CountingDevice device(source);
    auto buffer = makeOutput(device, 16);

    EXPECT_EQ(buffer.sputn(source.data(), 16 + tail), 16 + tail);

    EXPECT_THAT(device.lengths, ElementsAre(16, tail));
    EXPECT_EQ(buffer.putPosition(), 0);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(device.lengths.size(), 2U);
}

TEST(LargeBufferTest, NeverCountsAFlushOfFourGibibytesAsComplete) {
    constexpr std::int64_t size = 4 * gibibyte;
    const RepeatingMemory source(size);
    CountingDevice device(source);
    device.answers = {size, -1};
    auto buffer = makeOutput(device, size);
    EXPECT_EQ(buffer.sputn(source.data(), size), size);

    // Not even -1 covers it: the low 32 bits of any count are smaller.
    EXPECT_EQ(buffer.sputc('x'), std::char_traits<char>::eof());
    EXPECT_EQ(buffer.sputn("x", 1), 0);

    EXPECT_THAT(device.lengths, ElementsAre(size, size));
    EXPECT_EQ(buffer.putPosition(), size);
    buffer = makeExposedBuffer({}, 1); // assignment writes nothing, so no copy is made either
}

} // namespace
} // namespace agent::orvi::streambuf::test
