#include "bridge/ProcessEnd.hpp"

#include <atomic>

namespace agent::orvi::core::detail {
namespace {

std::atomic<bool> begun = false; // readable until the very end, as it has no destructor

struct Witness {
    Witness() = default;
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    ~Witness() { begun = true; }
};

} // namespace

void ProcessEnd::watch() {
    // Younger than the static objects of the registry, so that it is destroyed before them.
    static const Witness witness;
}

bool ProcessEnd::hasBegun() noexcept {
    return begun;
}

} // namespace agent::orvi::core::detail
