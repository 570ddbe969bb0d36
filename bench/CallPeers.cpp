#include "CallPeers.hpp"

#include "MemoryDevice.hpp"
#include "connect/RemoteOperations.hpp"

#include <foundation/cppmicroservices/getFramework.hpp>
#include <orvi/core/Invokable.hpp>

#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <future>

namespace agent::orvi::bench {
namespace {

using core::GenericPayload;

constexpr boost::uuids::uuid published{{0xca, 0x11}};

/// Read the source round and round.
streambuf::ReadFunction endlessRead() {
    return [position = std::size_t{0}](std::int64_t count) mutable {
        std::string result(source(), position, static_cast<std::size_t>(count));
        position = (position + result.size()) % sourceSize;
        return result;
    };
}

} // namespace

Floor::Floor() {
    methods["read"] = [read = endlessRead()](const GenericPayload& arguments) {
        return GenericPayload::fromValues(read(arguments.peek<std::int64_t>(0)));
    };
}

std::string Floor::read(std::int64_t count) const {
    std::promise<std::string> promise;
    std::future<std::string> answer = promise.get_future();
    const auto& method = methods.at("read");
    promise.set_value(method(GenericPayload::fromValues(count)).take<std::string>(0));
    return answer.get();
}

RemoteRead::RemoteRead()
    : publication(streambuf::makeDevice(
          published, endlessRead(), streambuf::noWriteFunction(), streambuf::noSeekOffFunction(),
          streambuf::noSeekPosFunction(), bufferSize)) {
    auto context = foundation::cppmicroservices::getFramework()->GetBundleContext();
    const auto references = context.GetServiceReferences<core::Invokable>(
        "(orvi.servicename=orviStreambuf_" + boost::uuids::to_string(published) + ")");
    remoteRead = streambuf::details::remoteRead(context.GetService(references.at(0)));
}

} // namespace agent::orvi::bench
