#pragma once

#include "grpc/Reactor.hpp"

#include <grpcpp/completion_queue.h>
#include <grpcpp/generic/async_generic_service.h>

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace agent::orvi::remoting::details {

/// Answers gRPC's standard health checks, `Check` and `Watch`, on the endpoint's own threads; every
/// other method that is not the endpoint's is refused.
///
/// gRPC's implementation would bring threads that poll beside the endpoint's own, and generated
/// messages of a public name that another library of the process may have as well.
class HealthService {
public:
    HealthService(
        grpc::AsyncGenericService& service, grpc::CompletionQueue& queue,
        grpc::ServerCompletionQueue& notifications);

    /// Wait until all calls have ended, which they do when their server shuts down.
    void awaitEnd();

private:
    class Call;

    void callBegun();
    void callEnded();

    grpc::AsyncGenericService& service;
    grpc::CompletionQueue& queue;
    grpc::ServerCompletionQueue& notifications;

    std::mutex mutex;
    std::condition_variable noCalls;
    std::size_t calls = 0;
};

} // namespace agent::orvi::remoting::details
