#include "wire/PropertyCodec.hpp"

#include "support/ThrowsExactly.hpp"
#include "wire/FrameCodec.hpp"

#include <orvi/remoting/Errors.hpp>

#include <cppmicroservices/AnyMap.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace agent::orvi::remoting::details::test {
namespace {

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using streambuf::test::throwsExactly;
using Texts = std::vector<std::string>;
using Values = std::vector<Any>;
using namespace std::string_literals;

Properties transported(const Properties& properties) {
    v1::Offer offer;
    encodeProperties(offer, properties);
    v1::Offer parsed;
    EXPECT_TRUE(parsed.ParseFromString(offer.SerializeAsString()));
    return decodeProperties(parsed);
}

/// Return what a single property becomes; nothing when it is left out.
Any transported(const Any& value) {
    const Properties result = transported(Properties{{"key", value}});
    return result.empty() ? Any() : result.front().second;
}

template <class T>
void expectKept(const T& value) {
    const Any result = transported(Any(value));
    ASSERT_EQ(result.Type(), typeid(T));
    EXPECT_EQ(any_cast<T>(result), value);
}

template <class From, class To>
void expectBecomes(From value) {
    const Any result = transported(Any(value));
    ASSERT_EQ(result.Type(), typeid(To));
    EXPECT_EQ(any_cast<To>(result), static_cast<To>(value));
}

template <class T>
void expectKeptToItsLimits() {
    expectKept(T{0});
    expectKept(T{1});
    expectKept(std::numeric_limits<T>::lowest());
    expectKept(std::numeric_limits<T>::max());
}

/// Return lists inside of each other, with a flag in the innermost.
Any nestedLists(int levels) {
    Any value(true);
    for (int level = 0; level < levels; ++level) {
        value = Any(Values{value});
    }
    return value;
}

Any nestedMaps(int levels) {
    Any value(true);
    for (int level = 0; level < levels; ++level) {
        value = Any(AnyMap({{"key", value}}));
    }
    return value;
}

TEST(PropertyCodecTest, KeepsSimpleValuesWithTheirTypes) {
    expectKept(""s);
    expectKept("text"s);
    expectKept("any \xff bytes \0 at all"s);
    expectKept(true);
    expectKept(false);
    expectKeptToItsLimits<int>();
    expectKeptToItsLimits<unsigned int>();
    expectKeptToItsLimits<long>();
    expectKeptToItsLimits<unsigned long>();
    expectKeptToItsLimits<double>();
    expectKept(std::numeric_limits<double>::infinity());
    expectKept(std::numeric_limits<double>::denorm_min());
}

TEST(PropertyCodecTest, MakesLongOfLongLong) {
    expectBecomes<long long, long>(std::numeric_limits<long long>::min());
    expectBecomes<unsigned long long, unsigned long>(
        std::numeric_limits<unsigned long long>::max());
}

TEST(PropertyCodecTest, KeepsListsOfTexts) {
    expectKept(Texts{});
    expectKept(Texts{"", "b", "\xff"});
}

TEST(PropertyCodecTest, KeepsListsOfValuesInOrder) {
    const Any result = transported(Any(Values{Any(1), Any("two"s), Any(Values{Any(3.5)})}));
    const Values values = any_cast<Values>(result);
    ASSERT_EQ(values.size(), 3U);
    EXPECT_EQ(any_cast<int>(values[0]), 1);
    EXPECT_EQ(any_cast<std::string>(values[1]), "two");
    EXPECT_EQ(any_cast<double>(any_cast<Values>(values[2]).at(0)), 3.5);
    EXPECT_TRUE(any_cast<Values>(transported(Any(Values{}))).empty());
}

TEST(PropertyCodecTest, KeepsMapsOfEachKind) {
    for (const auto kind :
         {AnyMap::ORDERED_MAP, AnyMap::UNORDERED_MAP, AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS}) {
        AnyMap map(kind);
        map["Key"] = Any(7);
        map["inner"] = Any(AnyMap(AnyMap::ORDERED_MAP, {{"a", Any("b"s)}}));
        const Any result = transported(Any(map));
        const AnyMap kept = any_cast<AnyMap>(result);
        EXPECT_EQ(kept.GetType(), kind);
        ASSERT_EQ(kept.size(), 2U);
        EXPECT_EQ(any_cast<int>(kept.at("Key")), 7);
        EXPECT_EQ(any_cast<std::string>(kept.AtCompoundKey("inner.a")), "b");
        EXPECT_EQ(kept.count("KEY"), kind == AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS ? 1U : 0U);
        EXPECT_TRUE(any_cast<AnyMap>(transported(Any(AnyMap(kind)))).empty());
    }
}

TEST(PropertyCodecTest, KeepsTheOrderOfTheProperties) {
    const Properties result =
        transported(Properties{{"b", Any(1)}, {"a", Any(2)}, {"\xff.c", Any(3)}});
    ASSERT_EQ(result.size(), 3U);
    EXPECT_EQ(result[0].first, "b");
    EXPECT_EQ(result[1].first, "a");
    EXPECT_EQ(result[2].first, "\xff.c");
}

TEST(PropertyCodecTest, LeavesOutWhatDoesNotTravel) {
    const Properties result = transported(Properties{
        {"first", Any(1)},
        {"short", Any(short{1})},
        {"character", Any('c')},
        {"float", Any(1.5F)},
        {"empty", Any()},
        {"numbers", Any(std::vector<int>{1})},
        {"in a list", Any(Values{Any(1), Any(short{1})})},
        {"in a map", Any(AnyMap({{"a", Any(AnyMap({{"b", Any()}}))}}))},
        {"last", Any(2)}});
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(result[0].first, "first");
    EXPECT_EQ(result[1].first, "last");
}

TEST(PropertyCodecTest, NestsListsAndMapsUpToALimit) {
    for (const auto nested : {&nestedLists, &nestedMaps}) {
        EXPECT_FALSE(transported(nested(maximumNesting)).Empty());
        EXPECT_TRUE(transported(nested(maximumNesting + 1)).Empty());
    }
    EXPECT_TRUE(transported(Any(Values{nestedMaps(maximumNesting)})).Empty());
    Any texts(Texts{"innermost"});
    for (int level = 1; level < maximumNesting; ++level) {
        texts = Any(AnyMap({{"key", texts}}));
    }
    EXPECT_FALSE(transported(texts).Empty());
    EXPECT_TRUE(transported(Any(Values{texts})).Empty());
}

TEST(PropertyCodecTest, StaysWithinTheNestingThatFramesMayHave) {
    v1::Frame frame;
    encodeProperties(*frame.mutable_offer(), {{"key", nestedMaps(maximumNesting)}});
    const std::string bytes = encodeFrame(frame).head;
    google::protobuf::io::ArrayInputStream input(bytes.data(), static_cast<int>(bytes.size()));
    FrameReader reader(input, bytes.size());
    v1::Frame parsed;
    EXPECT_NO_THROW(reader.readHead(parsed));
    EXPECT_EQ(decodeProperties(parsed.offer()).size(), 1U);
}

TEST(PropertyCodecTest, RefusesAnOfferThatIsLongerThanAFrame) {
    const auto tooLong = throwsExactly<std::length_error>(
        "The properties of a service take more than the 131072 bytes of a frame.");
    v1::Offer offer;
    EXPECT_THAT(
        [&] {
            encodeProperties(offer, {{"key", Any(std::string(maximumFrameSize, 'x'))}});
        },
        tooLong);
    Properties many;
    for (int number = 0; number < 20'000; ++number) {
        many.emplace_back(std::to_string(number), Any(number));
    }
    v1::Offer second;
    EXPECT_THAT([&] { encodeProperties(second, many); }, tooLong);
    EXPECT_LT(second.properties_size(), 20'000);
}

TEST(PropertyCodecTest, LeavesOutValuesOfLaterVersions) {
    v1::Offer offer;
    offer.add_properties()->set_key("none");
    v1::Property& inList = *offer.add_properties();
    inList.set_key("list");
    inList.mutable_value()->mutable_list()->add_values();
    v1::Property& inMap = *offer.add_properties();
    inMap.set_key("map");
    inMap.mutable_value()->mutable_map()->add_entries()->set_key("a");
    v1::Property& kind = *offer.add_properties();
    kind.set_key("kind");
    kind.mutable_value()->mutable_map()->set_kind(static_cast<v1::ValueMap::Kind>(3));
    EXPECT_TRUE(decodeProperties(offer).empty());
}

TEST(PropertyCodecTest, RefusesMissingAndRepeatedKeys) {
    const auto refused =
        throwsExactly<ProtocolError>("The key of a property is missing or repeated.");
    v1::Offer empty;
    empty.add_properties()->mutable_value()->set_flag(true);
    EXPECT_THAT([&] { decodeProperties(empty); }, refused);
    v1::Offer repeated;
    for (const char* const key : {"key.Z", "other", "KEY.z"}) {
        v1::Property& property = *repeated.add_properties();
        property.set_key(key);
        property.mutable_value()->set_flag(true);
    }
    EXPECT_THAT([&] { decodeProperties(repeated); }, refused);
}

TEST(PropertyCodecTest, TakesTheFirstOfEqualKeysInAMap) {
    v1::Offer offer;
    v1::Property& property = *offer.add_properties();
    property.set_key("key");
    for (const int number : {1, 2}) {
        v1::Property& entry = *property.mutable_value()->mutable_map()->add_entries();
        entry.set_key("same");
        entry.mutable_value()->set_int32(number);
    }
    const Properties result = decodeProperties(offer);
    EXPECT_EQ(any_cast<int>(any_cast<AnyMap>(result.at(0).second).at("same")), 1);
}

TEST(PropertyCodecTest, RefusesWhatIsNestedTooDeeply) {
    v1::Offer offer;
    v1::Property& property = *offer.add_properties();
    property.set_key("key");
    v1::Value* value = property.mutable_value();
    for (int level = 0; level < maximumNesting; ++level) {
        value = value->mutable_list()->add_values();
    }
    value->set_flag(true);
    EXPECT_EQ(decodeProperties(offer).size(), 1U);
    value->mutable_texts()->add_texts("x");
    EXPECT_THAT(
        [&] { decodeProperties(offer); },
        throwsExactly<ProtocolError>("The value of a property is nested too deeply."));
}

} // namespace
} // namespace agent::orvi::remoting::details::test
