#pragma once

#include "Exchange.hpp"

#include <streambuf/StreamBuffer.hpp>

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <vector>

namespace agent::orvi::bench {

/// A stream buffer connected to a counting device whose buffers are as large as the transfers, so
/// that each transfer is exactly one call.
class ConnectedStream final : public Exchange {
public:
    /// Connect and begin at the start of the source.
    ConnectedStream(const boost::uuids::uuid& uuid, Transfer transfer);

    void call() override;

    std::string_view received() const override { return {bytes.data(), bytes.size()}; }

    /// Means something while nobody else calls the device.
    std::size_t arrived(std::size_t calls) override;

private:
    void prime();
    std::int64_t position();

    const Transfer transfer;
    streambuf::StreamBuffer buffer;
    std::vector<char> bytes;
    std::int64_t callsBefore = 0;
};

} // namespace agent::orvi::bench
