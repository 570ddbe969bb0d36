#pragma once

#include "support/RecordingDevice.hpp"
#include "support/StreamBuffers.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <tuple>
#include <vector>

/// What every stream buffer of this library does, however its user came by it.
///
/// The suites are instantiated apart from their cases, once per program, with the kinds of stream
/// that the program has.
namespace agent::orvi::streambuf::test {

/// A stream buffer over a device, and whatever keeps it usable.
class OpenStream {
public:
    OpenStream() = default;
    OpenStream(const OpenStream&) = delete;
    OpenStream& operator=(const OpenStream&) = delete;
    virtual ~OpenStream() = default;

    virtual std::streambuf& buffer() = 0;
};

/// A way to come by a stream buffer over a device that runs in this process.
struct StreamKind {
    std::string name;
    std::function<std::unique_ptr<OpenStream>(const Operations& device, std::size_t bufferSize)>
        open;

    friend std::ostream& operator<<(std::ostream& out, const StreamKind& kind) {
        return out << kind.name;
    }
};

using ContractParameter = std::tuple<StreamKind, std::size_t>;

/// Return the parameters of the suites for these kinds of stream, with all buffer sizes.
inline auto contractParameters(const std::vector<StreamKind>& kinds) {
    return testing::Combine(
        testing::ValuesIn(kinds), testing::Values<std::size_t>(0, 1, 2, 7, 64, 4096));
}

inline std::string contractName(const testing::TestParamInfo<ContractParameter>& parameter) {
    return std::get<0>(parameter.param).name + std::to_string(std::get<1>(parameter.param));
}

class StreamContract : public testing::TestWithParam<ContractParameter> {
protected:
    std::unique_ptr<OpenStream> open(const Operations& device) const {
        return std::get<0>(GetParam()).open(device, std::get<1>(GetParam()));
    }

    /// Return the size that the buffers work with: a size of 0 works as 1.
    static std::size_t bufferSize() { return std::max<std::size_t>(std::get<1>(GetParam()), 1); }

    /// Return lengths around one and two buffers.
    static std::vector<std::size_t> lengths() {
        const std::size_t size = bufferSize();
        std::vector<std::size_t> all = {0,        1,        size - 1,     size,
                                        size + 1, 2 * size, 2 * size + 1, 5 * size + 3};
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
        return all;
    }
};

class ReadingContract : public StreamContract {};

class WritingContract : public StreamContract {};

class SeekingContract : public StreamContract {};

class MixedContract : public StreamContract {};

} // namespace agent::orvi::streambuf::test
