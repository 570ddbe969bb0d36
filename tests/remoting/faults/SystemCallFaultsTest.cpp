#include "remoting/faults/FailingCall.hpp"

#include "discovery/HangUpWatch.hpp"
#include "discovery/LocalAddress.hpp"
#include "discovery/LocalPeers.hpp"
#include "discovery/ProcessWatch.hpp"
#include "discovery/TargetPeers.hpp"
#include "discovery/TcpListener.hpp"
#include "grpc/CertificateFiles.hpp"
#include "remoting/discovery/Fixture.hpp"
#include "remoting/discovery/Sockets.hpp"
#include "remoting/safety/Certificates.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

using namespace details;

/// Run something while a call may fail.
///
/// @return what it throws, null when nothing. Anything but an error of the system whose text says
///         what has failed fails the test.
std::exception_ptr attempt(FailingCall& failure, const std::function<void()>& operation) {
    std::exception_ptr error;
    failure.arm();
    try {
        operation();
    } catch (...) {
        error = std::current_exception();
    }
    failure.disarm();
    if (error) {
        try {
            std::rethrow_exception(error);
        } catch (const std::system_error& thrown) {
            EXPECT_EQ(thrown.code().value(), failure.error()) << failure.where();
            const std::string reason =
                std::error_code(failure.error(), std::generic_category()).message();
            EXPECT_GT(std::string(thrown.what()).size(), reason.size() + 2) << thrown.what();
        } catch (const std::exception& thrown) {
            ADD_FAILURE() << failure.where() << ": " << thrown.what();
        }
    }
    return error;
}

class SystemCallFaults : public DirectoryFixture, public testing::WithParamInterface<int> {
protected:
    // What a housekeeper makes with its first task is there before anything fails.
    SystemCallFaults() { listen().reset(); }

    std::unique_ptr<LocalListener> listen() {
        return std::make_unique<LocalListener>(
            housekeeper, directory, "own", [this](int descriptor) {
                const Descriptor accepted(descriptor);
                accepts.add(1);
            });
    }

    bool isEmpty() const { return std::filesystem::is_empty(directory.path()); }

    /// Run something on the housekeeping thread and wait for it.
    void onHousekeeper(const std::function<void()>& action) { housekeeper.runAndWait(action); }

    EventLog<int> accepts;
};

TEST_P(SystemCallFaults, ALocalListenerListensOrLeavesNothing) {
    std::size_t listened = 0;
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        std::unique_ptr<LocalListener> listener;
        const auto error = attempt(failure, [&] { listener = listen(); });
        EXPECT_EQ(static_cast<bool>(listener), !error);
        if (listener) {
            ++listened;
            const Descriptor connected(connectLocal(listener->path()).descriptor);
            EXPECT_EQ(accepts.waitFor(listened).size(), listened) << failure.where();
        }
        listener.reset();
        EXPECT_TRUE(isEmpty()) << failure.where();
        EXPECT_EQ(openDescriptors(), before) << failure.where();
        std::filesystem::remove_all(directory.path());
        directory.make();
    });
    EXPECT_GT(failures, 8U);
}

TEST_P(SystemCallFaults, ALocalListenerEndsWhateverFailsInIt) {
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        auto listener = listen();
        const auto path = listener->path();
        EXPECT_FALSE(attempt(failure, [&] { listener.reset(); }));
        EXPECT_EQ(openDescriptors(), before) << failure.where();
        EXPECT_THROW(connectLocal(path), std::system_error) << failure.where();
        std::filesystem::remove_all(directory.path());
        directory.make();
    });
    EXPECT_GT(failures, 3U);
}

TEST_P(SystemCallFaults, AConnectionIsMadeOrLeavesNothing) {
    const auto listener = listen();
    const auto before = openDescriptors(); // later the listener may have one besides
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        LocalPeer peer;
        const auto error = attempt(failure, [&] { peer = connectLocal(listener->path()); });
        EXPECT_EQ(peer.descriptor >= 0, !error) << failure.where();
        if (!error) {
            EXPECT_TRUE(isNonBlocking(peer.descriptor));
            EXPECT_TRUE(isClosedOnExec(peer.descriptor));
        }
        { const Descriptor closed(peer.descriptor); }
        EXPECT_TRUE(eventually([&] { return openDescriptors() == before; })) << failure.where();
    });
    EXPECT_GT(failures, 3U);
}

TEST_P(SystemCallFaults, ARuntimeDirectoryIsUsableOrRefused) {
    const std::filesystem::path path = parent.path / "another";
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        std::optional<RuntimeDirectory> made;
        const auto error = attempt(failure, [&] { made.emplace(path); });
        EXPECT_EQ(made.has_value(), !error);
        EXPECT_EQ(openDescriptors(), before) << failure.where();
        std::filesystem::remove_all(path);
    });
    EXPECT_GE(failures, 3U);
}

