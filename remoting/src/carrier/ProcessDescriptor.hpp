#pragma once

#include <sys/types.h>

namespace agent::orvi::remoting::details {

/// Open a descriptor that becomes readable when a process ends. It refers to that process for ever,
/// whatever process gets the same number later.
///
/// @return the descriptor, which the caller closes; -1 when it cannot be opened: `errno` says why.
int openProcess(pid_t process) noexcept;

} // namespace agent::orvi::remoting::details
