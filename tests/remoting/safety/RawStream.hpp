#pragma once

#include "wire/Messages.hpp"

#include <grpc/compression.h>
#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/completion_queue.h>
#include <grpcpp/generic/generic_stub.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace agent::orvi::remoting::test {

namespace v1 = ::orvi::remoting::v1;

/// The importing side of one stream, which sends whatever it is told to.
///
/// Everything that waits gives up after a long time; the test fails then.
///
/// Thread safety: single-thread.
class RawStream {
public:
    /// Open a stream without sending anything on it.
    ///
    /// @param method "Control" or "Call", or the path of another service's method.
    /// @param compression of all that is sent.
    RawStream(
        const std::shared_ptr<grpc::Channel>& channel, const std::string& method,
        grpc_compression_algorithm compression = GRPC_COMPRESS_NONE);

    /// Cancel what is left.
    ~RawStream();

    RawStream(const RawStream&) = delete;
    RawStream& operator=(const RawStream&) = delete;

    /// Send bytes as one message.
    ///
    /// @return whether the stream was still open.
    bool send(const std::string& bytes);

    bool send(const v1::Frame& frame) { return send(frame.SerializeAsString()); }

    /// Send bytes if there is room for them soon.
    ///
    /// @return whether there was; nothing may be sent after that.
    bool trySend(const std::string& bytes);

    /// Send nothing any more.
    void halfClose();

    /// Wait for a message.
    ///
    /// @return its bytes, nothing when the stream has ended.
    std::optional<std::string> receiveBytes();
    std::optional<v1::Frame> receive();

    /// Receive what is still to come, and return how the stream has ended.
    grpc::Status end();

    /// End the stream at once.
    void cancel();

private:
    enum class Step { start, write, read, halfClose, finish };

    bool complete(Step step);

    static void* tagOf(Step step) { return reinterpret_cast<void*>(static_cast<long>(step) + 1); }

    grpc::ClientContext context;
    grpc::CompletionQueue queue;
    std::unique_ptr<grpc::GenericClientAsyncReaderWriter> call;
    bool ended = false;
};

/// Return a greeting of an importer; on a call stream with the number of the service.
v1::Frame greeting(std::uint64_t service = 0);

/// Return a request without arguments.
v1::Frame request(const std::string& method);

/// Return a request to read.
v1::Frame readRequest(std::int64_t count);

/// Return a request to write, with the data in the frame or announced only.
v1::Frame writeRequest(const std::string& data);
v1::Frame writeAnnouncement(std::uint64_t length);

/// Return a frame that has nothing but data.
v1::Frame dataFrame(const std::string& data);

v1::Frame want(std::uint64_t number, const std::string& filter);
v1::Frame unwant(std::uint64_t number);

} // namespace agent::orvi::remoting::test