/// Sets a variable of the environment for as long as it lives.
class Variable {
public:
    Variable(const char* name, const std::string& value)
        : name(name) {
        if (const char* const set = std::getenv(name)) {
            before = set;
        }
        ::setenv(name, value.c_str(), 1);
    }

    ~Variable() { before ? ::setenv(name, before->c_str(), 1) : ::unsetenv(name); }

    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* const name;
    std::optional<std::string> before;
};

TEST_P(SystemCallFaults, AnotherDirectoryIsNotTakenForOneThatNobodyCanLookAt) {
    const Variable session("XDG_RUNTIME_DIR", parent.path.string());
    FailingCall failure(1, GetParam(), "stat");
    std::optional<RuntimeDirectory> made;
    EXPECT_TRUE(attempt(failure, [&] { made.emplace(""); }));
    EXPECT_TRUE(failure.happened());
    made.emplace("");
    EXPECT_EQ(made->path(), parent.path / "orvi");
}

TEST_P(SystemCallFaults, CertificatesAreReadOrRefused) {
    CertificateAuthority authority;
    const TlsFiles files = authority.certify("somebody");
    std::size_t taken = 0;
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        std::unique_ptr<CertificateFiles> read;
        const auto error =
            attempt(failure, [&] { read = std::make_unique<CertificateFiles>(files); });
        EXPECT_EQ(static_cast<bool>(read), !error) << failure.where();
        if (read) {
            ++taken;
            EXPECT_EQ(read->current()->privateKey, contentOf(files.privateKey));
        }
        EXPECT_EQ(openDescriptors(), before) << failure.where();
    });
    EXPECT_EQ(failures, 9U); // to open a file, to read it, and to find its end
    EXPECT_EQ(taken, GetParam() == EINTR ? 7U : 1U); // only what is interrupted is tried again
}

TEST_P(SystemCallFaults, CertificatesThatCannotBeReadAnewAreUsedAsTheyWere) {
    CertificateAuthority authority;
    CertificateFiles files(authority.certify("somebody"));
    const auto used = files.current();
    failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        std::shared_ptr<const Identification> now;
        EXPECT_FALSE(attempt(failure, [&] { now = files.current(); }));
        EXPECT_EQ(now, used) << failure.where();
    });
}

TEST_P(SystemCallFaults, ATcpListenerListensOrLeavesNothing) {
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        EventLog<std::string> peers;
        std::unique_ptr<TcpListener> listener;
        const auto error = attempt(failure, [&] {
            listener = std::make_unique<TcpListener>(
                housekeeper, "127.0.0.1:0", [&](int descriptor, const std::string& peer) {
                    const Descriptor accepted(descriptor);
                    peers.add(peer);
                });
        });
        EXPECT_EQ(static_cast<bool>(listener), !error) << failure.where();
        listener.reset();
        EXPECT_EQ(openDescriptors(), before) << failure.where();
    });
    EXPECT_GT(failures, 5U);
}

TEST_P(SystemCallFaults, AConnectionThatCouldNotBeAcceptedIsAcceptedLater) {
    const auto listener = listen();
    FailingCall failure(1, GetParam(), "accept4");
    onHousekeeper([&] { failure.arm(); });
    const Descriptor connected(connectLocal(listener->path()).descriptor);
    EXPECT_EQ(accepts.waitFor(1).size(), 1U);
    onHousekeeper([&] { failure.disarm(); });
    EXPECT_TRUE(failure.happened());
}

TEST_P(SystemCallFaults, AConnectionOfWhomNobodyCanTellIsClosed) {
    const auto listener = listen();
    FailingCall failure(1, GetParam(), "getsockopt");
    onHousekeeper([&] { failure.arm(); });
    const Descriptor connected(connectLocal(listener->path()).descriptor);
    EXPECT_EQ(readFrom(connected.get()), "end");
    onHousekeeper([&] { failure.disarm(); });
    EXPECT_TRUE(failure.happened());
    EXPECT_TRUE(accepts.all().empty());
}

/// What is looked at again takes a second each time: one error stands for all.
class PeerFaults : public SystemCallFaults {};

TEST_P(PeerFaults, PeersAreFoundAndSeenToGoWhateverFailsOnTheWay) {
    // What Asio calls for itself is not counted.
    for (const char* const function :
         {"open", "openat", "fstat", "fstatat", "mkdir", "fdopendir", "readdir", "inotify_init1",
          "inotify_add_watch", "read"}) {
        failEachCall(GetParam(), function, [&](FailingCall& failure) {
            const auto before = openDescriptors();
            EventLog<std::string> events;
            auto there = listen();
            onHousekeeper([&] { failure.arm(); });
            auto peers = std::make_unique<LocalPeers>(
                housekeeper, directory,
                [&](const auto& socket) { events.add("+" + socket.string()); },
                [&](const auto& socket) { events.add("-" + socket.string()); },
                LocalPeers::OwnEndpoints::report);
            const std::string first = there->path();
            EXPECT_TRUE(events.waitForEvent("+" + first)) << failure.where();
            auto later = listen();
            const std::string second = later->path();
            EXPECT_TRUE(events.waitForEvent("+" + second)) << failure.where();
            there.reset();
            EXPECT_TRUE(events.waitForEvent("-" + first)) << failure.where();
            onHousekeeper([&] { failure.disarm(); });
            peers.reset();
            later.reset();
            EXPECT_EQ(openDescriptors(), before) << failure.where();
        });
    }
}

