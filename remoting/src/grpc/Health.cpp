#include "grpc/Health.hpp"

#include "carrier/AwaitMemory.hpp"
#include "wire/EncodedFields.hpp"

#include <google/protobuf/io/coded_stream.h>
#include <grpcpp/support/proto_buffer_reader.h>
#include <grpcpp/support/slice.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace agent::orvi::remoting::details {
namespace {

constexpr std::size_t maximumCalls = 256;
constexpr std::uint32_t maximumNameSize = 1024;

// grpc.health.v1: a request has the service's name as field 1, a response its status as field 1.
constexpr std::uint32_t nameTag = 1 << 3 | 2;
constexpr char serving[] = {1 << 3, 1};
constexpr char unknownService[] = {1 << 3, 3};

/// Return the name that a request asks for, nothing when the request is malformed.
std::optional<std::string> requestedName(grpc::ByteBuffer& request) {
    grpc::ProtoBufferReader reader(&request);
    google::protobuf::io::CodedInputStream input(&reader);
    std::string name;
    std::uint32_t size = 0;
    for (std::uint32_t tag = input.ReadTag(); tag != 0; tag = input.ReadTag()) {
        const bool understood = tag == nameTag
                                    ? input.ReadVarint32(&size) && size <= maximumNameSize &&
                                          input.ReadString(&name, static_cast<int>(size))
                                    : skipField(input, tag);
        if (!understood) {
            return std::nullopt;
        }
    }
    if (!input.ConsumedEntireMessage()) {
        return std::nullopt;
    }
    return name;
}

bool isKnown(const std::string& name) {
    return name.empty() || name == "orvi.remoting.v1.Streams";
}

grpc::ByteBuffer response(const char (&bytes)[2]) {
    const grpc::Slice slice(bytes, sizeof bytes);
    return {&slice, 1};
}

} // namespace

/// One call, from before it comes until it has ended.
class HealthService::Call final {
public:
    explicit Call(HealthService& owner)
        : owner(owner) {
        owner.callBegun();
        try {
            context.AsyncNotifyWhenDone(leaving.tag());
            owner.service.RequestCall(
                &context, &call, &owner.queue, &owner.notifications, accepting.tag());
        } catch (...) {
            owner.callEnded();
            throw;
        }
    }

private:
    using Step = StreamOperation<Call>;

    void accepted(bool ok) {
        if (!ok) {
            end(); // the server shuts down
            return;
        }
        leaving.underWay = true;
        bool full = false;
        {
            const std::lock_guard lock(owner.mutex);
            full = owner.calls > maximumCalls;
        }
        awaitMemoryFor([this] { new Call(owner); }); // deletes itself
        const std::string prefix = "/grpc.health.v1.Health/";
        watching = context.method() == prefix + "Watch";
        if (full) {
            finish({grpc::StatusCode::RESOURCE_EXHAUSTED, "There are too many health checks."});
        } else if (watching || context.method() == prefix + "Check") {
            reading.underWay = true;
            call.Read(&message, reading.tag());
        } else {
            finish({grpc::StatusCode::UNIMPLEMENTED, "The endpoint has no such method."});
        }
    }

    void requestRead(bool ok) {
        reading.underWay = false;
        if (!ok) {
            finish(grpc::Status::OK); // there is none, or the client has gone
            return;
        }
        const std::optional<std::string> name = requestedName(message);
        if (!name) {
            finish({grpc::StatusCode::INVALID_ARGUMENT, "The request is malformed."});
        } else if (watching) {
            writing.underWay = true;
            call.Write(response(isKnown(*name) ? serving : unknownService), writing.tag());
        } else if (isKnown(*name)) {
            finishing.underWay = true;
            call.WriteAndFinish(
                response(serving), grpc::WriteOptions(), grpc::Status::OK, finishing.tag());
        } else {
            finish({grpc::StatusCode::NOT_FOUND, "The endpoint has no such service."});
        }
    }

    /// A watcher has been told. It hears no more: what is served here is served until the end.
    void responseWritten(bool ok) {
        writing.underWay = false;
        if (!ok || !leaving.underWay) {
            finish(grpc::Status::CANCELLED);
        }
    }

    void callFinished(bool) {
        finishing.underWay = false;
        finished = true;
        if (!leaving.underWay) {
            end();
        }
    }

    /// The call is over, or the client has cancelled it or is gone. A watcher that only has no more
    /// to say is still there.
    void clientLeft(bool) {
        leaving.underWay = false;
        if (reading.underWay || writing.underWay || finishing.underWay) {
            return;
        }
        if (finished) {
            end();
        } else {
            finish(grpc::Status::CANCELLED);
        }
    }

    void finish(const grpc::Status& status) {
        finishing.underWay = true;
        call.Finish(status, finishing.tag());
    }

    void end() {
        HealthService& survivor = owner;
        delete this;
        survivor.callEnded();
    }

    HealthService& owner;
    grpc::GenericServerContext context;
    grpc::GenericServerAsyncReaderWriter call{&context};
    grpc::ByteBuffer message;
    bool watching = false;
    bool finished = false;
    Step accepting{*this, &Call::accepted};
    Step reading{*this, &Call::requestRead};
    Step writing{*this, &Call::responseWritten};
    Step finishing{*this, &Call::callFinished};
    Step leaving{*this, &Call::clientLeft}; // from the acceptance to the very end
};

HealthService::HealthService(
    grpc::AsyncGenericService& service, grpc::CompletionQueue& queue,
    grpc::ServerCompletionQueue& notifications)
    : service(service)
    , queue(queue)
    , notifications(notifications) {
    new Call(*this); // deletes itself
}

void HealthService::awaitEnd() {
    std::unique_lock lock(mutex);
    noCalls.wait(lock, [this] { return calls == 0; });
}

void HealthService::callBegun() {
    const std::lock_guard lock(mutex);
    ++calls;
}

void HealthService::callEnded() {
    const std::lock_guard lock(mutex);
    --calls;
    noCalls.notify_all();
}

} // namespace agent::orvi::remoting::details
