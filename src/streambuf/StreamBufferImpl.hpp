#pragma once

#include "streambuf/StreamBuffer.hpp"

#include <orvi/frameworksetup/ORVIConfiguration.hpp>

#include <cppmicroservices/ServiceRegistrationBase.h>

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace agent::orvi::streambuf::details {

/// Everything a `StreamBuffer` stands on: the device's operations, the two buffers and, at the
/// publisher, the publication.
///
/// Owned by exactly one `StreamBuffer`. Destroying it ends the publication or the connection; the
/// destructor drops every exception on the way. The buffer size is the length of the buffers, and
/// an operation is absent when its callable is empty; neither is stored twice.
///
/// Thread safety: single-thread.
struct StreamBufferImpl {
    /// Take over the operations, the registration and the configuration, and make a buffer for
    /// each direction that the device has.
    ///
    /// @throws std::length_error, std::bad_alloc when a buffer of `bufferSize` cannot be made.
    StreamBufferImpl(
        const boost::uuids::uuid& uuid, ReadFunction read, WriteFunction write,
        SeekOffFunction seekoff, SeekPosFunction seekpos, CloseFunction close,
        std::size_t bufferSize, cppmicroservices::ServiceRegistrationBase registration,
        frameworksetup::ORVIConfiguration configuration);

    StreamBufferImpl(const StreamBufferImpl&) = delete;
    StreamBufferImpl& operator=(const StreamBufferImpl&) = delete;

    /// Withdraw the service, end the configuration, then call the close operation.
    ~StreamBufferImpl();

    boost::uuids::uuid uuid;
    std::string getBuffer; ///< `bufferSize` characters when the device can be read, else empty.
    std::string putBuffer; ///< `bufferSize` characters when the device can be written, else empty.
    ReadFunction read;
    WriteFunction write;
    SeekOffFunction seekoff;
    SeekPosFunction seekpos;
    CloseFunction close;
    cppmicroservices::ServiceRegistrationBase registration;
    frameworksetup::ORVIConfiguration configuration;
};

/// Makes stream buffers over any record, so that tests can run over unguarded operations.
struct StreamBufferAccess {
    static StreamBuffer make(std::shared_ptr<StreamBufferImpl> impl) {
        return StreamBuffer(std::move(impl));
    }

    static const std::shared_ptr<StreamBufferImpl>& record(const StreamBuffer& buffer) {
        return buffer.impl;
    }
};

} // namespace agent::orvi::streambuf::details
