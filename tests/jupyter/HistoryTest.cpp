#include <gmock/gmock.h>

#include "core/History.h"

namespace {

struct HistoryCase {
    std::string name, request, lines;
};
class HistoryTest : public testing::TestWithParam<HistoryCase> {};

TEST_P(HistoryTest, findsCells) {
    jupyter::History history;
    std::uint64_t count = 0;
    for (const auto* code : {"a = 1", "b", "a = 1", "é = [x]\nb"}) history.add(++count, code);
    const jupyter::Request request{
        .message = {.content = GetParam().request}, .id = "1", .type = "history_request"};
    EXPECT_EQ(history.answer(request), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Of, HistoryTest,
    testing::Values(
        HistoryCase{"TheLast", R"({"hist_access_type":"tail","n":2,"output":false})",
                    R"([[1,3,"a \u003d 1"],[1,4,"é \u003d [x]\nb"]])"},
        HistoryCase{"ARangeWithOutputs",
                    R"({"hist_access_type":"range","session":0,"start":2,"stop":3,"output":true})",
                    R"([[1,2,["b",null]]])"},
        HistoryCase{"ARangeFromTheEnd", R"({"hist_access_type":"range","start":-2,"stop":-1})",
                    R"([[1,3,"a \u003d 1"]])"},
        HistoryCase{"AnotherSession", R"({"hist_access_type":"range","session":2})", "[]"},
        HistoryCase{"UniqueOnes", R"({"hist_access_type":"search","pattern":"*=*","unique":true,"n":9})",
                    R"([[1,3,"a \u003d 1"],[1,4,"é \u003d [x]\nb"]])"},
        HistoryCase{"OneCharacter", R"({"hist_access_type":"search","pattern":"? =*x]*b"})",
                    R"([[1,4,"é \u003d [x]\nb"]])"}),
    [](const auto& info) { return info.param.name; });

TEST(HistoryBoundTest, refusesPatternsThatTakeMinutes) {
    const jupyter::Request request{.message = {.content = R"({"hist_access_type":"search","pattern":")" +
                                                          std::string(1001, '*') + "\"}"},
                                   .id = "1",
                                   .type = "history_request"};
    EXPECT_THROW(jupyter::History().answer(request), dispatch::BadMessage);
}

TEST(GlobTest, looksAtManyStarsInTimeAndAtAllOfTheText) {
    const std::string text(20'000, 'a');
    EXPECT_FALSE(jupyter::matchesGlob("*a*a*a*a*a*a*a*a*b", text));
    EXPECT_FALSE(jupyter::matchesGlob("a*", "ba"));
    EXPECT_FALSE(jupyter::matchesGlob("a?", "a"));
}

}  // namespace
