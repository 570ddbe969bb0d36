#include "discovery/EndpointFiles.hpp"

#include "discovery/RuntimeDirectory.hpp"
#include "remoting/discovery/DescriptorGuard.hpp"
#include "remoting/discovery/PeerProcess.hpp"
#include "remoting/discovery/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace agent::orvi::remoting::details::endpointFiles {
namespace {

using std::filesystem::path;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST(EndpointNameTest, IsReadFromTheNamesOfItsFiles) {
    for (const std::string suffix : {".lock", ".sock", ".new"}) {
        EXPECT_EQ(nameOf("my_ID-1.4711.00ff" + suffix), "my_ID-1.4711.00ff");
    }
}

TEST(EndpointNameTest, IsNotReadFromAnythingElse) {
    for (const char* const other :
         {"", ".", "..", ".lock", "id.lock", "id.1.lock", "id.1.a", "id.1.a.txt", "id.x.a.sock",
          "id.1.x.sock", "id.1..sock", "id..a.sock", ".1.a.sock", "i d.1.a.sock", "id.1.A.sock",
          "id.1.a.lock.sock", "id.1.2.a.sock", "../id.1.a.sock", "id.1.a.sock~"}) {
        EXPECT_EQ(nameOf(other), std::nullopt) << other;
    }
}

TEST(EndpointNameTest, CarriesTheIdTheProcessAndARandomPart) {
    const std::string name = makeName("id");
    EXPECT_THAT(name, MatchesRegex("id\\." + std::to_string(::getpid()) + "\\.[0-9a-f]{16}"));
    EXPECT_NE(name, makeName("id"));
    EXPECT_EQ(endpointIdOf(name), "id");
    EXPECT_EQ(nameOf(name + ".sock"), name);
}

TEST(EndpointNameTest, HasAnIdOfAFewHarmlessCharacters) {
    EXPECT_TRUE(isEndpointId("Az09-_"));
    EXPECT_TRUE(isEndpointId(std::string(40, 'x')));
    EXPECT_FALSE(isEndpointId(std::string(41, 'x')));
    for (const char* const other : {"", ".", "a.b", "a/b", "a b", "\xc3\xa4"}) {
        EXPECT_FALSE(isEndpointId(other)) << other;
    }
}

class EndpointFilesTest : public testing::Test {
protected:
    path file(const std::string& suffix) const { return directory.path() / (name + suffix); }

    void make(const std::string& suffix) const { std::ofstream(file(suffix)) << ""; }

    test::DescriptorGuard guard;
    test::TemporaryDirectory parent;
    const RuntimeDirectory directory{parent.path / "orvi"};
    const Descriptor opened = directory.open();
    const std::string name = "id.1.a";
};

TEST_F(EndpointFilesTest, AreListedOncePerEndpoint) {
    EXPECT_THAT(namesIn(opened), IsEmpty());
    make(".lock");
    make(".sock");
    make(".new");
    std::ofstream(directory.path() / "id.2.b.lock") << "";
    std::ofstream(directory.path() / "other") << "";
    EXPECT_THAT(namesIn(opened), ElementsAre("id.1.a", "id.2.b"));
    EXPECT_THAT(namesIn(opened), ElementsAre("id.1.a", "id.2.b"));
}

TEST_F(EndpointFilesTest, WithoutALockHaveNoOwnerAndStay) {
    make(".sock");
    EXPECT_EQ(ownerOf(opened.get(), name), Owner::none);
    EXPECT_FALSE(removeIfDead(opened.get(), name));
    EXPECT_TRUE(exists(file(".sock")));
}

TEST_F(EndpointFilesTest, OfADeadOwnerAreRemovedAll) {
    make(".lock");
    make(".sock");
    make(".new");
    EXPECT_EQ(ownerOf(opened.get(), name), Owner::dead);
    EXPECT_TRUE(removeIfDead(opened.get(), name));
    EXPECT_THAT(namesIn(opened), IsEmpty());
    EXPECT_FALSE(removeIfDead(opened.get(), name));
}

TEST_F(EndpointFilesTest, OfThisProcessAreNeverRemoved) {
    make(".lock");
    {
        const OwnName own(name);
        EXPECT_TRUE(isOwn(name));
        EXPECT_EQ(ownerOf(opened.get(), name), Owner::alive);
        EXPECT_FALSE(removeIfDead(opened.get(), name));
    }
    EXPECT_FALSE(isOwn(name));
    EXPECT_EQ(ownerOf(opened.get(), name), Owner::dead);
}

TEST_F(EndpointFilesTest, OfAnotherProcessAreRemovedAfterItsEndOnly) {
    test::PeerProcess peer({"listen", directory.path(), "id"});
    const path socket = peer.readLine();
    const std::string other = nameOf(socket.filename().string()).value();
    EXPECT_EQ(ownerOf(opened.get(), other), Owner::alive);
    EXPECT_FALSE(removeIfDead(opened.get(), other));
    EXPECT_TRUE(hasSocket(opened.get(), other));
    peer.kill();
    EXPECT_EQ(ownerOf(opened.get(), other), Owner::dead);
    EXPECT_TRUE(removeIfDead(opened.get(), other));
    EXPECT_FALSE(hasSocket(opened.get(), other));
}

TEST_F(EndpointFilesTest, AreNotFollowedToOtherPlaces) {
    std::ofstream(parent.path / "elsewhere") << "";
    std::filesystem::create_symlink(parent.path / "elsewhere", file(".lock"));
    make(".sock");
    EXPECT_EQ(ownerOf(opened.get(), name), Owner::none);
    EXPECT_FALSE(removeIfDead(opened.get(), name));
    EXPECT_TRUE(exists(file(".sock")));
}

TEST_F(EndpointFilesTest, WithSomethingElseAsALockStay) {
    std::filesystem::create_directory(file(".lock"));
    make(".sock");
    EXPECT_FALSE(removeIfDead(opened.get(), name));
    EXPECT_TRUE(exists(file(".sock")));
}

TEST_F(EndpointFilesTest, IncludeNoSocketThatIsNone) {
    make(".sock");
    EXPECT_FALSE(hasSocket(opened.get(), name));
}

TEST_F(EndpointFilesTest, AreThoseWithTheSameInode) {
    make(".lock");
    const Descriptor lock(::open(file(".lock").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_TRUE(isFile(opened.get(), name + ".lock", lock.get()));
    make(".other");
    std::filesystem::rename(file(".other"), file(".lock"));
    EXPECT_FALSE(isFile(opened.get(), name + ".lock", lock.get()));
    std::filesystem::remove(file(".lock"));
    EXPECT_FALSE(isFile(opened.get(), name + ".lock", lock.get()));
}

} // namespace
} // namespace agent::orvi::remoting::details::endpointFiles
