#pragma once

#include <stdexcept>

namespace agent::orvi::streambuf::test {

/// What a failing device throws: nothing else in the program does.
class DeviceError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace agent::orvi::streambuf::test
