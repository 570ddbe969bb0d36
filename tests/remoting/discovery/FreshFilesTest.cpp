#include "discovery/FreshFiles.hpp"

#include "remoting/discovery/Fixture.hpp"

#include <chrono>
#include <fstream>
#include <optional>

namespace agent::orvi::remoting::details {
namespace {

using namespace std::chrono_literals;
using std::filesystem::file_time_type;

class FreshFilesTest : public test::DirectoryFixture {
protected:
    std::filesystem::path makeOldFile(const std::string& name) const {
        const auto file = directory.path() / name;
        std::ofstream(file) << "1";
        last_write_time(file, old);
        return file;
    }

    const file_time_type old = file_time_type::clock::now() - std::chrono::hours(1000);
};

TEST_F(FreshFilesTest, GetNewTimesAgainAndAgain) {
    const auto first = makeOldFile("first");
    const auto second = makeOldFile("second");
    const FreshFiles fresh(housekeeper, directory, {"missing", "first", "second"}, 1ms);
    for (int round = 0; round < 3; ++round) {
        for (const auto& file : {first, second}) {
            EXPECT_TRUE(test::eventually([&] { return last_write_time(file) > old + 999h; }));
            last_write_time(file, old);
        }
    }
}

TEST_F(FreshFilesTest, AreTheNamedOnesOnly) {
    const auto named = makeOldFile("named");
    const auto other = makeOldFile("other");
    const FreshFiles fresh(housekeeper, directory, {"named"}, 1ms);
    EXPECT_TRUE(test::eventually([&] { return last_write_time(named) > old + 999h; }));
    EXPECT_EQ(last_write_time(other), old);
}

TEST_F(FreshFilesTest, AreLeftAloneAfterTheEnd) {
    const auto file = makeOldFile("file");
    {
        const FreshFiles fresh(housekeeper, directory, {"file"}, 1ms);
        EXPECT_TRUE(test::eventually([&] { return last_write_time(file) > old + 999h; }));
    }
    last_write_time(file, old);
    drain();
    EXPECT_EQ(last_write_time(file), old);
}

TEST_F(FreshFilesTest, MayBeWithoutTheirDirectoryForAWhile) {
    const FreshFiles fresh(housekeeper, directory, {"file"}, 1ms);
    std::filesystem::remove_all(directory.path());
    drain();
    directory.make();
    const auto file = makeOldFile("file");
    EXPECT_TRUE(test::eventually([&] { return last_write_time(file) > old + 999h; }));
}

} // namespace
} // namespace agent::orvi::remoting::details
