#include "remoting/faults/Transfers.hpp"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <shared_mutex>
#include <type_traits>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace agent::orvi::remoting::test {
namespace {

std::shared_mutex changing;
Transfers::Decision current; // guarded by changing
std::mutex deciding;

/// Return the first bytes of a message's parts.
std::vector<iovec> firstBytes(const msghdr& message, std::size_t count) {
    std::vector<iovec> parts;
    for (std::size_t index = 0; index < message.msg_iovlen && count > 0; ++index) {
        iovec part = message.msg_iov[index];
        part.iov_len = std::min(part.iov_len, count);
        count -= part.iov_len;
        parts.push_back(part);
    }
    return parts;
}

std::size_t sizeOf(const msghdr& message) {
    std::size_t size = 0;
    for (std::size_t index = 0; index < message.msg_iovlen; ++index) {
        size += message.msg_iov[index].iov_len;
    }
    return size;
}

/// Do what a function of the C library does, as far as it may.
template <class Message>
ssize_t transfer(const char* name, int descriptor, Message* message, int flags) {
    const auto real = reinterpret_cast<ssize_t (*)(int, Message*, int)>(::dlsym(RTLD_NEXT, name));
    const std::shared_lock lock(changing);
    const std::size_t size = sizeOf(*message);
    if (!current || size == 0) {
        return real(descriptor, message, flags);
    }
    Transfers::Share share{};
    {
        const std::lock_guard one(deciding);
        share = current(name, size);
    }
    if (share.error != 0) {
        errno = share.error;
        return -1;
    }
    std::vector<iovec> parts = firstBytes(*message, share.bytes);
    msghdr shorter = *message;
    shorter.msg_iov = parts.data();
    shorter.msg_iovlen = parts.size();
    const ssize_t transferred = real(descriptor, &shorter, flags);
    if constexpr (!std::is_const_v<Message>) {
        shorter.msg_iov = message->msg_iov;
        shorter.msg_iovlen = message->msg_iovlen;
        *message = shorter;
    }
    return transferred;
}

} // namespace

Transfers::Transfers(Decision decision) {
    const std::lock_guard lock(changing);
    current = std::move(decision);
}

Transfers::~Transfers() {
    const std::lock_guard lock(changing);
    current = nullptr;
}

} // namespace agent::orvi::remoting::test

using agent::orvi::remoting::test::transfer;

extern "C" {

__attribute__((visibility("default"))) ssize_t
sendmsg(int descriptor, const msghdr* message, int flags) {
    return transfer("sendmsg", descriptor, message, flags);
}

__attribute__((visibility("default"))) ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    return transfer("recvmsg", descriptor, message, flags);
}
}
