#include "RegistryFixture.hpp"

#include <cppmicroservices/Any.h>

#include <functional>
#include <list>
#include <map>
#include <set>
#include <sstream>

namespace registry_test {
namespace {

struct WithoutEquality {
    int value = 0;
};

std::ostream& operator<<(std::ostream& os, WithoutEquality const& w) {
    return os << "w" << w.value;
}

TEST(AnyTest, HoldsNothingWhenDefaultConstructed) {
    Any const any;
    EXPECT_TRUE(any.Empty());
    EXPECT_EQ(any.Type(), typeid(void));
    EXPECT_EQ(any.ToStringNoExcept(), "");
    EXPECT_EQ(any.ToJSON(), "null");
    expectThrow<std::logic_error>([&] { any.ToString(); }, "empty any");
}

TEST(AnyTest, KeepsExactTypeOfValue) {
    Any const any = 5;
    EXPECT_FALSE(any.Empty());
    EXPECT_EQ(any.Type(), typeid(int));
    EXPECT_EQ(any_cast<int>(any), 5);
    EXPECT_EQ(any_cast<long>(&any), nullptr);
    EXPECT_EQ(*any_cast<int>(&any), 5);
}

TEST(AnyTest, NamesBothTypesWhenCastFails) {
    Any any = 5;
    std::string const from = "cppmicroservices::BadAnyCastException: ";
    std::string const types =
        ": Failed to convert from cppmicroservices::Any type int to target type double";
    expectThrow<BadAnyCastException>([&] { any_cast<double>(any); }, from + "any_cast" + types);
    expectThrow<BadAnyCastException>(
        [&] { any_cast<double>(std::as_const(any)); }, from + "any_cast" + types);
    expectThrow<BadAnyCastException>(
        [&] { ref_any_cast<double>(any); }, from + "ref_any_cast" + types);
    expectThrow<BadAnyCastException>(
        [&] { ref_any_cast<double>(std::as_const(any)); }, from + "ref_any_cast" + types);
    EXPECT_STREQ(
        BadAnyCastException().what(), "cppmicroservices::BadAnyCastException: failed conversion "
                                      "using cppmicroservices::any_cast");
}

TEST(AnyTest, CastOfNullPointerIsNull) {
    EXPECT_EQ(any_cast<int>(static_cast<Any*>(nullptr)), nullptr);
    EXPECT_EQ(any_cast<int>(static_cast<Any const*>(nullptr)), nullptr);
}

TEST(AnyTest, ReferenceCastChangesHeldValue) {
    Any any = std::string("a");
    ref_any_cast<std::string>(any) += "b";
    *any_cast<std::string>(&any) += "c";
    *unsafe_any_cast<std::string>(&any) += "d";
    EXPECT_EQ(any_cast<std::string>(any), "abcd");
    EXPECT_EQ(*unsafe_any_cast<std::string>(&std::as_const(any)), "abcd");
}

TEST(AnyTest, CopiesAreIndependent) {
    Any first = std::vector<int>{1};
    Any second = first;
    ref_any_cast<std::vector<int>>(second).push_back(2);
    EXPECT_EQ(any_cast<std::vector<int>>(first), std::vector<int>{1});
    first = second;
    EXPECT_EQ(any_cast<std::vector<int>>(first).size(), 2U);
    Any const empty;
    first = empty;
    EXPECT_TRUE(first.Empty());
}

TEST(AnyTest, MovesAndSwaps) {
    Any first = std::string("one");
    Any second = std::move(first);
    EXPECT_EQ(any_cast<std::string>(second), "one");
    Any third;
    third = std::move(second);
    Any fourth = 4;
    third.Swap(fourth);
    EXPECT_EQ(any_cast<int>(third), 4);
    EXPECT_EQ(any_cast<std::string>(fourth), "one");
}

TEST(AnyTest, AssignsValues) {
    Any any;
    std::string const text = "text";
    any = text;
    EXPECT_EQ(any_cast<std::string>(any), "text");
    any = 3.5;
    EXPECT_EQ(any_cast<double>(any), 3.5);
}

TEST(AnyTest, EqualsValueOfSameTypeOnly) {
    Any const any = 5;
    EXPECT_TRUE(any == 5);
    EXPECT_FALSE(any == 5L);
    EXPECT_TRUE(any != 6);
    EXPECT_TRUE(any == Any(5));
    EXPECT_FALSE(any == Any(5L));
}

TEST(AnyTest, NeverEqualsValueOfTypeWithoutEquality) {
    Any const any = WithoutEquality{};
    EXPECT_FALSE(any == WithoutEquality{});
    EXPECT_FALSE(any == any);
}

TEST(AnyTest, PrintsValues) {
    EXPECT_EQ(Any(5).ToString(), "5");
    EXPECT_EQ(Any(std::string("t")).ToString(), "t");
    EXPECT_EQ(Any(true).ToString(), "1");
    EXPECT_EQ(Any('c').ToString(), "c");
    EXPECT_EQ(Any(0.1234567891234).ToString(), "0.123456789123");
    EXPECT_EQ(Any(1.5F).ToString(), "1.5");
    EXPECT_EQ(Any(WithoutEquality{3}).ToString(), "w3");
    EXPECT_EQ(Any(static_cast<char const*>("literal")).ToString(), "literal");
}

TEST(AnyTest, PrintsContainers) {
    EXPECT_EQ(Any(std::vector<int>{}).ToString(), "[]");
    EXPECT_EQ(Any(std::vector<int>{1, 2}).ToString(), "[1,2]");
    EXPECT_EQ(Any(std::list<std::string>{"a", "b"}).ToString(), "[a,b]");
    EXPECT_EQ(Any(std::set<int>{3, 1}).ToString(), "[1,3]");
    EXPECT_EQ(Any(std::vector<Any>{1, std::string("x")}).ToString(), "[1,x]");
    EXPECT_EQ(Any(std::map<std::string, Any>{{"a", 1}, {"b", 2}}).ToString(), "{a : 1, b : 2}");
    EXPECT_EQ(Any(std::map<int, int>{{1, 2}}).ToString(), "{1 : 2}");
}

TEST(AnyTest, PrintsNothingForFunctions) {
    Any const any = std::function<void()>([] {});
    EXPECT_EQ(any.ToString(), "");
    EXPECT_EQ(any.ToJSON(), "");
}

TEST(AnyTest, WritesJson) {
    EXPECT_EQ(Any(5).ToJSON(), "5");
    EXPECT_EQ(Any(true).ToJSON(), "true");
    EXPECT_EQ(Any(false).ToJSON(), "false");
    EXPECT_EQ(Any(1.5).ToJSON(), "1.5");
    EXPECT_EQ(Any(std::vector<int>{}).ToJSON(), "[]");
    EXPECT_EQ(Any(std::vector<Any>{1, std::string("x"), false}).ToJSON(), "[1,\"x\",false]");
    EXPECT_EQ(Any(std::map<std::string, Any>{}).ToJSON(), "{}");
    EXPECT_EQ(
        Any(std::map<std::string, Any>{{"a", 1}, {"b", true}}).ToJSON(),
        "{\"a\" : 1, \"b\" : true}");
}

TEST(AnyTest, EscapesTextsInJson) {
    EXPECT_EQ(Any(std::string("\"\\\b\f\n\r\t")).ToJSON(), R"("\"\\\b\f\n\r\t")");
    EXPECT_EQ(Any(std::string("a\x1f")).ToJSON(), R"("a\u001f")");
    EXPECT_EQ(Any(std::string("\xc3\xa4")).ToJSON(), "\"\xc3\xa4\"");
}

TEST(AnyTest, IndentsPrettyJson) {
    Any const any = std::map<std::string, Any>{{"a", std::vector<Any>{1, 2}}, {"b", 3}};
    EXPECT_EQ(
        any.ToJSON(true), "{\n    \"a\" : [\n        1,\n        2\n    ], \n    \"b\" : 3\n}");
    EXPECT_EQ(Any(std::vector<int>{7}).ToJSON(2, 2), "[\n  7\n]");
}

} // namespace
} // namespace registry_test
