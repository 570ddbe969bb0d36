#include "streambuf/StreamBufferImpl.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>

namespace agent::orvi::streambuf::details {

StreamBufferImpl::StreamBufferImpl(
    const boost::uuids::uuid& uuid, ReadFunction read, WriteFunction write, SeekOffFunction seekoff,
    SeekPosFunction seekpos, CloseFunction close, std::size_t bufferSize,
    cppmicroservices::ServiceRegistrationBase registration,
    frameworksetup::ORVIConfiguration configuration)
    : uuid(uuid)
    , read(std::move(read))
    , write(std::move(write))
    , seekoff(std::move(seekoff))
    , seekpos(std::move(seekpos))
    , close(std::move(close))
    , registration(std::move(registration))
    , configuration(std::move(configuration)) {
    if (this->read) {
        getBuffer.resize(bufferSize, '0');
    }
    if (this->write) {
        putBuffer.resize(bufferSize, '0');
    }
}

StreamBufferImpl::~StreamBufferImpl() {
    try {
        if (registration && !foundation::cppmicroservices::processIsEnding()) {
            registration.Unregister();
        }
    } catch (...) {
        // A framework that has stopped has withdrawn the service already. Whatever else goes wrong
        // here, nobody is left who could act on it.
    }
    configuration.reset();
    registration = nullptr;
    try {
        if (close) {
            close(uuid);
        }
    } catch (...) {
        // The owner's own function; a destructor cannot pass its error on.
    }
}

} // namespace agent::orvi::streambuf::details
