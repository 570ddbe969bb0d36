#include "allocations/FailingAllocation.hpp"
#include "support/Registry.hpp"
#include "support/StreamBuffers.hpp"

#include "streambuf/StreamBuffer.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <sstream>

namespace agent::orvi::streambuf {
namespace {

using orvi::test::failEachAllocation;
using orvi::test::FailingAllocation;

/// Start the framework of a fresh process while each allocation fails, and use it.
///
/// @return an exit code: 0 when it was started at last, and works.
int startAtLast() {
    std::size_t starts = 0;
    const std::size_t failures = failEachAllocation([&](FailingAllocation& failure) {
        starts += failure.allows([] { test::registryContext(); }) ? 1 : 0;
    });
    const auto uuid = test::newUuid();
    const auto stream = std::make_shared<std::istringstream>(test::pattern(100));
    const StreamBuffer device = makeDevice(uuid, std::static_pointer_cast<std::istream>(stream));
    StreamBuffer connected = makeDevice(uuid, noCloseFunction());
    std::cerr << failures << " failures, " << starts << " starts";
    return failures > 50 && starts > 0 && test::take(connected, 200) == test::pattern(100) ? 0 : 1;
}

TEST(FrameworkFaultsDeathTest, StartAtLastWhatDidNotStartForWantOfMemory) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // in a process that has no framework yet
    EXPECT_EXIT(std::exit(startAtLast()), testing::ExitedWithCode(0), " failures, 1 starts");
}

} // namespace
} // namespace agent::orvi::streambuf
