#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "Fixture.h"

namespace {

using namespace cppmicroservices;
using Strings = std::vector<std::string>;

struct Service {};

/// Whether look-ups with filters find a service with these properties.
class Filters {
public:
    explicit Filters(const ServiceProperties& properties) {
        context_.RegisterService<Service>(std::make_shared<Service>(), properties);
    }
    bool match(const std::string& filter) { return !context_.GetServiceReferences<Service>(filter).empty(); }

private:
    RunningFramework running_;
    BundleContext context_ = running_.context();
};

std::string nested(int depth) {
    std::string text = "(a=1)";
    for (int i = 1; i < depth; ++i) text = "(!" + text + ")";
    return text;
}

TEST(FilterTest, combinesTestsWithBlanksBetweenThem) {
    Filters filters({{"a", 1}, {"B b", std::string("x")}});
    for (const auto& text : {"(&(a=1)(b b=x))", "(|(a=2)(B B=x))", "(!(c=*))", "(&(|(a=2)(a=1))(!(b b=y)))",
                             " ( & ( a =1) ( | (a>=2) (!(  b b  ~=y)) ) ) ", "(&(a=1))", ""}) {
        EXPECT_TRUE(filters.match(text)) << text;
    }
    for (const auto& text : {"(&(a=1)(b b=y))", "(|(a=2)(b b=y))", "(!(a=*))", "(c=*)", "(|(c=))"}) {
        EXPECT_FALSE(filters.match(text)) << text;
    }
    EXPECT_FALSE(filters.match(nested(100)));
}

TEST(FilterTest, refusesWhatIsMalformed) {
    Filters filters({{"a", 1}});
    for (const auto& text : {" ", "a=b", "(a=b", "(a)", "(=b)", "(  =b)", "(a>b)", "(&)", "(!(a=b)(c=d))",
                             "(&a=b)", "(a=b) x", "(a=b)(c=d)", "(a=(b)", "(a=b\\", "(a=b\\)", "(&(a=b)"}) {
        EXPECT_THROW(filters.match(text), std::invalid_argument) << text;
    }
}

struct Match {
    std::string name;
    Any value;
    Strings matched, unmatched;
};

TEST(FilterTest, dependsOnTheTypeOfTheProperty) {
    const std::vector<Match> table = {
        {"Text",
         std::string("Hello World"),
         {"=Hello World", "=Hello*", "=*World", "=*lo*or*", "=H*o*d", "=*", "=**", "~=helloWORLD",
          "~= h e l l o world ", ">=Hello", "<=hello", ">=Hello World", "<=Hello World"},
         {"=hello world", "=Hello", "=World*", "=*o*o*o*", "=Hello World ", "= Hello World", "~=hello*",
          "~=hello", "<=Hello", ">=hello", "="}},
        {"OverlappingPieces", std::string("aba"), {"=ab*", "=*ba", "=a*a"}, {"=ab*ba", "=aba*a"}},
        {"SpecialCharacters",
         std::string("(a*b)\\=28"),
         {R"(=\(a\*b\)\\=28)", R"(=(a*b)\\=\28)"},
         {R"(=\(a\*\*b\)\\=28)"}},
        {"EmptyText", std::string(), {"=", "=*", "~= ", "<=a"}, {"=a", ">=a"}},
        {"True", true, {"=true", "=TRUE", "~=True", "=*"}, {"=false", ">=true", "<=true", "=1"}},
        {"Int",
         42,
         {"=42", "= 42", "=42 things", "~=42", ">=42", "<=42", ">=-1", "<=43", "=*"},
         {"=43", "=4*", "=", "=x", ">=43", "<=41"}},
        {"Long", -5L, {"=-5", ">=-6"}, {">=0"}},
        {"Double", 0.5, {"=0.5", "=.5", "=5e-1", "~=0.5", ">=0.25", "<=1"}, {"=0.51", ">=0.6", "=x"}},
        {"Float", 0.1F, {"=0.1"}, {"=0.2"}},
        {"Texts", Strings{"a", "bc"}, {"=a", "=b*", "~=B C", ">=b", "=*"}, {"=c", "=abc", ">=c"}},
        {"Values", std::vector<Any>{1, std::string("x")}, {"=1", "=x", "<=1x"}, {"=2", "=y"}},
        {"NoElements", Strings{}, {"=*"}, {"=", "=a", "~="}},
        {"OtherType", std::make_shared<int>(5), {"=*"}, {"=5", "~=5", ">=0"}}};
    for (const Match& row : table) {
        Filters filters({{"K", row.value}});
        for (const auto& test : row.matched)
            EXPECT_TRUE(filters.match("(k" + test + ")")) << row.name << test;
        for (const auto& test : row.unmatched)
            EXPECT_FALSE(filters.match("(k" + test + ")")) << row.name << test;
    }
}

}  // namespace
