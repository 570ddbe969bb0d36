#pragma once

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/uuid.hpp>

#include <cstddef>

namespace agent::orvi::bench {

/// Whether several clients may call a device at the same time.
enum class Callers { oneAtATime, several };

/// Publish a device that hands out the source, takes whatever is written, and whose position is the
/// number of calls that have read or written. Moving it starts the source again, and nothing else.
streambuf::StreamBuffer publishCountingDevice(
    const boost::uuids::uuid& uuid, std::size_t bufferSize, Callers callers = Callers::oneAtATime);

} // namespace agent::orvi::bench
