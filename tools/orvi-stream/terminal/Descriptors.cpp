#include "terminal/Descriptors.hpp"

#include "terminal/Failure.hpp"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace agent::orvi::tool {
namespace {

/// Somebody else may have made the descriptor non-blocking: it is shared between processes.
void awaitAfterError(int descriptor, short event, const char* what) {
    if (errno == EAGAIN) {
        pollfd ready{descriptor, event, 0};
        ::poll(&ready, 1, -1);
    } else if (errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

} // namespace

void occupyClosedDescriptors() noexcept {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        // The lowest free number is taken. A descriptor that only says where a file is can neither
        // be read nor written, and the root is always there.
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/", O_PATH | O_CLOEXEC) < 0) {
            std::perror("orvi-stream: cannot take the place of a closed standard stream");
            ::_exit(ExitCode::error);
        }
    }
}

void demandInput() {
    const int flags = ::fcntl(STDIN_FILENO, F_GETFL);
    if (flags < 0 || (flags & O_PATH) != 0) {
        throw CommandFailure(ExitCode::error, "the standard input is closed");
    }
}

void writeOutput(std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, data.data(), data.size());
        if (written >= 0) {
            data.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            throw OutputClosed();
        } else {
            awaitAfterError(STDOUT_FILENO, POLLOUT, "cannot write the standard output");
        }
    }
}

std::size_t readInput(std::span<char> space) {
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, space.data(), space.size());
        if (got >= 0) {
            return static_cast<std::size_t>(got);
        }
        awaitAfterError(STDIN_FILENO, POLLIN, "cannot read the standard input");
    }
}

} // namespace agent::orvi::tool
