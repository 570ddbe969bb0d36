#include "connect/RemoteOperations.hpp"

#include "payload/PayloadAdapters.hpp"
#include "payload/SeekCodes.hpp"

#include <future>
#include <optional>
#include <utility>

namespace agent::orvi::streambuf::details {
namespace {

template <class Answer, class... Arguments>
Answer call(core::Invokable& service, const char* method, Arguments&&... arguments) {
    auto promise = std::make_shared<std::promise<Answer>>();
    std::future<Answer> answer = promise->get_future();
    // The handler must be the promise's only owner while this thread waits: when it is dropped
    // unused, the wait ends with a broken promise.
    service.invoke(
        std::nullopt, method, core::promiseCompletingHandler<Answer>(std::move(promise)),
        core::GenericPayload::fromValues(std::forward<Arguments>(arguments)...), false);
    return answer.get();
}

} // namespace

ReadFunction remoteRead(std::shared_ptr<core::Invokable> service) {
    return [service = std::move(service)](std::int64_t count) {
        return call<std::string>(*service, "read", count);
    };
}

WriteFunction remoteWrite(std::shared_ptr<core::Invokable> service) {
    return [service = std::move(service)](const std::string& data) {
        return call<std::int64_t>(*service, "write", data);
    };
}

SeekOffFunction remoteSeekOff(std::shared_ptr<core::Invokable> service) {
    return [service = std::move(service)](
               std::int64_t offset, int direction, int mode) -> std::streampos {
        return call<std::int64_t>(
            *service, "seekoff", offset, encodeDirection(direction), encodeMode(mode));
    };
}

SeekPosFunction remoteSeekPos(std::shared_ptr<core::Invokable> service) {
    return [service = std::move(service)](std::streampos position, int mode) -> std::streampos {
        return call<std::int64_t>(*service, "seekpos", std::int64_t{position}, encodeMode(mode));
    };
}

} // namespace agent::orvi::streambuf::details
