#include "grpc/Throughput.hpp"

#include <sys/socket.h>

#include <cstddef>
#include <cstdlib>

namespace agent::orvi::remoting::details {
namespace {

/// Freed memory is kept up to twice this size.
constexpr std::size_t largestKeptBlock = std::size_t{4} << 20;

/// The system takes it twice, for what it needs itself.
constexpr int sendBufferSize = 512 << 10;

} // namespace

void keepFreedBlocks() {
    static const bool shown = [] {
        void* volatile block = std::malloc(largestKeptBlock); // volatile: or it is optimised away
        std::free(block);
        return true;
    }();
    static_cast<void>(shown);
}

void growSendBuffer(int socket) noexcept {
    ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &sendBufferSize, sizeof(sendBufferSize));
}

} // namespace agent::orvi::remoting::details
