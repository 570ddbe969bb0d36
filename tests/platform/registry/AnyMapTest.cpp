#include "RegistryFixture.hpp"

#include <cppmicroservices/AnyMap.h>

#include <stdexcept>

namespace registry_test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

class AnyMapOfEachTypeTest : public testing::TestWithParam<any_map::map_type> {};

INSTANTIATE_TEST_SUITE_P(
    MapTypes, AnyMapOfEachTypeTest,
    testing::Values(
        any_map::ORDERED_MAP, any_map::UNORDERED_MAP, any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS));

std::vector<std::string> keysOf(AnyMap const& map) {
    std::vector<std::string> keys;
    for (auto const& entry : map) {
        keys.push_back(entry.first);
    }
    return keys;
}

TEST_P(AnyMapOfEachTypeTest, StoresAndFindsEntries) {
    AnyMap map(GetParam(), {{"one", 1}});
    EXPECT_EQ(map.GetType(), GetParam());
    map["two"] = 2;
    std::string key = "three";
    map[std::move(key)] = std::string("drei");
    EXPECT_EQ(map.size(), 3U);
    EXPECT_FALSE(map.empty());
    EXPECT_EQ(map.count("two"), 1U);
    EXPECT_EQ(map.count("four"), 0U);
    EXPECT_TRUE(map.at("one") == 1);
    EXPECT_TRUE(std::as_const(map).at("three") == std::string("drei"));
    map.at("one") = 11;
    EXPECT_TRUE(map.find("one")->second == 11);
    EXPECT_TRUE(map.find("four") == std::as_const(map).end());
    EXPECT_THAT(keysOf(map), UnorderedElementsAre("one", "two", "three"));
}

TEST_P(AnyMapOfEachTypeTest, ThrowsWhenKeyIsAbsent) {
    AnyMap map(GetParam());
    EXPECT_THROW(map.at("x"), std::out_of_range);
    EXPECT_THROW(std::as_const(map).at("x"), std::out_of_range);
}

TEST_P(AnyMapOfEachTypeTest, InsertsAndEmplacesNewKeysOnly) {
    AnyMap map(GetParam());
    auto const added = map.insert({"k", 1});
    EXPECT_TRUE(added.second);
    EXPECT_EQ(added.first->first, "k");
    auto const refused = map.emplace("k", 2);
    EXPECT_FALSE(refused.second);
    EXPECT_TRUE((*refused.first).second == 1);
    EXPECT_TRUE(map.emplace("l", 3).second);
    EXPECT_EQ(map.size(), 2U);
}

TEST_P(AnyMapOfEachTypeTest, ErasesAndClears) {
    AnyMap map(GetParam(), {{"a", 1}, {"b", 2}});
    EXPECT_EQ(map.erase("a"), 1U);
    EXPECT_EQ(map.erase("a"), 0U);
    map.clear();
    EXPECT_TRUE(map.empty());
    EXPECT_TRUE(map.begin() == map.end());
    EXPECT_TRUE(map.cbegin() == map.cend());
}

TEST_P(AnyMapOfEachTypeTest, IteratesForward) {
    AnyMap map(GetParam(), {{"a", 1}, {"b", 2}});
    for (auto it = map.begin(); it != map.end(); ++it) {
        it->second = 7;
    }
    auto it = map.begin();
    auto const before = it++;
    EXPECT_TRUE(before == map.begin());
    EXPECT_TRUE(it != map.begin());
    any_map::const_iter constant = map.begin();
    auto const constantBefore = constant++;
    EXPECT_TRUE(constantBefore == std::as_const(map).begin());
    EXPECT_TRUE(constant->second == 7);
    EXPECT_TRUE((*constant).second == 7);
    any_map::const_iter copied;
    copied = constant;
    EXPECT_TRUE(++copied == map.cend());
}

