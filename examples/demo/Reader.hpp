#pragma once

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <string>

/// The component that wants the bytes. It has no access to the publisher's files: UUIDs are all it
/// knows of them.

/// Read a published device from its start to its end into a file of one's own.
///
/// @return the number of characters read.
/// @throws std::runtime_error when the device or the file fails.
std::uint64_t readAll(const boost::uuids::uuid& source, const std::string& copyPath);

/// Read `length` characters from position `offset` on of a published device into a file.
///
/// @throws std::runtime_error when the device has no such region or the file fails.
void readRegion(
    const boost::uuids::uuid& source, std::uint64_t offset, std::uint64_t length,
    const std::string& regionPath);

/// Write one's own file through a published device.
///
/// @throws std::runtime_error when the device or the file fails.
void writeAll(const boost::uuids::uuid& sink, const std::string& copyPath);
