#pragma once

#include <streambuf/StreamBuffer.hpp>

#include <fstream>
#include <string>

/// The component that owns the files: offers one for reading and one for writing for as long as it
/// lives.
class Publisher {
public:
    /// @throws std::runtime_error when a file cannot be opened.
    Publisher(
        const std::string& sourcePath, const boost::uuids::uuid& sourceUuid,
        const std::string& sinkPath, const boost::uuids::uuid& sinkUuid);

private:
    std::ifstream source;
    std::ofstream sink;
    agent::orvi::streambuf::StreamBuffer publishedSource;
    agent::orvi::streambuf::StreamBuffer publishedSink;
};
