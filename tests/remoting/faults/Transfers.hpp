#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace agent::orvi::remoting::test {

/// Decides what becomes of each message that this process sends or receives over a socket, on any
/// thread, while this lives. There may be one at a time.
///
/// Link Transfers.cpp, which stands before the C library's functions.
class Transfers {
public:
    /// What a call may do: transfer so many bytes, or fail with an errno.
    struct Share {
        std::size_t bytes;
        int error;
    };

    /// Is told the name of the function and how many bytes it is asked to transfer. Never called
    /// by two threads at the same time.
    using Decision = std::function<Share(std::string_view function, std::size_t size)>;

    explicit Transfers(Decision decision);
    ~Transfers();

    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;
};

} // namespace agent::orvi::remoting::test
