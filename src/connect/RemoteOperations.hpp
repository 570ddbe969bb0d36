#pragma once

#include "streambuf/StreamBuffer.hpp"

#include <orvi/core/Invokable.hpp>

#include <memory>

/// Device operations that run at the publisher: each is one blocking call of a method of `service`,
/// without a time limit.
///
/// They throw what the publisher's side reports, unchanged, and `std::future_error` (broken
/// promise) when the answer was unfit or the call was dropped unanswered. Each keeps the service
/// object alive and nothing else; calls are independent of each other.
///
/// Thread safety: thread-safe.
namespace agent::orvi::streambuf::details {

ReadFunction remoteRead(std::shared_ptr<core::Invokable> service);
WriteFunction remoteWrite(std::shared_ptr<core::Invokable> service);
SeekOffFunction remoteSeekOff(std::shared_ptr<core::Invokable> service);
SeekPosFunction remoteSeekPos(std::shared_ptr<core::Invokable> service);

} // namespace agent::orvi::streambuf::details
