#pragma once

#include <gtest/gtest.h>

#include <future>
#include <system_error>

namespace agent::orvi::streambuf::test {

/// Return the code of the `std::future_error` that `function` throws; that it throws none is a
/// failure of the test.
template <class Function>
std::error_code futureErrorOf(Function function) {
    try {
        function();
    } catch (const std::future_error& error) {
        return error.code();
    }
    ADD_FAILURE() << "no std::future_error";
    return {};
}

} // namespace agent::orvi::streambuf::test