TEST_P(SystemCallFaults, AllTargetsAreResolvedWhateverFailsOnTheWay) {
    const std::vector<std::string> targets{"127.0.0.1:7000", "127.0.0.2:7000", "localhost:7000"};
    const std::size_t failures = failEachCall(GetParam(), "getaddrinfo", [&](FailingCall& failure) {
        EventLog<std::string> resolved;
        EventLog<std::string> failed;
        failure.armEverywhere();
        {
            const TargetPeers peers(
                housekeeper, targets,
                {[](const TargetAddress&) {},
                 [&](const std::string& target, const auto&) { resolved.add(target); },
                 [&](const std::string& target, const auto&) { failed.add(target); }});
            for (const std::string& target : targets) {
                EXPECT_TRUE(resolved.waitForEvent(target)) << target;
            }
        }
        EXPECT_EQ(resolved.all().size(), targets.size());
        EXPECT_LE(failed.all().size(), failure.happened() ? 1U : 0U);
    });
    EXPECT_EQ(failures, 4U); // a name is looked at before it is looked up
}

TEST_P(SystemCallFaults, TheEndOfAProcessIsSeenOrItsWatchIsRefused) {
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        const pid_t child = ::fork();
        if (child == 0) {
            ::pause();
            ::_exit(0);
        }
        EventLog<int> ends;
        ProcessWatch watch;
        const auto error = attempt(
            failure, [&] { watch = watchProcess(housekeeper, child, [&] { ends.add(1); }); });
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        if (!failure.happened()) {
            EXPECT_FALSE(error);
            EXPECT_EQ(ends.waitFor(1).size(), 1U);
        }
        watch = {};
        drain();
        EXPECT_EQ(openDescriptors(), before) << failure.where();
    });
    EXPECT_GE(failures, 1U);
}

TEST_P(SystemCallFaults, TheEndOfAProcessIsSeenThoughNobodyCouldLook) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    EventLog<int> ends;
    const ProcessWatch watch = watchProcess(housekeeper, child, [&] { ends.add(1); });
    FailingCall failure(1, GetParam(), "poll");
    onHousekeeper([&] { failure.arm(); });
    ::kill(child, SIGKILL);
    EXPECT_EQ(ends.waitFor(1).size(), 1U);
    ::waitpid(child, nullptr, 0);
    onHousekeeper([&] { failure.disarm(); });
    EXPECT_TRUE(failure.happened());
}

TEST_P(SystemCallFaults, AHangUpIsSeenOrItsWatchIsRefused) {
    const auto watchPair = [&](FailingCall& failure) {
        int pair[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        const Descriptor own(pair[0]);
        Descriptor other(pair[1]);
        EventLog<int> hangUps;
        HangUpWatch watch;
        const auto error = attempt(
            failure, [&] { watch = watchHangUp(housekeeper, own.get(), [&] { hangUps.add(1); }); });
        other = {};
        EXPECT_TRUE(error || hangUps.waitFor(1).size() == 1U) << failure.where();
        watch = {};
    };
    FailingCall none(0, 0);
    watchPair(none); // what a housekeeper makes once
    const std::size_t failures = failEachCall(GetParam(), {}, [&](FailingCall& failure) {
        const auto before = openDescriptors();
        watchPair(failure);
        drain();
        EXPECT_EQ(openDescriptors(), before) << failure.where();
    });
    EXPECT_GE(failures, 2U);
}

TEST_P(SystemCallFaults, AHangUpIsSeenThoughNobodyCouldLook) {
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    const Descriptor own(pair[0]);
    Descriptor other(pair[1]);
    EventLog<int> hangUps;
    const HangUpWatch watch = watchHangUp(housekeeper, own.get(), [&] { hangUps.add(1); });
    FailingCall failure(1, GetParam(), "epoll_wait");
    onHousekeeper([&] { failure.arm(); });
    other = {};
    EXPECT_EQ(hangUps.waitFor(1).size(), 1U);
    onHousekeeper([&] { failure.disarm(); });
    EXPECT_TRUE(failure.happened());
}

const auto nameOf = [](const auto& error) { return std::string(::strerrorname_np(error.param)); };

INSTANTIATE_TEST_SUITE_P(
    Errors, SystemCallFaults, testing::Values(EIO, EMFILE, ENOMEM, EINTR), nameOf);
INSTANTIATE_TEST_SUITE_P(Errors, PeerFaults, testing::Values(EMFILE), nameOf);

} // namespace
} // namespace agent::orvi::remoting::test
