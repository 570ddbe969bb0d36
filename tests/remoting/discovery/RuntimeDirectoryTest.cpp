#include "discovery/RuntimeDirectory.hpp"

#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"
#include "support/ThrowsExactly.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent::orvi::remoting::details {
namespace {

using std::filesystem::path;
using streambuf::test::throwsExactly;

/// A variable of the environment with another value for a while.
class Variable {
public:
    Variable(const char* name, const std::string& value)
        : name(name) {
        if (const char* const old = std::getenv(name)) {
            previous = old;
        }
        ::setenv(name, value.c_str(), 1);
    }

    ~Variable() {
        if (previous) {
            ::setenv(name, previous->c_str(), 1);
        } else {
            ::unsetenv(name);
        }
    }

    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* const name;
    std::optional<std::string> previous;
};

unsigned modeOf(const path& file) {
    struct stat status {};

    ::lstat(file.c_str(), &status);
    return status.st_mode & 07777;
}

class RuntimeDirectoryTest : public testing::Test {
protected:
    /// Check how a directory is refused: by an error that names it.
    void expectRefusal(const path& configured, int error, const std::string& reason) const {
        const std::string text = "Runtime directory " + configured.string() + reason + ": " +
                                 std::generic_category().message(error);
        EXPECT_THAT(
            [&] { RuntimeDirectory directory(configured); },
            throwsExactly<std::system_error>(text));
    }

    /// Return a directory that belongs to another user.
    path foreignDirectory() const {
        if (::geteuid() != 0) {
            return "/";
        }
        const path foreign = parent.path / "foreign";
        std::filesystem::create_directory(foreign);
        EXPECT_EQ(::chown(foreign.c_str(), 12345, 12345), 0);
        return foreign;
    }

    test::DescriptorGuard guard;
    test::TemporaryDirectory parent;
    const path fallback = "/tmp/orvi-" + std::to_string(::geteuid());
};

TEST_F(RuntimeDirectoryTest, MakesTheConfiguredOneForItsUserAlone) {
    const RuntimeDirectory directory(parent.path / "here");
    EXPECT_EQ(directory.path(), parent.path / "here");
    EXPECT_EQ(modeOf(parent.path / "here"), 0700U);
}

TEST_F(RuntimeDirectoryTest, MakesItForItsUserAloneWhateverTheModeMask) {
    const mode_t previous = ::umask(0);
    const RuntimeDirectory directory(parent.path / "here");
    ::umask(previous);
    EXPECT_EQ(modeOf(directory.path()), 0700U);
}

TEST_F(RuntimeDirectoryTest, TakesOneThatIsThere) {
    const path here = parent.path / "here";
    const RuntimeDirectory first(here);
    std::ofstream(here / "content") << "1";
    const RuntimeDirectory second(here.string() + "/");
    EXPECT_EQ(second.path(), here);
    EXPECT_TRUE(exists(here / "content"));
}

TEST_F(RuntimeDirectoryTest, HasAnAbsolutePathEvenIfTheConfiguredOneIsNot) {
    const path relative = std::filesystem::relative(parent.path / "here");
    EXPECT_EQ(RuntimeDirectory(relative).path(), parent.path / "here");
}

TEST_F(RuntimeDirectoryTest, IsInTheSessionsDirectoryByDefault) {
    const Variable session("XDG_RUNTIME_DIR", parent.path);
    EXPECT_EQ(RuntimeDirectory({}).path(), parent.path / "orvi");
    EXPECT_EQ(modeOf(parent.path / "orvi"), 0700U);
}

TEST_F(RuntimeDirectoryTest, IsTheUsersOwnInTmpWithoutASessionsDirectory) {
    const bool wasThere = exists(fallback);
    const std::string relative = std::filesystem::relative(parent.path);
    for (const std::string& useless :
         {std::string(), relative, (parent.path / "missing").string(),
          foreignDirectory().string()}) {
        const Variable session("XDG_RUNTIME_DIR", useless);
        EXPECT_EQ(RuntimeDirectory({}).path(), fallback) << useless;
    }
    EXPECT_EQ(modeOf(fallback), 0700U);
    if (!wasThere) {
        ::rmdir(fallback.c_str());
    }
}

TEST_F(RuntimeDirectoryTest, RefusesOneWithoutAPlaceToBe) {
    expectRefusal(parent.path / "missing" / "here", ENOENT, "");
}

TEST_F(RuntimeDirectoryTest, RefusesAFile) {
    std::ofstream(parent.path / "file") << "1";
    expectRefusal(parent.path / "file", ENOTDIR, " is no directory, or a symbolic link");
}

TEST_F(RuntimeDirectoryTest, RefusesASymbolicLinkEvenWithASlashBehindIt) {
    const path link = parent.path / "link";
    const RuntimeDirectory there(parent.path / "there");
    std::filesystem::create_symlink(there.path(), link);
    expectRefusal(link, ENOTDIR, " is no directory, or a symbolic link");
    EXPECT_THROW(RuntimeDirectory(link.string() + "/"), std::system_error);
    EXPECT_THROW(RuntimeDirectory(link.string() + "/."), std::system_error);
}

TEST_F(RuntimeDirectoryTest, RefusesOneOfAnotherUser) {
    expectRefusal(foreignDirectory(), EPERM, " belongs to another user");
}

TEST_F(RuntimeDirectoryTest, RefusesOneThatIsOpenToOthersInAnyWay) {
    const RuntimeDirectory directory(parent.path / "here");
    for (const mode_t mode : {0710U, 0701U, 0740U, 0704U, 0720U, 0702U, 0777U}) {
        ASSERT_EQ(::chmod(directory.path().c_str(), mode), 0);
        expectRefusal(directory.path(), EPERM, " is open to other users; its mode should be 0700");
        EXPECT_THROW(directory.open(), std::system_error);
    }
}

TEST_F(RuntimeDirectoryTest, OpensOnlyWhatIsThereAndMakesWhatIsNot) {
    const RuntimeDirectory directory(parent.path / "here");
    ASSERT_EQ(::rmdir(directory.path().c_str()), 0);
    EXPECT_THROW(directory.open(), std::system_error);
    const Descriptor made = directory.make();
    EXPECT_EQ(modeOf(directory.path()), 0700U);
    EXPECT_EQ(::fcntl(made.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(directory.open());
}

} // namespace
} // namespace agent::orvi::remoting::details
