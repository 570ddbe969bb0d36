#include "HeapShift.hpp"

#include <random>

namespace agent::orvi::bench {

HeapShift::HeapShift() {
    static std::mt19937 random(std::random_device{}());
    for (int block = 0; block < 16; ++block) {
        blocks.push_back(std::make_unique_for_overwrite<char[]>(16 + random() % 16384));
    }
}

} // namespace agent::orvi::bench
