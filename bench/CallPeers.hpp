#pragma once

#include "Exchange.hpp"

#include "payload/GenericPayload.hpp"
#include <streambuf/StreamBuffer.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>

namespace agent::orvi::bench {

/// The least that a call by name through payloads and a future can be. It has no registration, no
/// barrier at withdrawal and no error path. Thread safety: single-thread.
class Floor {
public:
    Floor();

    std::string read(std::int64_t count) const;

private:
    using Method = std::function<core::GenericPayload(const core::GenericPayload&)>;

    std::unordered_map<std::string, Method> methods;
};

/// The remote read of a connected stream buffer, without the stream buffer around it. At most one
/// may exist. Thread safety: single-thread.
class RemoteRead {
public:
    RemoteRead();

    std::string read(std::int64_t count) const { return remoteRead(count); }

private:
    streambuf::StreamBuffer publication;
    streambuf::ReadFunction remoteRead;
};

/// One of those above as an exchange.
template <class Caller>
class CallExchange final : public Exchange {
public:
    explicit CallExchange(Transfer transfer)
        : transfer(transfer) {}

    void call() override {
        last = caller.read(static_cast<std::int64_t>(transfer.size));
        expectAll(last.size() == transfer.size);
    }

    std::string_view received() const override { return last; }

private:
    const Transfer transfer;
    const Caller caller;
    std::string last;
};

} // namespace agent::orvi::bench
