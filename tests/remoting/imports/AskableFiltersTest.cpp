#include "imports/AskableFilters.hpp"

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/LDAPFilter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::size_t limit = 4096;

std::string repeated(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

std::string named(int number) {
    return "(orvi.servicename=stream" + std::to_string(number) + ")";
}

std::string anyName(int count) {
    std::string filter = "(|";
    for (int number = 0; number < count; ++number) {
        filter += named(number);
    }
    return filter + ")";
}

cppmicroservices::AnyMap service(const std::string& name, const std::string& color = "red") {
    cppmicroservices::AnyMap properties(
        cppmicroservices::AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    properties["orvi.servicename"] = name;
    properties["color"] = color;
    return properties;
}

bool matchesAny(
    const std::vector<std::string>& filters, const cppmicroservices::AnyMap& properties) {
    return std::any_of(filters.begin(), filters.end(), [&](const std::string& filter) {
        return cppmicroservices::LDAPFilter(filter).Match(properties);
    });
}

TEST(AskableFiltersTest, LeaveAFilterThatIsShortEnoughAsItIs) {
    const std::string longest = "(a=" + std::string(limit - 4, 'b') + ")";
    ASSERT_EQ(longest.size(), limit);
    EXPECT_THAT(askableFilters(longest), ElementsAre(longest));
    const std::string odd = " ( | (a=b) (c=d) ) ";
    EXPECT_THAT(askableFilters(odd), ElementsAre(odd));
}

TEST(AskableFiltersTest, LeaveOutATestThatIsTooLong) {
    EXPECT_THAT(askableFilters("(a=" + std::string(limit - 3, 'b') + ")"), IsEmpty());
    EXPECT_THAT(askableFilters("(!" + anyName(500) + ")"), IsEmpty());
}

TEST(AskableFiltersTest, AskForEachAlternativeByItself) {
    const auto filters = askableFilters(anyName(300));
    ASSERT_THAT(filters, SizeIs(300));
    EXPECT_EQ(filters.front(), named(0));
    EXPECT_EQ(filters.back(), named(299));
}

TEST(AskableFiltersTest, KeepTogetherAlternativesThatAreNestedInOneThatIsShort) {
    const std::string few = anyName(20);
    EXPECT_THAT(
        askableFilters("( |\n" + repeated(" ( | " + few + few + few + " ) ", 3) + ")"),
        ElementsAre(
            "( | " + few + few + few + " )", "( | " + few + few + few + " )",
            "( | " + few + few + few + " )"));
}

TEST(AskableFiltersTest, LeaveOutAnAlternativeThatIsTooLong) {
    EXPECT_THAT(
        askableFilters("(|(a=b)(c=" + std::string(5000, 'd') + ")(e=f))"),
        ElementsAre("(a=b)", "(e=f)"));
}

TEST(AskableFiltersTest, DemandTheRestWithEachAlternative) {
    const auto filters = askableFilters("(&(color=red)" + anyName(300) + ")");
    ASSERT_THAT(filters, SizeIs(300));
    EXPECT_EQ(filters.front(), "(&(color=red)" + named(0) + ")");
    EXPECT_TRUE(matchesAny(filters, service("stream299")));
    EXPECT_FALSE(matchesAny(filters, service("stream299", "blue")));
    EXPECT_FALSE(matchesAny(filters, service("stream300")));
}

TEST(AskableFiltersTest, DemandAsMuchAsThereIsRoomFor) {
    const std::string tooLong = "(!(a=" + std::string(5000, 'b') + "))";
    EXPECT_THAT(
        askableFilters("(&" + named(1) + tooLong + "(color=red))"),
        ElementsAre("(&(color=red)" + named(1) + ")"));
    const auto filters = askableFilters("(&" + named(1) + repeated("(color=*)", 1000) + ")");
    ASSERT_THAT(filters, SizeIs(1));
    EXPECT_LE(filters.front().size(), limit);
    EXPECT_TRUE(matchesAny(filters, service("stream1")));
}

TEST(AskableFiltersTest, LeaveOutAConjunctionOfWhichNothingRemains) {
    EXPECT_THAT(askableFilters("(&(!(a=" + std::string(5000, 'b') + ")))"), IsEmpty());
}

TEST(AskableFiltersTest, AreNeverTooLongAndMatchAllThatTheFilterMatches) {
    const std::string wide = "(color=" + std::string(4000, 'r') + "*)";
    for (const std::string& filter :
         {anyName(300), "(&" + anyName(300) + wide + ")", "(&" + anyName(300) + anyName(400) + ")",
          "(|(&" + anyName(300) + "(color=red))(color=r\\)\\(*)" + wide + ")",
          "(|(a=(" + repeated("x", 5000) + "))" + named(7) + ")"}) {
        const auto filters = askableFilters(filter);
        const cppmicroservices::LDAPFilter whole(filter);
        for (const std::string& each : filters) {
            EXPECT_LE(each.size(), limit);
            EXPECT_TRUE(cppmicroservices::LDAPFilter(each));
        }
        for (const char* name : {"stream7", "stream299", "stream300"}) {
            for (const std::string& color :
                 {std::string("red"), std::string("r)(d"), std::string(4001, 'r')}) {
                const auto properties = service(name, color);
                EXPECT_TRUE(!whole.Match(properties) || matchesAny(filters, properties))
                    << name << " " << color << " " << filter;
            }
        }
    }
}

} // namespace
} // namespace agent::orvi::remoting::details::test
