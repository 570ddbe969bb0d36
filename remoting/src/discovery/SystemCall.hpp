#pragma once

#include <boost/system/error_code.hpp>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace agent::orvi::remoting::details {

/// Return the result of a system call unless it is negative.
///
/// @param text makes the text of the error; it may change errno.
///
/// @throws std::system_error for what errno says.
template <class Text>
int checked(int result, Text&& text) {
    if (result < 0) {
        const int error = errno;
        throw std::system_error(error, std::generic_category(), std::forward<Text>(text)());
    }
    return result;
}

/// Throw an error of Asio's as an error of the standard library's, if there is one.
///
/// @throws std::system_error for it.
inline void check(const boost::system::error_code& error, const std::string& text) {
    if (error) {
        throw std::system_error(error.value(), std::generic_category(), text);
    }
}

} // namespace agent::orvi::remoting::details
