#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "connector/json/parse.h"
#include "foundation/json/Value.h"

namespace foundation::json {
namespace {

using Real = std::numeric_limits<double>;

TEST(JsonValueTest, isSerialized) {
    const std::pair<Value, std::string> table[] = {
        {{}, "null"},
        {"a\"<\xC3(", "\"a\\\"\\u003c\xEF\xBF\xBD(\""},
        {INT64_MIN, "-9223372036854775808"},
        {UINT64_MAX, "18446744073709551615"},
        {Value::Array{0.5F, 3.0, -0.0, Real::quiet_NaN(), -Real::infinity()}, "[0.5,3,-0,null,null]"},
        {Value::Json{"[1, 2]"}, "[1, 2]"},
        {Value::Array{1, "x", nullptr, Value::Array{}, Value::Object{}, true, false},
         "[1,\"x\",null,[],{},true,false]"},
        {Value::Object{{"b", 2}, {"a", Value::Object{{"=", 1}}}}, "{\"a\":{\"\\u003d\":1},\"b\":2}"}};
    for (const auto& [value, text] : table) EXPECT_EQ(serialize(value), text);
}

TEST(JsonValueTest, numbersAreReadBackAsTheSame) {
    for (const double number :
         {0.1, 1.0 / 3, Real::min(), Real::max(), Real::denorm_min(), 1e22, 123456789.0}) {
        const auto read = connector::json::parse(serialize(number));
        EXPECT_EQ(read.convert<double>(), number) << serialize(number);
    }
}

}  // namespace
}  // namespace foundation::json
