#include "commands/Commands.hpp"

#include "streams/Neighbours.hpp"
#include "streams/StreamEvents.hpp"
#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"
#include "terminal/Json.hpp"
#include "terminal/Signals.hpp"
#include "terminal/Text.hpp"

#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace agent::orvi::tool {
namespace {

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text + "  ";
}

/// One line of the table, without its end.
std::string
row(const std::string& uuid, const std::string& direction, const std::string& seekable,
    const std::string& bufferSize, const std::string& endpoint) {
    constexpr std::size_t uuidWidth = 36;
    constexpr std::size_t directionWidth = 10;
    constexpr std::size_t seekableWidth = 4;
    constexpr std::size_t bufferWidth = 10;
    return padded(uuid, uuidWidth) + padded(direction, directionWidth) +
           padded(seekable, seekableWidth) + padded(bufferSize, bufferWidth) + endpoint;
}

const std::string heading = row("UUID", "DIRECTION", "SEEK", "BUFFER", "ENDPOINT");

std::string asRow(const StreamDescription& stream) {
    return row(
        boost::uuids::to_string(stream.uuid), directionOf(stream), stream.seekable ? "yes" : "no",
        stream.bufferSize ? std::to_string(*stream.bufferSize) : "?", printable(stream.endpoint));
}

void printList(std::vector<StreamDescription> streams, const Neighbours& neighbours, bool json) {
    std::sort(streams.begin(), streams.end(), [](const auto& a, const auto& b) {
        return std::tie(a.endpoint, a.uuid) < std::tie(b.endpoint, b.uuid);
    });
    std::string text;
    if (json) {
        Json all = Json::array();
        for (const auto& stream : streams) {
            all.push_back(asJson(stream, neighbours.addressOf(stream)));
        }
        text = dump(all) + '\n';
    } else {
        text = heading + '\n';
        for (const auto& stream : streams) {
            text += asRow(stream) + '\n';
        }
    }
    writeOutput(text);
}

std::string asLine(const StreamEvents::Event& event, const Neighbours& neighbours, bool json) {
    if (!json) {
        return (event.added ? "+ " : "- ") + asRow(event.stream) + '\n';
    }
    Json line = {{"event", event.added ? "added" : "removed"}};
    line.update(asJson(event.stream, neighbours.addressOf(event.stream)));
    return dump(line) + '\n';
}

} // namespace

void list(const ListOptions& options) {
    endOnSignal();
    Neighbours neighbours(options.search);
    StreamEvents events;
    if (options.watch) {
        if (!options.json) {
            writeOutput("  " + heading + '\n');
        }
        for (;;) {
            writeOutput(asLine(events.next(), neighbours, options.json));
        }
    }
    const bool complete = neighbours.awaitAnswers();
    printList(events.present(), neighbours, options.json);
    if (!complete) {
        throw CommandFailure(ExitCode::peerLost, "the list is not complete");
    }
}

} // namespace agent::orvi::tool
