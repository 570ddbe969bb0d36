#pragma once

/// What long transfers need of the system to be fast.
namespace agent::orvi::remoting::details {

/// The frames of one message are collected up to here before they are sent: fewer and longer
/// transfers wake the receiver less often and need fewer updates of its window.
constexpr int bytesSentTogether = 512 << 10;

/// Let the allocator keep blocks of some megabytes for the next call when they are freed. Getting
/// them anew for every call, page by page, takes as long as moving the data.
///
/// The C library decides by the blocks that it has seen freed. It is shown one; a process that has
/// set the limits itself keeps its own.
void keepFreedBlocks();

/// Let a local socket take several frames before its reader has come to them, as far as the system
/// allows. Every time a sender has to wait, another thread is woken up to watch the socket.
void growSendBuffer(int socket) noexcept;

} // namespace agent::orvi::remoting::details
