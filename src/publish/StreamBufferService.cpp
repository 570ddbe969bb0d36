#include "publish/StreamBufferService.hpp"

namespace agent::orvi::streambuf {

StreamBufferService::StreamBufferService(std::string name, core::APIVersion version)
    : builder(name, version)
    , name(std::move(name)) {}

StreamBufferService::~StreamBufferService() = default;

std::vector<core::ServiceInterface> StreamBufferService::getServiceInterfaces() {
    return {builder.build()};
}

void StreamBufferService::addMetadata(std::string key, std::string value) {
    builder.addMetadata(std::move(key), std::move(value));
}

} // namespace agent::orvi::streambuf