TEST_P(AnyMapOfEachTypeTest, ComparesEntriesAndType) {
    AnyMap const map(GetParam(), {{"a", 1}});
    AnyMap copy = map;
    EXPECT_TRUE(copy == map);
    copy["a"] = 2;
    EXPECT_TRUE(copy != map);
    AnyMap assigned(any_map::ORDERED_MAP, {{"z", 0}});
    assigned = map;
    EXPECT_TRUE(assigned == map);
    AnyMap const moved = std::move(assigned);
    EXPECT_TRUE(moved == map);
    AnyMap target;
    target = AnyMap(GetParam(), {{"a", 1}});
    EXPECT_TRUE(target == map);
    AnyMap const other(
        GetParam() == any_map::ORDERED_MAP ? any_map::UNORDERED_MAP : any_map::ORDERED_MAP,
        {{"a", 1}});
    EXPECT_FALSE(other == map);
}

TEST(AnyMapTest, IgnoresCaseOfKeysByDefault) {
    AnyMap map({{"Key", 1}});
    EXPECT_EQ(map.GetType(), any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    EXPECT_TRUE(map.at("kEY") == 1);
    map["KEY"] = 2;
    EXPECT_THAT(keysOf(map), ElementsAre("Key"));
    EXPECT_EQ(map.count("Keys"), 0U);
}

TEST(AnyMapTest, SeparatesKeysByCaseInOtherTypes) {
    EXPECT_EQ(AnyMap(any_map::ORDERED_MAP, {{"k", 1}, {"K", 2}}).size(), 2U);
    EXPECT_EQ(AnyMap(any_map::UNORDERED_MAP, {{"k", 1}, {"K", 2}}).size(), 2U);
}

TEST(AnyMapTest, SortsKeysOfOrderedMap) {
    AnyMap const map(any_map::ORDERED_MAP, {{"b", 1}, {"c", 1}, {"a", 1}});
    EXPECT_THAT(keysOf(map), ElementsAre("a", "b", "c"));
}

TEST(AnyMapTest, TakesOverStandardMaps) {
    any_map::ordered_any_map const ordered{{"a", 1}};
    any_map::unordered_any_map const unordered{{"a", 1}};
    any_map::unordered_any_cimap const insensitive{{"a", 1}};
    EXPECT_EQ(AnyMap(ordered).GetType(), any_map::ORDERED_MAP);
    EXPECT_EQ(AnyMap(unordered).GetType(), any_map::UNORDERED_MAP);
    EXPECT_EQ(AnyMap(insensitive).GetType(), any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    EXPECT_TRUE(AnyMap(any_map::ordered_any_map(ordered)).at("a") == 1);
    EXPECT_TRUE(AnyMap(any_map::unordered_any_map(unordered)).at("a") == 1);
    EXPECT_TRUE(AnyMap(any_map::unordered_any_cimap(insensitive)).at("A") == 1);
}

TEST(AnyMapTest, RefusesUnknownMapType) {
    expectThrow<std::logic_error>(
        [] { AnyMap map(static_cast<any_map::map_type>(9)); }, "invalid map type");
}

TEST(AnyMapTest, DefaultIteratorsAreInvalidAndEqual) {
    any_map::iter it;
    any_map::const_iter constant;
    EXPECT_TRUE(it == any_map::iter());
    EXPECT_TRUE(constant == any_map::const_iter());
    AnyMap map;
    EXPECT_FALSE(it == map.begin());
    expectThrow<std::logic_error>([&] { *it; }, "cannot dereference an invalid iterator");
    expectThrow<std::logic_error>([&] { *constant; }, "cannot dereference an invalid iterator");
    expectThrow<std::logic_error>([&] { ++it; }, "cannot increment an invalid iterator");
    expectThrow<std::logic_error>([&] { ++constant; }, "cannot increment an invalid iterator");
    any_map::const_iter const converted = any_map::iter();
    EXPECT_TRUE(converted == any_map::const_iter());
}

class DottedKeyTest : public testing::Test {
protected:
    AnyMap const map{
        {"plain", 1},
        {"nested", AnyMap({{"inner", 2}, {"list", std::vector<Any>{3, AnyMap({{"deep", 4}})}}})},
        {"list", std::vector<Any>{5, std::vector<Any>{6, 7}, 8}},
    };
};

TEST_F(DottedKeyTest, FindsKeysInNestedMapsAndVectors) {
    EXPECT_TRUE(map.AtCompoundKey("plain") == 1);
    EXPECT_TRUE(map.AtCompoundKey("nested.inner") == 2);
    EXPECT_TRUE(map.AtCompoundKey("NESTED.Inner") == 2);
    EXPECT_TRUE(map.AtCompoundKey("nested.list.0") == 3);
    EXPECT_TRUE(map.AtCompoundKey("nested.list.1.deep") == 4);
    EXPECT_TRUE(map.AtCompoundKey("list.1.1") == 7);
}

TEST_F(DottedKeyTest, CountsNegativeIndicesFromTheEnd) {
    EXPECT_TRUE(map.AtCompoundKey("list.-1") == 8);
    EXPECT_TRUE(map.AtCompoundKey("list.-2.-2") == 6);
    EXPECT_TRUE(map.AtCompoundKey("list.-1", Any(0)) == 8);
}

TEST_F(DottedKeyTest, ThrowsWhereNothingIsFound) {
    EXPECT_THROW(map.AtCompoundKey("absent"), std::out_of_range);
    EXPECT_THROW(map.AtCompoundKey("absent.inner"), std::out_of_range);
    EXPECT_THROW(map.AtCompoundKey("nested.absent"), std::out_of_range);
    EXPECT_THROW(map.AtCompoundKey("list.3"), std::out_of_range);
    EXPECT_THROW(map.AtCompoundKey("list.-4"), std::out_of_range);
    EXPECT_THROW(map.AtCompoundKey("list.x"), std::invalid_argument);
    EXPECT_THROW(map.AtCompoundKey("list.1.x"), std::invalid_argument);
    expectThrow<std::invalid_argument>(
        [&] { map.AtCompoundKey("plain.more"); }, "Unsupported Any type at 'plain' for dotted get");
    expectThrow<std::invalid_argument>(
        [&] { map.AtCompoundKey("list.0.more"); }, "Unsupported Any type at '0' for dotted get");
}

TEST_F(DottedKeyTest, ReturnsDefaultWhereNothingIsFound) {
    Any const fallback = std::string("default");
    EXPECT_TRUE(map.AtCompoundKey("nested.inner", fallback) == 2);
    EXPECT_TRUE(map.AtCompoundKey("nested.list.1.deep", fallback) == 4);
    EXPECT_TRUE(map.AtCompoundKey("list.1.0", fallback) == 6);
    for (auto const* key :
         {"absent", "absent.x", "nested.absent", "nested.absent.x", "list.9", "list.x", "list.x.y",
          "list.0.more", "plain.more", "list.9.x"}) {
        EXPECT_TRUE(map.AtCompoundKey(key, fallback) == std::string("default")) << key;
    }
}

TEST(AnyMapTest, PrintsAsTextAndJson) {
    Any const any =
        AnyMap(any_map::ORDERED_MAP, {{"a", 1}, {"b", AnyMap({{"c", std::string("d")}})}});
    EXPECT_EQ(any.ToString(), "{a : 1, b : {c : d}}");
    EXPECT_EQ(any.ToJSON(), "{\"a\" : 1, \"b\" : {\"c\" : \"d\"}}");
    EXPECT_EQ(Any(AnyMap()).ToString(), "{}");
    EXPECT_EQ(Any(AnyMap()).ToJSON(), "{}");
    EXPECT_EQ(Any(AnyMap({{"c", 1}})).ToJSON(true), "{\n    \"c\" : 1\n}");
}

} // namespace
} // namespace registry_test
