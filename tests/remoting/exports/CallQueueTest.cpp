#include "remoting/carrier/ScriptedCarrier.hpp"

#include "exports/CallQueue.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace agent::orvi::remoting::details::test {
namespace {

/// Writes its name down when it runs, and in lower case when it is gone.
class NamedCall final : public CallQueue::Call {
public:
    NamedCall(char name, std::string& record)
        : name(name)
        , record(record) {}

    ~NamedCall() override { record += static_cast<char>(name - 'A' + 'a'); }

    NamedCall(const NamedCall&) = delete;
    NamedCall& operator=(const NamedCall&) = delete;

    void run() noexcept override { record += name; }

private:
    const char name;
    std::string& record;
};

struct CallQueueTest : testing::Test {
    void add(char name) { queue.add(std::make_shared<NamedCall>(name, record)); }

    bool runAll() {
        bool ran = false;
        while (executor->runNext()) {
            ran = true;
        }
        return ran;
    }

    std::string record;
    std::shared_ptr<ScriptedExecutor> executor = std::make_shared<ScriptedExecutor>();
    CallQueue queue{executor};
};

TEST_F(CallQueueTest, GivesTurnsInTheOrderInWhichCallsCame) {
    for (const char name : {'A', 'B', 'C'}) {
        add(name);
    }
    runAll();
    EXPECT_EQ(record, "Aa");
    queue.endTurn();
    queue.endTurn();
    runAll();
    EXPECT_EQ(record, "AaBbCc");
    queue.endTurn();
    add('D');
    runAll();
    EXPECT_EQ(record, "AaBbCcDd");
}

TEST_F(CallQueueTest, DropsWhatWaitsWhenTheExecutorIsGone) {
    add('A');
    add('B');
    add('C');
    runAll();
    executor.reset();
    EXPECT_EQ(record, "Aa");
    queue.endTurn();
    EXPECT_EQ(record, "Aabc");
    add('D');
    EXPECT_EQ(record, "Aabcd");
}

} // namespace
} // namespace agent::orvi::remoting::details::test
