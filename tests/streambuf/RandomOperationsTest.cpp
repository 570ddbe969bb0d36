#include "ComparedBuffers.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

namespace agent::orvi::streambuf::test {
namespace {

std::uint64_t seedOfThisRun() {
    if (const char* const given = std::getenv("ORVI_TEST_SEED")) {
        return std::stoull(given);
    }
    return std::random_device()();
}

TEST(RandomOperationsTest, AgreeWithTheReferenceModel) {
    constexpr std::size_t sequences = 3000;
    constexpr std::size_t steps = 100;
    constexpr std::size_t bufferSizes[] = {0, 1, 2, 3, 5, 8, 15, 16, 17, 64, 100};
    const std::uint64_t seed = seedOfThisRun();
    RecordProperty("seed", std::to_string(seed));
    std::cout << "seed " << seed << "; replay with ORVI_TEST_SEED=" << seed << '\n';

    std::size_t done = 0;
    for (std::size_t sequence = 0; sequence < sequences; ++sequence) {
        RandomChoices choices(seed + sequence);
        const std::size_t bufferSize = choices.oneOf(bufferSizes);
        ComparedBuffers buffers(choices, bufferSize);
        std::size_t step = 0;
        for (; step < steps && buffers.failure.empty(); ++step) {
            buffers.step(choices);
            ++done;
        }
        if (buffers.failure.empty()) {
            buffers.finish();
        }
        ASSERT_EQ(buffers.failure, "") << "buffer size " << bufferSize << ", step " << step
                                       << "; replay with ORVI_TEST_SEED=" << seed + sequence;
    }
    EXPECT_GE(done, 200'000U);
}

} // namespace
} // namespace agent::orvi::streambuf::test
