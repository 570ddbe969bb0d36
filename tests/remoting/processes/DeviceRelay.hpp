#pragma once

#include "support/StreamBuffers.hpp"

#include <string>
#include <thread>

namespace agent::orvi::remoting::test {

/// Lets another process use a device of this one: it connects to a socket.
///
/// Serves one connection. Single-thread; the device's operations run on a thread of its own.
class DeviceRelay {
public:
    /// @param socketPath where the other process connects; removed at the end.
    DeviceRelay(streambuf::test::Operations device, std::string socketPath);
    ~DeviceRelay();

    DeviceRelay(const DeviceRelay&) = delete;
    DeviceRelay& operator=(const DeviceRelay&) = delete;

private:
    void serve() const;

    const streambuf::test::Operations device;
    const std::string path;
    int listening = -1;
    std::thread thread;
};

} // namespace agent::orvi::remoting::test
