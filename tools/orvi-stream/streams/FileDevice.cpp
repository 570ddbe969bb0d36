#include "streams/FileDevice.hpp"

#include "terminal/Descriptors.hpp"
#include "terminal/Failure.hpp"

#include <array>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::tool {
namespace {

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

int openFile(const std::string& path, FileDevice::Access access) {
    constexpr mode_t newFile = 0666;
    // Without O_NONBLOCK, a named pipe would have to wait for its first writer here.
    const int flags = access == FileDevice::Access::read ? O_RDONLY : O_RDWR | O_CREAT;
    const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, newFile);
    if (descriptor < 0) {
        fail(errno, "cannot open " + path);
    }
    return descriptor;
}

} // namespace

std::shared_ptr<FileDevice>
FileDevice::open(const std::string& path, Access access, Answer answer) {
    const int descriptor = openFile(path, access);
    const bool seekable = ::lseek(descriptor, 0, SEEK_CUR) >= 0;
    auto device = std::make_shared<FileDevice>(descriptor, true, seekable, path, answer);

    struct stat status {};

    if (::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        fail(EISDIR, "cannot publish " + path);
    }
    if (access == Access::readAndWrite && !seekable) {
        fail(ESPIPE, "cannot publish " + path + " for writing");
    }
    return device;
}

std::shared_ptr<FileDevice> FileDevice::standardInput(Answer answer) {
    demandInput();
    return std::make_shared<FileDevice>(STDIN_FILENO, false, false, "the standard input", answer);
}

FileDevice::FileDevice(int descriptor, bool owned, bool seekable, std::string name, Answer answer)
    : descriptor(descriptor)
    , owned(owned)
    , seekable(seekable)
    , name(std::move(name))
    , answer(answer)
    , interruption(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (interruption < 0) {
        fail(errno, "cannot make an event descriptor");
    }
}

FileDevice::~FileDevice() {
    ::close(interruption);
    if (owned) {
        ::close(descriptor);
    }
}

std::string FileDevice::read(std::int64_t count) {
    std::string data;
    if (count < 0 || static_cast<std::uint64_t>(count) > data.max_size()) {
        throw std::length_error("string too long");
    }
    std::exception_ptr failure; // must not leave the string half made
    data.resize_and_overwrite(static_cast<std::size_t>(count), [&](char* space, std::size_t size) {
        try {
            return answer == Answer::asItArrives ? readSome(space, size) : readWhole(space, size);
        } catch (...) {
            failure = std::current_exception();
            return std::size_t{0};
        }
    });
    if (failure) {
        std::rethrow_exception(failure);
    }
    return data;
}

std::size_t FileDevice::readWhole(char* space, std::size_t size) {
    std::size_t got = 0;
    while (got < size) {
        std::size_t more = 0;
        try {
            more = readSome(space + got, size - got);
        } catch (const std::system_error&) {
            if (got == 0) {
                throw;
            }
        }
        if (more == 0) {
            break;
        }
        got += more;
    }
    return got;
}

/// Return 0 at the end of the data, or when interrupted.
std::size_t FileDevice::readSome(char* space, std::size_t size) {
    for (;;) {
        if (!seekable && !awaitData()) {
            return 0;
        }
        const ssize_t got = seekable ? ::pread(descriptor, space, size, inputPosition)
                                     : ::read(descriptor, space, size);
        if (got >= 0) {
            inputPosition += got;
            return static_cast<std::size_t>(got);
        }
        if (errno != EINTR && errno != EAGAIN) {
            const int error = errno;
            tellError(error);
            fail(error, "cannot read " + name);
        }
    }
}

bool FileDevice::awaitData() const {
    std::array<pollfd, 2> events{{{descriptor, POLLIN, 0}, {interruption, POLLIN, 0}}};
    while (::poll(events.data(), events.size(), -1) < 0) {
        if (errno != EINTR) {
            fail(errno, "cannot wait for " + name);
        }
    }
    return events[1].revents == 0;
}

std::int64_t FileDevice::write(const std::string& data) {
    std::size_t written = 0;
    while (written < data.size()) {
        const ssize_t count =
            ::pwrite(descriptor, data.data() + written, data.size() - written, outputPosition);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            tellError(count < 0 ? errno : ENOSPC);
            break;
        }
        written += static_cast<std::size_t>(count);
        outputPosition += count;
    }
    return static_cast<std::int64_t>(written);
}

std::streampos FileDevice::seekoff(std::int64_t offset, int direction, int mode) {
    const bool input = (mode & static_cast<int>(std::ios_base::in)) != 0;
    std::int64_t base = 0;
    if (direction == static_cast<int>(std::ios_base::cur)) {
        base = input ? inputPosition : outputPosition;
    } else if (direction == static_cast<int>(std::ios_base::end)) {
        base = ::lseek(descriptor, 0, SEEK_END); // the size of a block device as well
    }
    std::int64_t target = 0;
    if (base < 0 || __builtin_add_overflow(base, offset, &target)) {
        return std::streampos(-1);
    }
    return seekpos(target, mode);
}

std::streampos FileDevice::seekpos(std::streampos position, int mode) {
    const std::int64_t target = position;
    if (target < 0) {
        return std::streampos(-1);
    }
    if ((mode & static_cast<int>(std::ios_base::in)) != 0) {
        inputPosition = target;
    }
    if ((mode & static_cast<int>(std::ios_base::out)) != 0) {
        outputPosition = target;
    }
    return position;
}

// NOLINTNEXTLINE(readability-make-member-function-const): what it ends is this object's reading
void FileDevice::interrupt() noexcept {
    ::eventfd_write(interruption, 1);
}

void FileDevice::tellError(int error) {
    if (!std::exchange(errorTold, true)) {
        warn(name + ": " + std::generic_category().message(error));
    }
}

} // namespace agent::orvi::tool
