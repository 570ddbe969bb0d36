#pragma once

#include "carrier/Carrier.hpp"
#include "carrier/OwnProcess.hpp"
#include "grpc/Reactor.hpp"

#include <grpcpp/server_context.h>
#include <grpcpp/support/async_stream.h>
#include <grpcpp/support/byte_buffer.h>

#include <memory>
#include <mutex>
#include <optional>

namespace agent::orvi::remoting::details {

/// A stream that a peer has opened, or may open yet.
class ServerStream final : public Stream, public std::enable_shared_from_this<ServerStream> {
public:
    using Call = grpc::ServerAsyncReaderWriter<grpc::ByteBuffer, grpc::ByteBuffer>;

    ServerStream();

    /// What a service needs to wait for a peer to open this. Until it has begun.
    grpc::ServerContext& context() noexcept { return remote->context; }

    Call& call() noexcept { return remote->call; }

    /// The peer has opened it. Lives on its own from now on until it has ended; `whenEnded` is
    /// called then.
    void begin(std::shared_ptr<StreamEvents> receiver, Executor::Task whenEnded);

    void send(OutgoingFrame frame) override;
    void receive() override;
    void finish(const StreamEnd& end) override;
    void cancel(const StreamEnd& end) override;

private:
    using Step = StreamOperation<ServerStream>;

    void messageRead(bool ok);
    void messageWritten(bool ok);
    void callFinished(bool ok);
    void peerLeft(bool ok);
    void finishIfIdle();
    void concludeIfDone();

    /// What holds the connection. It goes when the stream ends, however long a method that was
    /// called runs on and keeps this.
    struct Remote {
        grpc::ServerContext context;
        Call call{&context};
    };

    const OwnProcess process;
    grpc::ByteBuffer incoming;

    std::mutex mutex;
    std::unique_ptr<Remote> remote = std::make_unique<Remote>(); // null when it has ended
    std::shared_ptr<ServerStream> self; // while operations may be under way
    std::shared_ptr<StreamEvents> events;
    Executor::Task onEnd;
    std::optional<StreamEnd> ending;
    bool cancelled = false;
    bool finished = false;
    Step reading{*this, &ServerStream::messageRead};
    Step writing{*this, &ServerStream::messageWritten};
    Step finishing{*this, &ServerStream::callFinished};
    Step leaving{*this, &ServerStream::peerLeft}; // from the opening to the very end
};

} // namespace agent::orvi::remoting::details
