/// Sequences of stream operations: reads, writes, seeks, moves and syncs of any sizes, over devices
/// that fall short, throw, or answer with counts that are not true.
///
/// Property: after every operation, the stream buffer has delivered what the reference model of it
/// delivers, result, characters and exception, has called its device as the model has, with the
/// same arguments in the same order, and stands where the model stands.

#include "Input.hpp"
#include "Target.hpp"

#include "streambuf/ComparedBuffers.hpp"

namespace agent::orvi::fuzz {
namespace {

class InputChoices final : public streambuf::test::Choices {
public:
    explicit InputChoices(Input& input)
        : input(input) {}

    std::uint64_t number() override { return input.number(); }

    std::size_t below(std::size_t limit) override { return input.below(limit); }

private:
    Input& input;
};

} // namespace
} // namespace agent::orvi::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace agent::orvi::fuzz;
    Input input(bytes, size);
    InputChoices choices(input);
    const std::size_t bufferSize =
        input.oneOf<std::size_t>({0, 1, 2, 3, 5, 8, 15, 16, 17, 64, 100, 4096});
    agent::orvi::streambuf::test::ComparedBuffers buffers(choices, bufferSize);
    while (!input.empty()) {
        buffers.step(choices);
        require(buffers.failure.empty(), buffers.failure);
    }
    buffers.finish();
    require(buffers.failure.empty(), buffers.failure);
    return 0;
}
