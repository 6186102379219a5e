#include <list>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/LDAPProp.h"

namespace {

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;
using cppmicroservices::LDAPProp;
using cppmicroservices::LDAPPropExpr;
using Strings = std::vector<std::string>;

AnyMap properties(const std::string& key, const Any& value) {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    map[key] = value;
    return map;
}

struct GoodFilter {
    std::string name, text, normal;
};
class GoodFilterTest : public testing::TestWithParam<GoodFilter> {};

TEST_P(GoodFilterTest, isReadAndHasANormalForm) {
    const LDAPFilter filter(GetParam().text);
    EXPECT_TRUE(filter);
    EXPECT_EQ(filter.ToString(), GetParam().normal);
    EXPECT_EQ(LDAPFilter(filter.ToString()), filter);
}

std::string nested(int depth) {
    std::string text;
    for (int i = 1; i < depth; ++i) text += "(!";
    return text + "(a=b)" + std::string(static_cast<std::size_t>(depth - 1), ')');
}

const auto nameOf = [](const auto& info) { return info.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Text, GoodFilterTest,
    testing::Values(GoodFilter{"Test", "(a=b)", "(a=b)"},                                  //
                    GoodFilter{"BlanksBetween", " ( & ( a =b) ( | (c>=1) (!(d~=x)) ) ) ",  //
                               "(&(a=b)(|(c>=1)(!(d~=x))))"},                              //
                    GoodFilter{"BlanksInAKey", "(  a b  =c)", "(a b=c)"},                  //
                    GoodFilter{"BlanksInAValue", "(a= b )", "(a= b )"},                    //
                    GoodFilter{"EmptyValue", "(a=)", "(a=)"},                              //
                    GoodFilter{"OneOperand", "(&(a=b))", "(&(a=b))"},                      //
                    GoodFilter{"Escapes", R"((a=\(\)\*\\\b))", R"((a=\(\)\*\\b))"},        //
                    GoodFilter{"TwoDigitsAreNoEscape", R"((a=\28))", "(a=28)"},            //
                    GoodFilter{"OperatorsInAValue", "(a=b=c<=d~&|!)", "(a=b=c<=d~&|!)"},   //
                    GoodFilter{"Deep", nested(100), nested(100)}),
    nameOf);

struct BadFilter {
    std::string name, text;
};
class BadFilterTest : public testing::TestWithParam<BadFilter> {};

TEST_P(BadFilterTest, isRefused) { EXPECT_THROW(LDAPFilter{GetParam().text}, std::invalid_argument); }

INSTANTIATE_TEST_SUITE_P(
    Text, BadFilterTest,
    testing::Values(BadFilter{"Empty", ""}, BadFilter{"Blank", " "}, BadFilter{"NoParentheses", "a=b"},
                    BadFilter{"NotClosed", "(a=b"}, BadFilter{"NoOperator", "(a)"},
                    BadFilter{"NoKey", "(=b)"}, BadFilter{"BlankKey", "(  =b)"},
                    BadFilter{"HalfAnOperator", "(a>b)"}, BadFilter{"OtherOperator", "(a:=b)x"},
                    BadFilter{"NoOperand", "(&)"}, BadFilter{"TwoOperandsOfNot", "(!(a=b)(c=d))"},
                    BadFilter{"TestAsOperand", "(&a=b)"}, BadFilter{"TrailingText", "(a=b) x"},
                    BadFilter{"TwoFilters", "(a=b)(c=d)"}, BadFilter{"OpenInAValue", "(a=(b)"},
                    BadFilter{"EscapeAtTheEnd", "(a=b\\"}, BadFilter{"EscapedEnd", "(a=b\\)"},
                    BadFilter{"NotClosedInside", "(&(a=b)"}),
    nameOf);

struct Match {
    std::string name;
    Any value;
    Strings matched, unmatched;
};
void PrintTo(const Match& match, std::ostream* out) { *out << match.name; }
class MatchTest : public testing::TestWithParam<Match> {};

TEST_P(MatchTest, dependsOnTheTypeOfTheProperty) {
    const AnyMap map = properties("K", GetParam().value);
    for (const auto& test : GetParam().matched) EXPECT_TRUE(LDAPFilter("(k" + test + ")").Match(map)) << test;
    for (const auto& test : GetParam().unmatched) {
        EXPECT_FALSE(LDAPFilter("(k" + test + ")").Match(map)) << test;
        EXPECT_TRUE(LDAPFilter("(!(k" + test + "))").Match(map)) << test;
    }
}

const char* const literal = "abc";
struct Opaque {
    friend std::ostream& operator<<(std::ostream& out, const Opaque&) { return out << "opaque"; }
};

INSTANTIATE_TEST_SUITE_P(
    Types, MatchTest,
    testing::Values(
        Match{"Text",
              std::string("Hello World"),
              {"=Hello World", "=Hello*", "=*World", "=*lo*or*", "=H*o*d", "=*", "=**", "~=helloWORLD",
               "~= h e l l o world ", ">=Hello", "<=hello", ">=Hello World", "<=Hello World"},
              {"=hello world", "=Hello", "=World*", "=*o*o*o*", "=Hello World ", "~=hello*", "~=hello",
               "<=Hello", ">=hello", "="}},
        Match{"OverlappingPieces", std::string("aba"), {"=ab*", "=*ba", "=a*a"}, {"=ab*ba", "=aba*a"}},
        Match{"SpecialCharacters",
              std::string("(a*b)\\"),
              {R"(=\(a\*b\)\\)", R"(=(a*b)\\)"},
              {R"(=\(a\*\*b\)\\)"}},
        Match{"EmptyText", std::string(), {"=", "=*", "~= ", "<=a"}, {"=a", ">=a"}},
        Match{"CharPointer", literal, {"=abc", "=a*", "~=A B C"}, {"=ABC"}},
        Match{"Char", 'x', {"=x", "=*", "~=X", ">=a"}, {"=X", "=xx"}},
        Match{"True", true, {"=true", "=TRUE", "~=True", "=*"}, {"=false", ">=true", "<=true", "=1"}},
        Match{"False", false, {"=false", "~=FALSE"}, {"=true", ">=false", "<=false"}},
        Match{"Int",
              42,
              {"=42", "= 42", "=42 things", "~=42", ">=42", "<=42", ">=-1", "<=43", "=*"},
              {"=43", "=4*", "=", "=x", ">=43", "<=41"}},
        Match{"NegativeShort", short{-5}, {"=-5", "<=0", ">=-6"}, {"=5", ">=0"}},
        Match{"LargestNumber", ~0ULL, {"=18446744073709551615", ">=0", ">=-1"}, {"=-1", "<=-1"}},
        Match{"UnsignedChar", static_cast<unsigned char>(200), {"=200"}, {"=201"}},
        Match{"Double", 0.5, {"=0.5", "=.5", "=5e-1", "~=0.5", ">=0.25", "<=1"}, {"=0.51", ">=0.6", "=x"}},
        Match{"NearDouble", 0.1 + 0.2, {"=0.3"}, {"=0.30001"}}, Match{"Float", 0.1F, {"=0.1"}, {"=0.2"}},
        Match{"Texts", Strings{"a", "bc"}, {"=a", "=b*", "~=B C", ">=b", "=*"}, {"=c", "=abc", ">=c"}},
        Match{"List", std::list<std::string>{"a", "b"}, {"=b"}, {"=c"}},
        Match{"Values", std::vector<Any>{1, std::string("x")}, {"=1", "=x", "<=1x"}, {"=2", "=y"}},
        Match{"NoElements", Strings{}, {"=*"}, {"=", "=a", "~="}},
        Match{"OtherType", Opaque{}, {"=*"}, {"=opaque", "~=opaque", ">=a"}},
        Match{"SignedChar", static_cast<signed char>(5), {"=*"}, {"=5", "<=9"}},
        Match{"Nothing", Any(), {}, {"=*", "=", "~=", "=x"}}),
    nameOf);

TEST(FilterTest, combinesTests) {
    AnyMap map(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    map["a"] = 1;
    map["b"] = std::string("x");
    EXPECT_TRUE(LDAPFilter("(&(a=1)(b=x))").Match(map));
    EXPECT_FALSE(LDAPFilter("(&(a=1)(b=y))").Match(map));
    EXPECT_TRUE(LDAPFilter("(|(a=2)(b=x))").Match(map));
    EXPECT_FALSE(LDAPFilter("(|(a=2)(b=y))").Match(map));
    EXPECT_TRUE(LDAPFilter("(!(c=*))").Match(map));
    EXPECT_TRUE(LDAPFilter("(&(|(a=2)(a=1))(!(b=y)))").Match(map));
}

TEST(FilterTest, matchesKeysInAnyCaseOrByCase) {
    const AnyMap map = properties("EventTag", std::string("x"));
    const LDAPFilter filter("(eventtag=x)");
    EXPECT_TRUE(filter.Match(map));
    EXPECT_FALSE(filter.MatchCase(map));
    EXPECT_TRUE(LDAPFilter("(EventTag=x)").MatchCase(map));
}

TEST(FilterTest, matchesNothingByDefault) {
    EXPECT_FALSE(LDAPFilter());
    EXPECT_FALSE(LDAPFilter().Match(properties("a", 1)));
}

TEST(FilterBuilderTest, writesFilters) {
    const LDAPProp a("a");
    const LDAPProp b("b");
    const auto text = [](const LDAPPropExpr& expression) { return std::string(expression); };
    EXPECT_EQ(text(a == "x" && b != std::string("y")), "(&(a=x)(!(b=y)))");
    EXPECT_EQ(text(a >= 1 || b <= 2.5), "(|(a>=1)(b<=2.5))");
    EXPECT_EQ(text(a.Approx("z") && !b), "(&(a~=z)(!(b=*)))");
    EXPECT_EQ(text(a && b), "(&(a=*)(b=*))");
    EXPECT_EQ(text(a == true), "(a=true)");
    EXPECT_EQ(text(a == Any(std::string("x"))), "(a=x)");
    EXPECT_EQ(text(!(a == 1)), "(!(a=1))");
    LDAPPropExpr all = a == 1;
    all &= b == 2;
    all |= a == 3;
    EXPECT_EQ(text(all), "(|(&(a=1)(b=2))(a=3))");
    EXPECT_THROW(LDAPProp(""), std::invalid_argument);
}

}  // namespace
