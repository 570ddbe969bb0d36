#include "ConnectedStream.hpp"

#include <ios>

namespace agent::orvi::bench {
namespace {

constexpr std::ios_base::openmode modeOf(Direction direction) {
    return direction == Direction::read ? std::ios_base::in : std::ios_base::out;
}

} // namespace

ConnectedStream::ConnectedStream(const boost::uuids::uuid& uuid, Transfer transfer)
    : transfer(transfer)
    , buffer(streambuf::makeDevice(uuid, streambuf::noCloseFunction()))
    , bytes(transfer.size, 'w') {
    buffer.pubseekpos(0, modeOf(transfer.direction));
    callsBefore = position();
    prime();
}

void ConnectedStream::call() {
    const auto size = static_cast<std::streamsize>(transfer.size);
    expectAll(
        transfer.direction == Direction::read ? buffer.sgetn(bytes.data(), size) == size
                                              : buffer.sputn(bytes.data(), size) == size);
}

std::size_t ConnectedStream::arrived(std::size_t) {
    // What prepared the buffer has been a call, too, or becomes one by this look.
    const std::int64_t calls = position() - callsBefore - 1;
    prime();
    callsBefore += calls + 1;
    return static_cast<std::size_t>(calls);
}

/// Bring the buffer into a state in which every transfer of its own size is one call of that size:
/// one character left to read, or none left to fill.
void ConnectedStream::prime() {
    const auto size = static_cast<std::streamsize>(transfer.size);
    expectAll(
        transfer.direction == Direction::read ? buffer.sgetn(bytes.data(), size - 1) == size - 1
                                              : buffer.sputn(bytes.data(), size) == size);
}

std::int64_t ConnectedStream::position() {
    return buffer.pubseekoff(0, std::ios_base::cur, modeOf(transfer.direction));
}

} // namespace agent::orvi::bench
