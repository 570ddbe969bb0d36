#include "commands/Commands.hpp"

#include "streams/Neighbours.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Json.hpp"
#include "terminal/Signals.hpp"
#include "terminal/Text.hpp"

#include <boost/uuid/uuid_io.hpp>

namespace agent::orvi::tool {
namespace {

/// Return the size of a stream that can seek; its position is put back.
std::optional<std::uint64_t> sizeOf(ConnectedStream& stream) {
    const auto side = stream.description.readable ? std::ios_base::in : std::ios_base::out;
    if (!stream.description.seekable ||
        !(stream.description.readable || stream.description.writable)) {
        return std::nullopt;
    }
    const std::streampos position = stream.device.pubseekoff(0, std::ios_base::cur, side);
    const std::streamoff end = stream.device.pubseekoff(0, std::ios_base::end, side);
    if (position >= 0) {
        stream.device.pubseekpos(position, side);
    }
    return end < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(end));
}

std::string
asText(const StreamDescription& stream, std::optional<std::uint64_t> size, const std::string& at) {
    std::string text;
    const auto line = [&](const char* name, const std::string& value) {
        text += name + printable(value) + '\n';
    };
    line("UUID         ", boost::uuids::to_string(stream.uuid));
    line("Direction    ", directionOf(stream));
    line("Seekable     ", stream.seekable ? "yes" : "no");
    line("Buffer size  ", stream.bufferSize ? std::to_string(*stream.bufferSize) : "?");
    line(
        "Size         ",
        size ? std::to_string(*size) + " (" + readableSize(static_cast<double>(*size)) + ")"
             : "unknown");
    line("Endpoint     ", stream.endpoint);
    line("Address      ", at);
    return text;
}

} // namespace

void stat(const StatOptions& options) {
    endOnSignal();
    Neighbours neighbours(options.search);
    auto stream = neighbours.connect(options.uuid);
    const auto size = sizeOf(stream);
    const std::string address = neighbours.addressOf(stream.description);
    if (options.json) {
        auto object = asJson(stream.description, address);
        object["size"] = nullptr;
        if (size) {
            object["size"] = *size;
        }
        writeOutput(dump(object) + '\n');
    } else {
        writeOutput(asText(stream.description, size, address));
    }
}

} // namespace agent::orvi::tool
