#pragma once

#include "carrier/Carrier.hpp"
#include "carrier/OwnProcess.hpp"
#include "grpc/ClientConnection.hpp"
#include "grpc/Reactor.hpp"

#include <grpcpp/client_context.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/support/byte_buffer.h>

#include <memory>
#include <mutex>
#include <optional>

namespace agent::orvi::remoting::details {

/// A stream that this side has opened.
class ClientStream final : public Stream, public std::enable_shared_from_this<ClientStream> {
public:
    ClientStream(
        std::shared_ptr<ClientConnection> connection, std::shared_ptr<StreamEvents> events,
        StreamKind kind);

    /// Live until it has ended. Nothing is sent before the first frame.
    void begin();

    /// End instead of beginning. The event has been handled when this returns.
    void refuse(const StreamEnd& end);

    void send(OutgoingFrame frame) override;
    void receive() override;
    void finish(const StreamEnd& end) override;
    void cancel(const StreamEnd& end) override;

    /// Hand on the end that was found. Once, after the last operation.
    void conclude(const StreamEnd& end);

private:
    using Step = StreamOperation<ClientStream>;

    void messageRead(bool ok);
    void messageWritten(bool ok);
    void callFinished(bool ok);
    void finishIfIdle();
    bool isOpen() const noexcept;

    const OwnProcess process;
    const std::shared_ptr<ClientConnection> connection;
    const StreamKind kind;
    grpc::ClientContext context;
    std::unique_ptr<grpc::GenericClientAsyncReaderWriter> call;
    grpc::ByteBuffer incoming;
    grpc::Status status;

    std::mutex mutex;
    std::shared_ptr<ClientStream> self; // while operations may be under way
    std::shared_ptr<StreamEvents> events;
    std::optional<StreamEnd> ownEnd;
    bool over = false; // nothing more can be read
    Step reading{*this, &ClientStream::messageRead};
    Step writing{*this, &ClientStream::messageWritten};
    Step finishing{*this, &ClientStream::callFinished};
};

} // namespace agent::orvi::remoting::details
