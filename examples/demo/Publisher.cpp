#include "Publisher.hpp"

namespace streambuf = agent::orvi::streambuf;

namespace {

constexpr std::size_t bufferSize = std::size_t{64} * 1024;

} // namespace

Publisher::Publisher(
    const std::string& sourcePath, const boost::uuids::uuid& sourceUuid,
    const std::string& sinkPath, const boost::uuids::uuid& sinkUuid)
    : source(sourcePath, std::ios::binary)
    , sink(sinkPath, std::ios::binary)
    , publishedSource(streambuf::makeDevice(sourceUuid, source, bufferSize))
    , publishedSink(streambuf::makeDevice(sinkUuid, sink, bufferSize)) {}
