#pragma once

#include <memory>
#include <vector>

namespace agent::orvi::bench {

/// Takes memory of random sizes, so that every repetition finds its buffers at another offset
/// within cache line and page and among other free blocks. A copy can cost half as much again with
/// it; luck must not choose the winner.
class HeapShift {
public:
    HeapShift();

private:
    std::vector<std::unique_ptr<char[]>> blocks;
};

} // namespace agent::orvi::bench
