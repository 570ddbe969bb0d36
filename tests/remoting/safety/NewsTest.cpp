#include "exports/News.hpp"

#include <gtest/gtest.h>

#include <string>

namespace agent::orvi::remoting::test {
namespace {

using details::News;

/// Take all that there is to tell, in words.
std::string allOf(News& news) {
    std::string all;
    while (const auto item = news.take()) {
        if (const auto* offered = std::get_if<News::Offered>(&*item)) {
            all += "offer " + std::to_string(offered->service) + ", ";
        } else if (const auto* withdrawn = std::get_if<News::Withdrawn>(&*item)) {
            all += "withdraw " + std::to_string(withdrawn->service) + ", ";
        } else if (const auto* settled = std::get_if<News::Settled>(&*item)) {
            all += "settle " + std::to_string(settled->want) + ", ";
        }
    }
    return all;
}

TEST(NewsTest, KeepsItsOrder) {
    News news;
    news.add(News::Offered{1});
    news.add(News::Settled{7});
    news.add(News::Withdrawn{2, false});
    news.add(News::Offered{3});
    EXPECT_EQ(news.size(), 4U);
    EXPECT_EQ(allOf(news), "offer 1, settle 7, withdraw 2, offer 3, ");
    EXPECT_EQ(news.size(), 0U);
}

TEST(NewsTest, SaysNothingOfAServiceThatHasComeAndGone) {
    News news;
    news.add(News::Offered{1});
    news.add(News::Offered{2});
    news.add(News::Withdrawn{1, false});
    EXPECT_EQ(allOf(news), "offer 2, ");
}

TEST(NewsTest, SaysThatAServiceHasGoneWhoseOfferWasTaken) {
    News news;
    news.add(News::Offered{1});
    EXPECT_EQ(allOf(news), "offer 1, ");
    news.add(News::Withdrawn{1, false});
    EXPECT_EQ(allOf(news), "withdraw 1, ");
}

TEST(NewsTest, DoesNotGrowWithTheChangesOfAService) {
    News news;
    for (int i = 0; i < 1000; ++i) {
        news.add(News::Withdrawn{1, false});
        news.add(News::Offered{1});
    }
    EXPECT_EQ(news.size(), 2U);
    EXPECT_EQ(allOf(news), "withdraw 1, offer 1, ");
}

} // namespace
} // namespace agent::orvi::remoting::test
