#include "remoting/processes/ProcessTest.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

namespace agent::orvi::remoting::test {
namespace {

class ManyStreams : public ProcessTest {
protected:
    void open(const std::string& settings = "") {
        publisher.ask("open-endpoint" + where() + settings);
        importer.emplace(importing());
    }

    std::optional<Importer> importer;
};

/// What both processes have.
struct Figures {
    ProcessFigures here;
    ProcessFigures there;
};

TEST_F(ManyStreams, LeaveNothingBehindWhenTheyComeAndGo) {
    constexpr int warmUp = sanitized ? 50 : 200;
    constexpr int rounds = sanitized ? 150 : 1000;
    constexpr std::int64_t memoryOfAPage = 4096;
    open();
    const auto round = [&] {
        const auto uuid = publish(publisher, "device", "kind=memory size=1000 buffer=64");
        {
            StreamBuffer buffer = connect(uuid);
            ASSERT_EQ(take(buffer, 100), pattern(100));
        }
        publisher.ask("withdraw name=device");
    };
    const auto figures = [&] { return Figures{figuresOf(::getpid()), figuresOf(publisher.id())}; };
    for (int number = 0; number < warmUp; ++number) {
        round();
    }
    const Figures before = figures();
    for (int number = warmUp; number < rounds; ++number) {
        round();
    }
    // A pool may still have had a thread to go to its limit.
    constexpr std::ptrdiff_t poolGrowth = 4;
    const auto backAtTheStart = [&] {
        const Figures now = figures();
        return now.here.descriptors <= before.here.descriptors &&
               now.there.descriptors <= before.there.descriptors &&
               now.here.threads <= before.here.threads + poolGrowth &&
               now.there.threads <= before.there.threads + poolGrowth;
    };
    EXPECT_TRUE(eventually(backAtTheStart));
    const Figures after = figures();
    std::cout << "here: " << before.here << "; " << after.here << "\nthere: " << before.there
              << "; " << after.there << std::endl;
    if (!sanitized) { // which keep what has been freed
        constexpr std::int64_t growth = (rounds - warmUp) * memoryOfAPage / 8;
        EXPECT_LT(after.here.memory - before.here.memory, growth);
        EXPECT_LT(after.there.memory - before.there.memory, growth);
    }
}

TEST_F(ManyStreams, AreConnectedWithFewThreads) {
    constexpr std::size_t count = sanitized ? 200 : 1000;
    constexpr std::ptrdiff_t fewThreads = 32;
    open();
    const auto uuid = publish(publisher, "device", "kind=memory size=100 buffer=1");
    std::vector<StreamBuffer> buffers;
    for (std::size_t number = 0; number < count; ++number) {
        buffers.push_back(connect(uuid));
        ASSERT_EQ(buffers.back().pubseekpos(0, std::ios_base::in), std::streampos(0));
    }
    constexpr std::size_t active = 4;
    std::vector<std::unique_ptr<Background<void>>> users;
    for (std::size_t user = 0; user < active; ++user) {
        users.push_back(std::make_unique<Background<void>>([&, user] {
            for (std::size_t number = user; number < count; number += active) {
                EXPECT_EQ(buffers[number].pubseekpos(7, std::ios_base::in), std::streampos(7));
            }
        }));
    }
    for (const auto& user : users) {
        user->get();
    }
    const ProcessFigures here = figuresOf(::getpid());
    const ProcessFigures there = figuresOf(publisher.id());
    std::cout << count << " streams: here " << here << "; there " << there << std::endl;
    EXPECT_LT(here.threads, fewThreads);
    EXPECT_LT(there.threads, fewThreads);
    EXPECT_LT(here.descriptors, 64) << "streams share a connection";
    EXPECT_LT(there.descriptors, 64);
}

TEST_F(ManyStreams, GoOnBesideBlockedOnesAsLongAsThereAreThreads) {
    open(" threads=4");
    std::vector<StreamBuffer> buffers;
    std::vector<std::unique_ptr<Background<std::string>>> readers;
    for (int number = 0; number < 3; ++number) {
        const std::string name = "blocked" + std::to_string(number);
        buffers.push_back(connect(publish(publisher, name, "kind=memory size=10")));
    }
    for (int number = 0; number < 3; ++number) {
        const std::string name = " name=blocked" + std::to_string(number);
        publisher.ask("stop-next operation=read point=entry" + name);
        readers.push_back(std::make_unique<Background<std::string>>(
            [&buffer = buffers[static_cast<std::size_t>(number)]] { return take(buffer, 10); }));
        publisher.ask("await-stopped" + name);
    }
    StreamBuffer other = connect(publish(publisher, "other", "kind=memory size=100"));
    EXPECT_EQ(take(other, 100), pattern(100));
    for (int number = 0; number < 3; ++number) {
        publisher.ask("release name=blocked" + std::to_string(number));
        EXPECT_EQ(readers[static_cast<std::size_t>(number)]->get(), pattern(10));
    }
}

TEST_F(ManyStreams, ThatWaitForOneDeviceTakeNoThread) {
    constexpr std::size_t clients = 10;
    open(" threads=3 calls=" + std::to_string(clients + 1));
    const auto blocked = publish(publisher, "blocked", "kind=memory size=1000 buffer=1");
    StreamBuffer held = connect(publish(publisher, "held", "kind=memory size=100"));
    StreamBuffer other = connect(publish(publisher, "other", "kind=memory size=100"));
    std::vector<StreamBuffer> buffers;
    for (std::size_t number = 0; number < clients; ++number) {
        buffers.push_back(connect(blocked));
    }
    publisher.ask("stop-next operation=read point=entry name=blocked");
    std::vector<std::unique_ptr<Background<int>>> readers;
    for (StreamBuffer& buffer : buffers) {
        readers.push_back(std::make_unique<Background<int>>(
            [&buffer] { return insist([&] { return buffer.sgetc(); }); }));
    }
    publisher.ask("await-stopped name=blocked");
    publisher.ask("stop-next operation=read point=entry name=held");
    Background holding([&] { return take(held, 100); });
    publisher.ask("await-stopped name=held");
    // When there is no room for a call beside the one that is held, all readers have come.
    EXPECT_TRUE(eventually(
        [&] { return errorOf([&] { other.pubseekpos(0, std::ios_base::in); }) != "no error"; }));
    publisher.ask("release name=held");
    EXPECT_EQ(holding.get(), pattern(100));
    EXPECT_EQ(take(other, 100), pattern(100)) << "while all of them wait";
    publisher.ask("release name=blocked");
    for (const auto& reader : readers) {
        EXPECT_NE(reader->get(), std::char_traits<char>::eof());
    }
    EXPECT_EQ(publisher.ask("overlap name=blocked"), "1");
}

} // namespace
} // namespace agent::orvi::remoting::test
