#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <gtest/gtest.h>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/BundleVersion.h"

namespace {

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using cppmicroservices::BundleVersion;

static_assert(!std::is_constructible_v<Any, decltype("x")>, "a text is to be a std::string");

TEST(AnyTest, givesItsValueAsItsExactTypeOnly) {
    Any any = 7;
    EXPECT_EQ(any_cast<int>(any), 7);
    EXPECT_THROW(any_cast<long>(any), std::bad_cast);
    EXPECT_EQ(any_cast<long>(&any), nullptr);
    *any_cast<int>(&any) = 8;
    EXPECT_EQ(any.ToString(), "8");
    EXPECT_EQ(any.Type(), typeid(int));
}

TEST(AnyTest, copiesItsValue) {
    Any any = std::string("a");
    const Any copy = any;
    *any_cast<std::string>(&any) = "b";
    EXPECT_EQ(any_cast<std::string>(copy), "a");
    any = copy;
    EXPECT_EQ(any_cast<std::string>(any), "a");
}

TEST(AnyTest, canBeEmpty) {
    const Any empty;
    EXPECT_TRUE(empty.Empty());
    EXPECT_FALSE(Any(0).Empty());
    EXPECT_THROW(empty.ToString(), std::logic_error);
    EXPECT_THROW(any_cast<int>(empty), std::bad_cast);
}

TEST(AnyTest, takesContainers) {
    const std::vector<Any> values{1, std::string("x"), Any()};
    EXPECT_EQ(any_cast<std::vector<Any>>(Any(values)).size(), 3U);
    EXPECT_NE(Any(values).ToString().find('x'), std::string::npos);
}

TEST(AnyMapTest, looksKeysUpByItsKind) {
    AnyMap byCase(AnyMap::UNORDERED_MAP);
    byCase["Key"] = 1;
    EXPECT_EQ(byCase.count("key"), 0U);
    AnyMap anyCase(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    anyCase["Key"] = 1;
    anyCase["kEY"] = 2;
    EXPECT_EQ(anyCase.size(), 1U);
    const AnyMap copy = anyCase;
    EXPECT_EQ(any_cast<int>(copy.at("KEY")), 2);
}

struct Version {
    std::string name, text, normal;  ///< normal: empty when it is none
};
class BundleVersionTest : public testing::TestWithParam<Version> {};

TEST_P(BundleVersionTest, isReadFromText) {
    if (GetParam().normal.empty()) {
        EXPECT_THROW(BundleVersion(GetParam().text), std::invalid_argument);
    } else {
        EXPECT_EQ(BundleVersion(GetParam().text).ToString(), GetParam().normal);
    }
}

INSTANTIATE_TEST_SUITE_P(Text, BundleVersionTest,
                         testing::Values(Version{"One", "1", "1.0.0"}, Version{"Two", "1.22", "1.22.0"},
                                         Version{"Four", "1.2.3.rc.1", "1.2.3.rc.1"}, Version{"None", "", ""},
                                         Version{"Cut", "1.", ""}, Version{"Text", "1.x", ""},
                                         Version{"Trailing", "1.2.3x", ""}, Version{"Negative", "-1", ""},
                                         Version{"EndsInADot", "1.2.3.", ""}),
                         [](const auto& info) { return info.param.name; });

TEST(BundleVersionOrderTest, isOrderedByItsNumbers) {
    EXPECT_LT(BundleVersion("1.9"), BundleVersion("1.10"));
    EXPECT_LT(BundleVersion("1.10"), BundleVersion("1.10.0.a"));
}

}  // namespace
