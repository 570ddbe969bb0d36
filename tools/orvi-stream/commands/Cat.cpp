#include "commands/Commands.hpp"

#include "streams/Neighbours.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"
#include "terminal/Progress.hpp"
#include "terminal/Signals.hpp"

#include <algorithm>
#include <limits>
#include <vector>

namespace agent::orvi::tool {
namespace {

using streambuf::StreamBuffer;

/// A pipe at the publisher holds no more at once; asking for more would only delay what there is.
constexpr std::uint64_t sequentialTransferSize = 65536;

constexpr std::uint64_t everything = std::numeric_limits<std::uint64_t>::max();

std::optional<std::uint64_t> sizeOf(StreamBuffer& device) {
    const std::streamoff end = device.pubseekoff(0, std::ios_base::end, std::ios_base::in);
    return end < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(end));
}

/// Go to where reading begins. A device that says that it can seek need not be able to.
bool moveTo(StreamBuffer& device, std::uint64_t offset) {
    const auto position = static_cast<std::streamoff>(offset);
    return device.pubseekpos(position, std::ios_base::in) == std::streampos(position);
}

std::uint64_t bytesBetween(std::uint64_t offset, std::uint64_t size, std::uint64_t count) {
    return std::min(count, size - std::min(size, offset));
}

std::uint64_t
copy(StreamBuffer& device, std::uint64_t count, std::uint64_t transferSize, Progress& progress) {
    std::vector<char> space(std::min(count, transferSize));
    std::uint64_t copied = 0;
    while (copied < count) {
        const auto wanted = std::min<std::uint64_t>(space.size(), count - copied);
        const auto got = device.sgetn(space.data(), static_cast<std::streamsize>(wanted));
        if (got <= 0) {
            break;
        }
        writeOutput({space.data(), static_cast<std::size_t>(got)});
        copied += static_cast<std::uint64_t>(got);
        progress.advance(static_cast<std::uint64_t>(got));
    }
    return copied;
}

} // namespace

void cat(const CatOptions& options) {
    endOnSignal(&Progress::leaveLine);
    Neighbours neighbours(options.search);
    auto [stream, device] = neighbours.connect(options.uuid);
    if (!stream.readable) {
        throw CommandFailure(ExitCode::notAllowed, "the stream is not published for reading");
    }
    const std::uint64_t offset = options.offset.value_or(0);
    std::optional<std::uint64_t> size;
    if (stream.seekable) {
        size = sizeOf(device);
    }
    if ((options.offset || size) && !(stream.seekable && moveTo(device, offset))) {
        throw CommandFailure(
            ExitCode::error, "the stream does not move to offset " + std::to_string(offset));
    }
    const std::uint64_t count = options.count.value_or(everything);
    std::optional<std::uint64_t> expected;
    if (size) {
        expected = bytesBetween(offset, *size, count);
    } else if (options.count) {
        expected = count;
    }
    const std::uint64_t transferSize =
        options.transferSize.value_or(size ? defaultTransferSize : sequentialTransferSize);
    std::uint64_t copied = 0;
    {
        Progress progress(expected, true);
        copied = copy(device, count, transferSize, progress);
    }
    // A publisher reports an error of its file as the end of the data. Files also get shorter.
    if (size && copied < *expected && (size = sizeOf(device)) &&
        copied < bytesBetween(offset, *size, count)) {
        throw CommandFailure(
            ExitCode::error, "the stream ended after " + std::to_string(copied) + " bytes of " +
                                 std::to_string(bytesBetween(offset, *size, count)));
    }
}

} // namespace agent::orvi::tool
