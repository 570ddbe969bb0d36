#include "remoting/RemoteStreamCosts.hpp"

#include "CountingDevice.hpp"
#include "StreamCosts.hpp"
#include "remoting/KnownStream.hpp"
#include "remoting/TemporaryFolder.hpp"

#include <orvi/remoting/Endpoint.hpp>
#include <orvi/remoting/Importer.hpp>
#include <streambuf/StreamBuffer.hpp>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace agent::orvi::bench {
namespace {

using streambuf::StreamBuffer;

StreamBuffer connect(const boost::uuids::uuid& uuid) {
    return streambuf::makeDevice(uuid, streambuf::noCloseFunction());
}

/// Wait until the next one who connects has to ask the publisher's process again.
void awaitForgotten(const boost::uuids::uuid& uuid) {
    const auto patience = Samples::Clock::now() + std::chrono::seconds(20);
    while (isKnown(uuid)) {
        if (Samples::Clock::now() > patience) {
            throw std::runtime_error("A stream that nobody looks for is still known.");
        }
        std::this_thread::yield();
    }
}

double secondsToConnect(std::size_t count) {
    Samples samples(costSamples);
    for (std::size_t sample = 0; sample < costSamples; ++sample) {
        const boost::uuids::uuid uuid = anyOf(count);
        awaitForgotten(uuid);
        samples.add(timeOf([&] { const StreamBuffer buffer = connect(uuid); }));
    }
    return samples.share(0.5);
}

} // namespace

Figures costsOfRemoteStreams(std::size_t count) {
    const TemporaryFolder folder;
    ChildProcess publisher({"--serve", "streams-" + std::to_string(count), folder.path});
    Figures figures;
    figures["published"] = std::stod(publisher.readLine());

    remoting::ImporterOptions options;
    options.runtimeDirectory = folder.path;
    const remoting::Importer importer(options);
    { // What a process needs once is not what a stream needs.
        StreamBuffer first = connect(uuidOfStream(0));
        first.sgetc();
    }
    figures["connect"] = secondsToConnect(count);

    std::vector<StreamBuffer> connected;
    connected.reserve(count);
    const double importerBefore = residentBytes(getpid());
    const double publisherBefore = residentBytes(publisher.id());
    for (std::size_t stream = 0; stream < count; ++stream) {
        connected.push_back(connect(uuidOfStream(stream)));
        connected.back().sgetc(); // the publisher's process hears of it with the first call
    }
    const auto streams = static_cast<double>(count);
    figures["importer"] = (residentBytes(getpid()) - importerBefore) / streams;
    figures["publisher"] = (residentBytes(publisher.id()) - publisherBefore) / streams;
    figures["read"] = secondsToRead(count);
    return figures;
}

void serveStreams(const std::filesystem::path& runtimeDirectory, std::size_t count) {
    remoting::EndpointOptions options;
    options.runtimeDirectory = runtimeDirectory;
    const remoting::Endpoint endpoint(options);
    { // As above.
        constexpr boost::uuids::uuid other{{0x57, 0x4f}};
        const StreamBuffer first = publishCountingDevice(other, streamsBufferSize);
        const StreamBuffer second = connect(other);
    }
    std::vector<StreamBuffer> streams;
    streams.reserve(count);
    const double before = residentBytes(getpid());
    for (std::size_t stream = 0; stream < count; ++stream) {
        streams.push_back(publishCountingDevice(uuidOfStream(stream), streamsBufferSize));
    }
    const double each = (residentBytes(getpid()) - before) / static_cast<double>(count);
    announce(std::to_string(each));
    for (;;) {
        pause();
    }
}

} // namespace agent::orvi::bench
