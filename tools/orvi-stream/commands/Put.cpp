#include "commands/Commands.hpp"

#include "streams/Neighbours.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"
#include "terminal/Progress.hpp"
#include "terminal/Signals.hpp"

#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::tool {
namespace {

using streambuf::StreamBuffer;

/// Return how much the standard input will be, where that can be known.
std::optional<std::uint64_t> inputSize() {
    struct stat status {};

    const off_t position = ::lseek(STDIN_FILENO, 0, SEEK_CUR);
    if (position < 0 || ::fstat(STDIN_FILENO, &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size < position) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(status.st_size - position);
}

/// Go to where writing begins. A device that cannot seek begins where it is, unless the user wants
/// something else.
void moveTo(ConnectedStream& stream, std::optional<std::uint64_t> offset) {
    const auto position = static_cast<std::streamoff>(offset.value_or(0));
    const bool moved =
        stream.description.seekable &&
        stream.device.pubseekpos(position, std::ios_base::out) == std::streampos(position);
    if (offset && !moved) {
        throw CommandFailure(
            ExitCode::error, "the stream does not move to offset " + std::to_string(*offset));
    }
}

/// Hand everything over at once: who feeds the input in small pieces wants them to arrive.
bool write(StreamBuffer& device, const char* data, std::size_t size) {
    const auto count = static_cast<std::streamsize>(size);
    return device.sputn(data, count) == count && device.pubsync() == 0;
}

} // namespace

void put(const PutOptions& options) {
    demandInput();
    endOnSignal(&Progress::leaveLine);
    Neighbours neighbours(options.search);
    auto stream = neighbours.connect(options.uuid);
    if (!stream.description.writable) {
        throw CommandFailure(ExitCode::notAllowed, "the stream is not published for writing");
    }
    moveTo(stream, options.offset);
    Progress progress(inputSize(), false);
    std::vector<char> space(options.transferSize);
    std::uint64_t written = 0;
    while (const std::size_t got = readInput(space)) {
        if (!write(stream.device, space.data(), got)) {
            throw CommandFailure(
                ExitCode::error, "the stream did not take the " + std::to_string(got) +
                                     " bytes that follow the first " + std::to_string(written));
        }
        written += got;
        progress.advance(got);
    }
}

} // namespace agent::orvi::tool
