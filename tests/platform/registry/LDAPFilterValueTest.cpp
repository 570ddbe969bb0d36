#include "RegistryFixture.hpp"

#include <cppmicroservices/LDAPFilter.h>
#include <cppmicroservices/LDAPProp.h>

#include <limits>
#include <list>

namespace registry_test {
namespace {

bool matches(std::string const& filter, Any const& value) {
    return LDAPFilter(filter).Match(AnyMap({{"v", value}}));
}

template <class T>
class LDAPFilterIntegerTest : public testing::Test {};

using Integers = testing::Types<
    short, int, long, long long, unsigned char, unsigned short, unsigned int, unsigned long,
    unsigned long long>;
TYPED_TEST_SUITE(LDAPFilterIntegerTest, Integers);

TYPED_TEST(LDAPFilterIntegerTest, ComparesByNumber) {
    Any const value = static_cast<TypeParam>(12);
    EXPECT_TRUE(matches("(v=12)", value));
    EXPECT_TRUE(matches("(v= +012)", value));
    EXPECT_FALSE(matches("(v=1)", value));
    EXPECT_TRUE(matches("(v~=12)", value));
    EXPECT_TRUE(matches("(v>=9)", value));
    EXPECT_TRUE(matches("(v>=12)", value));
    EXPECT_FALSE(matches("(v>=13)", value));
    EXPECT_TRUE(matches("(v<=100)", value));
    EXPECT_FALSE(matches("(v<=11)", value));
    EXPECT_TRUE(matches("(v=*)", value));
}

TYPED_TEST(LDAPFilterIntegerTest, MatchesNoTextThatIsNoNumber) {
    Any const value = static_cast<TypeParam>(12);
    EXPECT_FALSE(matches("(v=x)", value));
    EXPECT_FALSE(matches("(v=)", value));
    EXPECT_FALSE(matches("(v=*2)", value));
    EXPECT_FALSE(matches("(v>=99999999999999999999)", value));
    EXPECT_FALSE(matches("(v<=99999999999999999999)", value));
}

TEST(LDAPFilterValueTest, ComparesNegativeNumbers) {
    EXPECT_TRUE(matches("(v<=-1)", -5));
    EXPECT_FALSE(matches("(v>=-1)", -5));
    EXPECT_TRUE(matches("(v=-5)", -5L));
}

TEST(LDAPFilterValueTest, ComparesFloatingPointNumbers) {
    for (Any const& value : {Any(1.5), Any(1.5F)}) {
        EXPECT_TRUE(matches("(v=1.5)", value));
        EXPECT_TRUE(matches("(v~=1.50)", value));
        EXPECT_FALSE(matches("(v=1.4)", value));
        EXPECT_TRUE(matches("(v>=1)", value));
        EXPECT_FALSE(matches("(v>=2)", value));
        EXPECT_TRUE(matches("(v<=1.5e0)", value));
        EXPECT_FALSE(matches("(v<=1)", value));
        EXPECT_FALSE(matches("(v=x)", value));
        EXPECT_FALSE(matches("(v<=1e999)", value));
    }
    EXPECT_TRUE(matches("(v=0.1)", 0.1F));
    EXPECT_FALSE(matches("(v=0.1)", 0.1 + 1e-9));
}

TEST(LDAPFilterValueTest, MatchesBooleansByWord) {
    EXPECT_TRUE(matches("(v=true)", true));
    EXPECT_TRUE(matches("(v=TRUE)", true));
    EXPECT_FALSE(matches("(v=false)", true));
    EXPECT_TRUE(matches("(v~=False)", false));
    EXPECT_FALSE(matches("(v<=true)", true));
    EXPECT_FALSE(matches("(v>=true)", true));
}

TEST(LDAPFilterValueTest, MatchesSingleCharactersAndPointersToText) {
    EXPECT_TRUE(matches("(v=c)", 'c'));
    EXPECT_FALSE(matches("(v=C)", 'c'));
    EXPECT_TRUE(matches("(v>=b)", 'c'));
    EXPECT_TRUE(matches("(v=te*)", static_cast<char const*>("text")));
}

TEST(LDAPFilterValueTest, MatchesAnyElementOfAContainer) {
    EXPECT_TRUE(matches("(v=b*)", std::vector<std::string>{"abc", "bcd"}));
    EXPECT_FALSE(matches("(v=c*)", std::vector<std::string>{"abc", "bcd"}));
    EXPECT_FALSE(matches("(v=a)", std::vector<std::string>{}));
    EXPECT_TRUE(matches("(v=b)", std::list<std::string>{"a", "b"}));
    EXPECT_FALSE(matches("(v=c)", std::list<std::string>{"a", "b"}));
}

TEST(LDAPFilterValueTest, MatchesElementsOfMixedVectorsByTheirType) {
    Any const value = std::vector<Any>{5, std::string("text"), std::vector<Any>{true}, Any()};
    EXPECT_TRUE(matches("(v=5)", value));
    EXPECT_TRUE(matches("(v=t*t)", value));
    EXPECT_TRUE(matches("(v=true)", value));
    EXPECT_FALSE(matches("(v=6)", value));
    EXPECT_FALSE(matches("(v<=4)", std::vector<Any>{5}));
}

TEST(LDAPFilterValueTest, MatchesOtherTypesByPresenceOnly) {
    EXPECT_TRUE(matches("(v=*)", std::vector<int>{1}));
    EXPECT_FALSE(matches("(v=1)", std::vector<int>{1}));
    EXPECT_FALSE(matches("(v=1)", AnyMap({{"1", 1}})));
}

TEST(LDAPPropTest, BuildsComparisons) {
    LDAPProp const prop("p");
    EXPECT_EQ(std::string(prop == "x"), "(p=x)");
    EXPECT_EQ(std::string(prop == std::string("x")), "(p=x)");
    EXPECT_EQ(std::string(prop == Any(5)), "(p=5)");
    EXPECT_EQ(std::string(prop == true), "(p=true)");
    EXPECT_EQ(std::string(prop == false), "(p=false)");
    EXPECT_EQ(std::string(prop == 5), "(p=5)");
    EXPECT_EQ(std::string(prop != std::string("x")), "(!(p=x))");
    EXPECT_EQ(std::string(prop != Any(5)), "(!(p=5))");
    EXPECT_EQ(std::string(prop != 5), "(!(p=5))");
    EXPECT_EQ(std::string(prop >= std::string("x")), "(p>=x)");
    EXPECT_EQ(std::string(prop >= Any(5)), "(p>=5)");
    EXPECT_EQ(std::string(prop >= 5), "(p>=5)");
    EXPECT_EQ(std::string(prop <= std::string("x")), "(p<=x)");
    EXPECT_EQ(std::string(prop <= Any(5)), "(p<=5)");
    EXPECT_EQ(std::string(prop <= 5), "(p<=5)");
    EXPECT_EQ(std::string(prop.Approx(std::string("x"))), "(p~=x)");
    EXPECT_EQ(std::string(prop.Approx(Any(5))), "(p~=5)");
    EXPECT_EQ(std::string(prop.Approx(5)), "(p~=5)");
    EXPECT_EQ(std::string(LDAPPropExpr(prop)), "(p=*)");
    EXPECT_EQ(std::string(!prop), "(!(p=*))");
}

TEST(LDAPPropTest, ComparisonWithEmptyTextVanishes) {
    LDAPProp const prop("p");
    EXPECT_TRUE((prop == std::string()).IsNull());
    EXPECT_TRUE((prop != std::string()).IsNull());
    EXPECT_TRUE((prop >= std::string()).IsNull());
    EXPECT_TRUE((prop <= std::string()).IsNull());
    EXPECT_TRUE(prop.Approx(std::string()).IsNull());
    EXPECT_TRUE((!LDAPPropExpr()).IsNull());
}

TEST(LDAPPropTest, CombinesExpressions) {
    auto const a = LDAPProp("a") == 1;
    auto const b = LDAPProp("b") == 2;
    EXPECT_EQ(std::string(a && b), "(&(a=1)(b=2))");
    EXPECT_EQ(std::string(a || b), "(|(a=1)(b=2))");
    EXPECT_EQ(std::string(a && LDAPPropExpr()), "(a=1)");
    EXPECT_EQ(std::string(LDAPPropExpr() || b), "(b=2)");
    auto combined = a;
    combined |= b;
    EXPECT_EQ(std::string(combined), "(|(a=1)(b=2))");
    combined &= LDAPPropExpr("(c=3)");
    EXPECT_EQ(std::string(combined), "(&(|(a=1)(b=2))(c=3))");
    EXPECT_EQ(std::string(!combined), "(!(&(|(a=1)(b=2))(c=3)))");
    EXPECT_TRUE(LDAPFilter(a || b).Match(AnyMap({{"b", 2}})));
}

TEST(LDAPPropTest, RefusesEmptyName) {
    expectThrow<std::invalid_argument>([] { LDAPProp prop(""); }, "property must not be empty");
}

} // namespace
} // namespace registry_test
