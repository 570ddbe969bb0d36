#include "remoting/faults/FailingCall.hpp"

#include <cstdarg>
#include <mutex>
#include <type_traits>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

thread_local FailingCall* armed = nullptr;
thread_local bool deciding = false; // what is called meanwhile does not count

std::mutex everywhere;
FailingCall* armedEverywhere = nullptr; // guarded by everywhere

bool failsEverywhere(const char* name, int& error) {
    const std::lock_guard lock(everywhere);
    const bool fails = armedEverywhere != nullptr && armedEverywhere->fails(name);
    if (fails) {
        error = armedEverywhere->error();
    }
    return fails;
}

/// Say whether a call comes from this program, into which the library is linked.
bool isOwn(const void* caller) {
    Dl_info there{};
    Dl_info here{};
    return ::dladdr(caller, &there) != 0 &&
           ::dladdr(reinterpret_cast<const void*>(&failEachCall<void (*)(FailingCall&)>), &here) !=
               0 &&
           there.dli_fbase == here.dli_fbase;
}

/// Do what a function of the C library does, unless it is to fail.
template <class Result, class... Parameters>
Result passOrFail(
    const void* caller, const char* name, Result failure,
    std::type_identity_t<Parameters>... arguments) {
    if (!deciding && isOwn(caller)) {
        deciding = true;
        int error = armed != nullptr ? armed->error() : 0;
        const bool fails = armed != nullptr ? armed->fails(name) : failsEverywhere(name, error);
        deciding = false;
        if (fails) {
            errno = error;
            return failure;
        }
    }
    return reinterpret_cast<Result (*)(Parameters...)>(::dlsym(RTLD_NEXT, name))(arguments...);
}

} // namespace

void FailingCall::arm() {
    armed = this;
}

void FailingCall::disarm() {
    armed = nullptr;
}

void FailingCall::armEverywhere() {
    const std::lock_guard lock(everywhere);
    armedEverywhere = this;
}

void FailingCall::disarmEverywhere() {
    const std::lock_guard lock(everywhere);
    if (armedEverywhere == this) {
        armedEverywhere = nullptr;
    }
}

bool FailingCall::fails(const char* called) {
    if (number == 0 || (!function.empty() && function != called) || --number > 0) {
        return false;
    }
    failed = called;
    return true;
}

} // namespace agent::orvi::remoting::test

using agent::orvi::remoting::test::passOrFail;

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    return passOrFail<int, int, int, int>(
        __builtin_return_address(0), "socket", -1, domain, type, protocol);
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    return passOrFail<int, int, const sockaddr*, socklen_t>(
        __builtin_return_address(0), "bind", -1, descriptor, address, length);
}

int listen(int descriptor, int backlog) noexcept {
    return passOrFail<int, int, int>(
        __builtin_return_address(0), "listen", -1, descriptor, backlog);
}

int accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
    return passOrFail<int, int, sockaddr*, socklen_t*, int>(
        __builtin_return_address(0), "accept4", -1, descriptor, address, length, flags);
}

int connect(int descriptor, const sockaddr* address, socklen_t length) {
    return passOrFail<int, int, const sockaddr*, socklen_t>(
        __builtin_return_address(0), "connect", -1, descriptor, address, length);
}

int getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) noexcept {
    return passOrFail<int, int, int, int, void*, socklen_t*>(
        __builtin_return_address(0), "getsockopt", -1, descriptor, level, option, value, length);
}

int setsockopt(
    int descriptor, int level, int option, const void* value, socklen_t length) noexcept {
    return passOrFail<int, int, int, int, const void*, socklen_t>(
        __builtin_return_address(0), "setsockopt", -1, descriptor, level, option, value, length);
}

int getsockname(int descriptor, sockaddr* address, socklen_t* length) noexcept {
    return passOrFail<int, int, sockaddr*, socklen_t*>(
        __builtin_return_address(0), "getsockname", -1, descriptor, address, length);
}

int getpeername(int descriptor, sockaddr* address, socklen_t* length) noexcept {
    return passOrFail<int, int, sockaddr*, socklen_t*>(
        __builtin_return_address(0), "getpeername", -1, descriptor, address, length);
}

