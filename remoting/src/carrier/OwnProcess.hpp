#pragma once

namespace agent::orvi::remoting::details {

/// Remembers the process that an object was made in.
///
/// A forked child has a copy of the object but none of the threads that it works with, and shares
/// the connections: what it sends, or closes, it sends and closes for its parent. It must leave
/// such objects alone, even when it destroys everything on its way out.
///
/// Thread safety: thread-safe.
class OwnProcess {
public:
    OwnProcess() noexcept;

    /// Say whether this is that process.
    bool isHere() const noexcept;

private:
    unsigned int forks; // that were between the first process and this one
};

} // namespace agent::orvi::remoting::details
