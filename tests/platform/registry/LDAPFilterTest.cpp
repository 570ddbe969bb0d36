#include "RegistryFixture.hpp"

#include <cppmicroservices/LDAPFilter.h>

#include <sstream>
#include <stdexcept>

namespace registry_test {
namespace {

bool matches(std::string const& filter, AnyMap const& map) {
    return LDAPFilter(filter).Match(map);
}

void expectRefused(std::string const& filter, std::string const& text) {
    SCOPED_TRACE(filter);
    expectThrow<std::invalid_argument>([&] { LDAPFilter parsed(filter); }, text);
}

TEST(LDAPFilterTest, MatchesNothingWhenDefaultConstructed) {
    LDAPFilter const filter;
    EXPECT_FALSE(filter);
    EXPECT_EQ(filter.ToString(), "");
    EXPECT_FALSE(filter.Match(AnyMap({{"a", 1}})));
    EXPECT_FALSE(filter.MatchCase(AnyMap({{"a", 1}})));
    EXPECT_FALSE(filter.Match(ServiceReferenceU()));
    EXPECT_FALSE(filter.Match(Bundle()));
}

TEST(LDAPFilterTest, ParsesAndPrintsEveryOperator) {
    for (auto const* text :
         {"(a=b)", "(a>=b)", "(a<=b)", "(a~=b)", "(a=*)", "(a=*b*c*)", "(a=)", "(&(a=b)(c=d))",
          "(|(a=b)(c=d)(e=f))", "(!(a=b))", "(&(a=b))", "(|(!(a=b))(&(c=d)(e=*)))"}) {
        LDAPFilter const filter(text);
        EXPECT_TRUE(filter);
        EXPECT_EQ(filter.ToString(), text);
    }
}

TEST(LDAPFilterTest, IgnoresSpaceAroundParenthesesAndNames) {
    EXPECT_EQ(LDAPFilter("  ( a b =c )  ").ToString(), "(a b=c )");
    EXPECT_EQ(LDAPFilter(" ( & (a=b) \n ( c =d) )").ToString(), "(&(a=b)(c=d))");
    EXPECT_EQ(LDAPFilter("(! (a=b) )").ToString(), "(!(a=b))");
}

TEST(LDAPFilterTest, KeepsEscapedCharactersLiteral) {
    LDAPFilter const filter("(a=\\(\\*\\)\\\\)");
    EXPECT_EQ(filter.ToString(), "(a=\\(\\*\\)\\\\)");
    EXPECT_TRUE(filter.Match(AnyMap({{"a", std::string("(*)\\")}})));
    EXPECT_FALSE(filter.Match(AnyMap({{"a", std::string("(x)\\")}})));
    EXPECT_EQ(LDAPFilter("(a=\\b)").ToString(), "(a=b)");
}

TEST(LDAPFilterTest, AcceptsBalancedParenthesesInValues) {
    EXPECT_TRUE(matches("(a=f(x)(y))", {{"a", std::string("f(x)(y)")}}));
    EXPECT_EQ(LDAPFilter("(a=f(x))").ToString(), "(a=f\\(x\\))");
}

TEST(LDAPFilterTest, RefusesWhatBreaksTheGrammar) {
    expectRefused("", "Null query: ");
    expectRefused("   ", "Unexpected end of query: ");
    expectRefused("a=b", "Malformed query: a=b");
    expectRefused("(", "Unexpected end of query: ");
    expectRefused("()", "Malformed query: )");
    expectRefused("(=b)", "Malformed query: =b)");
    expectRefused("(a", "Unexpected end of query: ");
    expectRefused("(a)", "Undefined operator: )");
    expectRefused("(a>b)", "Undefined operator: >b)");
    expectRefused("(a~b)", "Undefined operator: ~b)");
    expectRefused("(a(b)=c)", "Undefined operator: (b)=c)");
    expectRefused("(a=b", "Unexpected end of query: ");
    expectRefused("(a=b\\", "Unexpected end of query: ");
    expectRefused("(a=(b)", "Unexpected end of query: ");
    expectRefused("(&)", "Malformed query: )");
    expectRefused("(!)", "Malformed query: )");
    expectRefused("(&(a=b)", "Unexpected end of query: ");
    expectRefused("(&(a=b)x)", "Malformed query: x)");
    expectRefused("(!(a=b)(c=d))", "Malformed query: ");
    expectRefused("(a=b)x", "Trailing garbage 'x': x");
    expectRefused("(a=b) (c=d) ", "Trailing garbage ' (c=d) ':  (c=d) ");
}

TEST(LDAPFilterTest, CombinesOperators) {
    AnyMap const map({{"a", std::string("1")}, {"b", std::string("2")}});
    EXPECT_TRUE(matches("(&(a=1)(b=2))", map));
    EXPECT_FALSE(matches("(&(a=1)(b=3))", map));
    EXPECT_TRUE(matches("(|(a=0)(b=2))", map));
    EXPECT_FALSE(matches("(|(a=0)(b=3))", map));
    EXPECT_TRUE(matches("(!(a=0))", map));
    EXPECT_FALSE(matches("(!(a=1))", map));
    EXPECT_TRUE(matches("(&(|(a=0)(a=1))(!(b=3)))", map));
}

TEST(LDAPFilterTest, TestsPresence) {
    AnyMap const map({{"a", 1}, {"list", std::vector<int>{}}, {"empty", Any()}});
    EXPECT_TRUE(matches("(a=*)", map));
    EXPECT_TRUE(matches("(list=*)", map));
    EXPECT_FALSE(matches("(empty=*)", map));
    EXPECT_FALSE(matches("(absent=*)", map));
    EXPECT_TRUE(matches("(!(absent=*))", map));
    EXPECT_FALSE(matches("(absent>=1)", map));
}

TEST(LDAPFilterTest, MatchesWildcards) {
    AnyMap const map({{"a", std::string("abcabc")}});
    for (auto const* filter :
         {"(a=a*)", "(a=*c)", "(a=*b*)", "(a=a*c)", "(a=abcabc*)", "(a=*abc*abc*)", "(a=*bca*)",
          "(a=**)", "(a=a**c)", "(a=abc*abc)"}) {
        EXPECT_TRUE(matches(filter, map)) << filter;
    }
    for (auto const* filter :
         {"(a=b*)", "(a=*b)", "(a=*d*)", "(a=abcab*cabc)", "(a=*abc*abc*a*)", "(a=abc)",
          "(a=abcabcabc*)"}) {
        EXPECT_FALSE(matches(filter, map)) << filter;
    }
}

TEST(LDAPFilterTest, ComparesTextsByCharacter) {
    AnyMap const map({{"a", std::string("m")}, {"empty", std::string()}});
    EXPECT_TRUE(matches("(a<=m)", map));
    EXPECT_TRUE(matches("(a<=z)", map));
    EXPECT_FALSE(matches("(a<=b)", map));
    EXPECT_TRUE(matches("(a>=m)", map));
    EXPECT_TRUE(matches("(a>=b)", map));
    EXPECT_FALSE(matches("(a>=z)", map));
    EXPECT_FALSE(matches("(a=M)", map));
    EXPECT_TRUE(matches("(empty=)", map));
    EXPECT_FALSE(matches("(a=)", map));
}

TEST(LDAPFilterTest, ApproximatesWithoutCaseAndSpace) {
    AnyMap const map({{"a", std::string("Jo Ann  Doe")}});
    EXPECT_TRUE(matches("(a~=joann DOE)", map));
    EXPECT_FALSE(matches("(a~=joan doe)", map));
    EXPECT_FALSE(matches("(a~=jo*)", map));
}

TEST(LDAPFilterTest, IgnoresCaseOfNamesInEveryMapType) {
    for (auto const type :
         {any_map::ORDERED_MAP, any_map::UNORDERED_MAP,
          any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS}) {
        AnyMap const map(type, {{"Name", std::string("v")}});
        EXPECT_TRUE(LDAPFilter("(nAME=v)").Match(map));
        EXPECT_FALSE(LDAPFilter("(nAME=v)").MatchCase(map));
        EXPECT_TRUE(LDAPFilter("(Name=v)").MatchCase(map));
        EXPECT_FALSE(LDAPFilter("(other=v)").Match(map));
    }
}

TEST(LDAPFilterTest, RefusesMapsWithCaseVariantsOfAKey) {
    LDAPFilter const filter("(a=1)");
    for (auto const type : {any_map::ORDERED_MAP, any_map::UNORDERED_MAP}) {
        AnyMap const map(type, {{"key", 1}, {"KEY", 2}});
        EXPECT_THROW(filter.Match(map), std::runtime_error);
        EXPECT_THROW(filter.MatchCase(map), std::runtime_error);
    }
    AnyMap const map(any_map::ORDERED_MAP, {{"key", 1}, {"KEY", 2}});
    expectThrow<std::runtime_error>(
        [&] { filter.Match(map); }, "Properties contain case variants of the key: KEY");
}

TEST(LDAPFilterTest, ComparesByText) {
    EXPECT_TRUE(LDAPFilter("(a=b)") == LDAPFilter("( a=b)"));
    EXPECT_FALSE(LDAPFilter("(a=b)") == LDAPFilter("(a=c)"));
    LDAPFilter copy("(a=b)");
    LDAPFilter const other("(c=d)");
    copy = other;
    EXPECT_TRUE(copy == LDAPFilter(other));
    std::ostringstream stream;
    stream << copy;
    EXPECT_EQ(stream.str(), "(c=d)");
}

class LDAPFilterOnServicesTest : public RegistryTest {};

TEST_F(LDAPFilterOnServicesTest, MatchesServiceProperties) {
    auto const registration = registerCodec({{"Color", std::string("red")}});
    auto const reference = registration.GetReference();
    EXPECT_TRUE(LDAPFilter("(&(objectclass=registry_test::Codec)(color=red))").Match(reference));
    EXPECT_TRUE(
        LDAPFilter("(service.id=" + std::to_string(idOf(reference)) + ")").Match(reference));
    EXPECT_FALSE(LDAPFilter("(color=blue)").Match(reference));
}

TEST_F(LDAPFilterOnServicesTest, MatchesBundleHeaders) {
    EXPECT_TRUE(LDAPFilter("(bundle.symbolic_name=system_bundle)").Match(framework));
    EXPECT_FALSE(LDAPFilter("(bundle.symbolic_name=main)").Match(framework));
    expectThrow<std::invalid_argument>(
        [] { LDAPFilter("(a=b)").Match(Bundle()); }, "invalid bundle");
}

} // namespace
} // namespace registry_test