int open(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return passOrFail<int, const char*, int, mode_t>(
        __builtin_return_address(0), "open", -1, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return passOrFail<int, int, const char*, int, mode_t>(
        __builtin_return_address(0), "openat", -1, directory, path, flags, mode);
}

int fcntl(int descriptor, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* const argument = va_arg(rest, void*);
    va_end(rest);
    return passOrFail<int, int, int, void*>(
        __builtin_return_address(0), "fcntl", -1, descriptor, command, argument);
}

int fstat(int descriptor, struct stat* status) noexcept {
    return passOrFail<int, int, struct stat*>(
        __builtin_return_address(0), "fstat", -1, descriptor, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    return passOrFail<int, int, const char*, struct stat*, int>(
        __builtin_return_address(0), "fstatat", -1, directory, path, status, flags);
}

int mkdir(const char* path, mode_t mode) noexcept {
    return passOrFail<int, const char*, mode_t>(
        __builtin_return_address(0), "mkdir", -1, path, mode);
}

int fchmod(int descriptor, mode_t mode) noexcept {
    return passOrFail<int, int, mode_t>(
        __builtin_return_address(0), "fchmod", -1, descriptor, mode);
}

int fchmodat(int directory, const char* path, mode_t mode, int flags) noexcept {
    return passOrFail<int, int, const char*, mode_t, int>(
        __builtin_return_address(0), "fchmodat", -1, directory, path, mode, flags);
}

int renameat(int from, const char* name, int to, const char* newName) noexcept {
    return passOrFail<int, int, const char*, int, const char*>(
        __builtin_return_address(0), "renameat", -1, from, name, to, newName);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    return passOrFail<int, int, const char*, int>(
        __builtin_return_address(0), "unlinkat", -1, directory, path, flags);
}

DIR* fdopendir(int descriptor) {
    return passOrFail<DIR*, int>(__builtin_return_address(0), "fdopendir", nullptr, descriptor);
}

dirent* readdir(DIR* directory) {
    return passOrFail<dirent*, DIR*>(__builtin_return_address(0), "readdir", nullptr, directory);
}

int inotify_init1(int flags) noexcept {
    return passOrFail<int, int>(__builtin_return_address(0), "inotify_init1", -1, flags);
}

int inotify_add_watch(int descriptor, const char* path, std::uint32_t mask) noexcept {
    return passOrFail<int, int, const char*, std::uint32_t>(
        __builtin_return_address(0), "inotify_add_watch", -1, descriptor, path, mask);
}

int epoll_create1(int flags) noexcept {
    return passOrFail<int, int>(__builtin_return_address(0), "epoll_create1", -1, flags);
}

int epoll_ctl(int set, int operation, int descriptor, epoll_event* event) noexcept {
    // Asio does not look at what becomes of its own, which wake up its threads. They are for every
    // change of a descriptor, those of the library for one.
    const bool own = event == nullptr || (event->events & EPOLLONESHOT) != 0;
    return passOrFail<int, int, int, int, epoll_event*>(
        own ? __builtin_return_address(0) : nullptr, "epoll_ctl", -1, set, operation, descriptor,
        event);
}

int epoll_wait(int set, epoll_event* events, int most, int timeout) {
    // Asio waits for all that it has; what it misses because of an error, it asks for again.
    return passOrFail<int, int, epoll_event*, int, int>(
        most == 128 ? nullptr : __builtin_return_address(0), "epoll_wait", -1, set, events, most,
        timeout);
}

int stat(const char* path, struct stat* status) noexcept {
    return passOrFail<int, const char*, struct stat*>(
        __builtin_return_address(0), "stat", -1, path, status);
}

int poll(pollfd* descriptors, nfds_t count, int timeout) {
    return passOrFail<int, pollfd*, nfds_t, int>(
        __builtin_return_address(0), "poll", -1, descriptors, count, timeout);
}

int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** first) {
    return passOrFail<int, const char*, const char*, const addrinfo*, addrinfo**>(
        __builtin_return_address(0), "getaddrinfo", EAI_SYSTEM, host, service, hints, first);
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    return passOrFail<ssize_t, int, void*, std::size_t>(
        __builtin_return_address(0), "read", -1, descriptor, buffer, size);
}

long syscall(long number, ...) noexcept {
    va_list rest;
    va_start(rest, number);
    const long first = va_arg(rest, long);
    const long second = va_arg(rest, long);
    const long third = va_arg(rest, long);
    const long fourth = va_arg(rest, long);
    va_end(rest);
    return passOrFail<long, long, long, long, long, long>(
        __builtin_return_address(0), "syscall", -1, number, first, second, third, fourth);
}

} // extern "C"
