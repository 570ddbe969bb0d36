#include "payload/SlotArray.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

namespace agent::orvi::core::detail {
namespace {

using Texts = SlotArray<std::string, 2>;

Texts textsOf(std::size_t count) {
    Texts texts;
    for (std::size_t index = 0; index < count; ++index) {
        texts.push_back(std::string(100, static_cast<char>('a' + index)));
    }
    return texts;
}

void expectTexts(const Texts& texts, std::size_t count) {
    ASSERT_EQ(texts.size(), count);
    for (std::size_t index = 0; index < count; ++index) {
        EXPECT_EQ(texts[index], std::string(100, static_cast<char>('a' + index))) << index;
    }
}

constexpr std::size_t aroundThePlaces[] = {0, 1, 2, 3, 5};

TEST(SlotArrayTest, KeepsWhatIsAppendedInsideAndBeyondItsPlaces) {
    for (const std::size_t count : aroundThePlaces) {
        expectTexts(textsOf(count), count);
    }
}

TEST(SlotArrayTest, HandsEverythingOverWhenItIsMoved) {
    for (const std::size_t count : aroundThePlaces) {
        Texts texts = textsOf(count);
        Texts constructed = std::move(texts);
        expectTexts(constructed, count);
        EXPECT_EQ(texts.size(), 0u);

        Texts assigned = textsOf(4);
        assigned = std::move(constructed);
        expectTexts(assigned, count);
        EXPECT_EQ(constructed.size(), 0u);
        constructed.push_back("again");
        EXPECT_EQ(constructed[0], "again");
    }
}

TEST(SlotArrayTest, SharesNothingWithACopy) {
    for (const std::size_t count : aroundThePlaces) {
        Texts texts = textsOf(count);
        const Texts constructed = texts;
        Texts assigned = textsOf(4);
        assigned = texts;
        for (std::size_t index = 0; index < count; ++index) {
            texts[index] = "changed";
        }
        expectTexts(constructed, count);
        expectTexts(assigned, count);
    }
}

TEST(SlotArrayTest, IsEmptyAfterClear) {
    for (const std::size_t count : aroundThePlaces) {
        Texts texts = textsOf(count);
        texts.clear();
        EXPECT_EQ(texts.size(), 0u);
        texts.push_back("again");
        ASSERT_EQ(texts.size(), 1u);
        EXPECT_EQ(texts[0], "again");
    }
}

} // namespace
} // namespace agent::orvi::core::detail
