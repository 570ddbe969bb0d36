#include "carrier/ProcessDescriptor.hpp"

#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

namespace agent::orvi::remoting::details {

int openProcess(pid_t process) noexcept {
    if (process <= 0) {
        errno = EINVAL;
        return -1;
    }
    // The C library of Debian 12 has a wrapper of this call only in a header that C++ rejects.
    return static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
}

} // namespace agent::orvi::remoting::details
