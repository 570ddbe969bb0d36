#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>

namespace agent::orvi::remoting::test {

/// Lets one system call fail that the library makes itself; those of other libraries are left
/// alone.
///
/// Link FailingCall.cpp, which stands before the C library's functions.
///
/// Thread safety: single-thread; an operation of another thread arms and disarms it there. Only
/// what is armed everywhere is used by several threads.
class FailingCall {
public:
    /// @param number which call fails: 1 is the first.
    /// @param error what it fails with, as errno.
    /// @param function only calls of this function count; all when it is empty.
    FailingCall(std::size_t number, int error, std::string function = {})
        : number(number)
        , errorNumber(error)
        , function(std::move(function)) {}

    ~FailingCall() { disarmEverywhere(); }

    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

    /// From now on calls of this thread count.
    void arm();

    /// From now on they do not. To be called on the same thread.
    void disarm();

    /// From now on calls of all threads count, those of threads to come included.
    void armEverywhere();

    /// From now on they do not.
    void disarmEverywhere();

    /// Say whether there was such a call, so that it has failed.
    bool happened() const noexcept { return !failed.empty(); }

    /// Return the function that has failed.
    const std::string& where() const noexcept { return failed; }

    int error() const noexcept { return errorNumber; }

    /// Say whether a call of this function is to fail now. For what stands before it.
    bool fails(const char* called);

private:
    std::size_t number;
    int errorNumber;
    std::string function;
    std::string failed;
};

/// Make an attempt with the first call failing, with the second, ... until there is none left to
/// fail.
///
/// @return how many calls have failed.
template <class Attempt>
std::size_t failEachCall(int error, const std::string& function, const Attempt& attempt) {
    constexpr std::size_t tooMany = 1000;
    for (std::size_t number = 1; number < tooMany; ++number) {
        FailingCall failure(number, error, function);
        attempt(failure);
        if (!failure.happened()) {
            return number - 1;
        }
    }
    throw std::runtime_error("The operation makes system calls without an end.");
}

} // namespace agent::orvi::remoting::test
