#pragma once

#include "remoting/processes/FullTransfers.hpp"

#include <array>
#include <cstdint>
#include <string>

/// How a device in one process is used by another over a socket that both have.
namespace agent::orvi::remoting::test::relay {

struct Request {
    std::int64_t operation = 0;
    std::array<std::int64_t, 3> numbers{};
    std::string data;
};

struct Reply {
    std::int64_t failed = 0;
    std::int64_t number = 0;
    std::string data;
};

inline bool sendText(int socket, const std::string& text) {
    const auto size = static_cast<std::int64_t>(text.size());
    return sendAll(socket, &size, sizeof size) && sendAll(socket, text.data(), text.size());
}

inline bool receiveText(int socket, std::string& text) {
    std::int64_t size = 0;
    if (!receiveAll(socket, &size, sizeof size)) {
        return false;
    }
    text.resize(static_cast<std::size_t>(size));
    return receiveAll(socket, text.data(), text.size());
}

inline bool send(int socket, const Request& request) {
    return sendAll(socket, &request.operation, sizeof request.operation) &&
           sendAll(socket, request.numbers.data(), sizeof request.numbers) &&
           sendText(socket, request.data);
}

inline bool receive(int socket, Request& request) {
    return receiveAll(socket, &request.operation, sizeof request.operation) &&
           receiveAll(socket, request.numbers.data(), sizeof request.numbers) &&
           receiveText(socket, request.data);
}

inline bool send(int socket, const Reply& reply) {
    return sendAll(socket, &reply.failed, sizeof reply.failed) &&
           sendAll(socket, &reply.number, sizeof reply.number) && sendText(socket, reply.data);
}

inline bool receive(int socket, Reply& reply) {
    return receiveAll(socket, &reply.failed, sizeof reply.failed) &&
           receiveAll(socket, &reply.number, sizeof reply.number) &&
           receiveText(socket, reply.data);
}

} // namespace agent::orvi::remoting::test::relay
