#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "connector/json/parse.h"
#include "foundation/json/Value.h"

namespace foundation::json {
namespace {

struct ValueCase {
    std::string name;
    Value value;
    std::string text;
};
void PrintTo(const ValueCase& value, std::ostream* out) { *out << value.name; }
class JsonValueTest : public testing::TestWithParam<ValueCase> {};

TEST_P(JsonValueTest, isSerialized) { EXPECT_EQ(serialize(GetParam().value), GetParam().text); }

using Real = std::numeric_limits<double>;

INSTANTIATE_TEST_SUITE_P(
    Kinds, JsonValueTest,
    testing::Values(
        ValueCase{"Null", {}, "null"}, ValueCase{"True", true, "true"}, ValueCase{"False", false, "false"},
        ValueCase{"Text", "a\"<\xC3(", "\"a\\\"\\u003c\xEF\xBF\xBD(\""},
        ValueCase{"Smallest", INT64_MIN, "-9223372036854775808"},
        ValueCase{"Largest", UINT64_MAX, "18446744073709551615"}, ValueCase{"Half", 0.5F, "0.5"},
        ValueCase{"WholeReal", 3.0, "3"}, ValueCase{"NegativeZero", -0.0, "-0"},
        ValueCase{"NotANumber", Real::quiet_NaN(), "null"}, ValueCase{"Infinity", -Real::infinity(), "null"},
        ValueCase{"Written", Value::Json{"[1, 2]"}, "[1, 2]"}, ValueCase{"EmptyArray", Value::Array{}, "[]"},
        ValueCase{"EmptyObject", Value::Object{}, "{}"},
        ValueCase{"Array", Value::Array{1, "x", nullptr, Value::Array{true}}, "[1,\"x\",null,[true]]"},
        ValueCase{"Object", Value::Object{{"b", 2}, {"a", Value::Object{{"=", 1}}}},
                  "{\"a\":{\"\\u003d\":1},\"b\":2}"}),
    [](const auto& info) { return info.param.name; });

TEST(JsonValueNumberTest, readsBackAsTheSame) {
    for (const double number :
         {0.1, 1.0 / 3, Real::min(), Real::max(), Real::denorm_min(), 1e22, 123456789.0}) {
        const auto read = connector::json::parse(serialize(number));
        EXPECT_EQ(read.convert<double>(), number) << serialize(number);
    }
}

}  // namespace
}  // namespace foundation::json
