#pragma once

#include <boost/crc.hpp>

#include <cstdint>
#include <string_view>

namespace agent::orvi::remoting::test {

inline std::uint32_t checksum(std::string_view bytes) {
    boost::crc_32_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

} // namespace agent::orvi::remoting::test
