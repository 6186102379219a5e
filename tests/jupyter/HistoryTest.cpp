#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "connector/identifiers.h"
#include "core/History.h"

namespace {

std::string answer(jupyter::History& history, const std::string& content) {
    return history.answer({.message = {.content = content}, .id = "1", .type = "history_request"});
}

struct HistoryCase {
    std::string name, request, lines;
};
class HistoryTest : public testing::TestWithParam<HistoryCase> {};

TEST_P(HistoryTest, findsCells) {
    jupyter::History history;
    std::uint64_t count = 0;
    for (const auto* code : {"a = 1", "b", "a = 1", "é = [x]\nb"}) history.add(++count, code);
    EXPECT_EQ(answer(history, GetParam().request), GetParam().lines);
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

TEST(HistoryBoundTest, searchesInTime) {
    jupyter::History history;
    history.add(1, std::string(20'000, 'a'));
    EXPECT_EQ(answer(history, R"({"hist_access_type":"search","pattern":"*a*a*a*a*a*a*a*a*b"})"), "[]");
    EXPECT_THROW(
        answer(history, R"({"hist_access_type":"search","pattern":")" + std::string(201, '*') + "\"}"),
        dispatch::BadMessage);
}

class HistoryFileTest : public testing::Test {
protected:
    ~HistoryFileTest() override { std::filesystem::remove_all(file_.parent_path()); }

    const std::filesystem::path file_ =
        std::filesystem::path(testing::TempDir()) / connector::randomUuid() / "history";
};

TEST_F(HistoryFileTest, isSharedByKernelsAndForgetsTheOldest) {
    jupyter::History first(file_), second(file_);
    first.add(1, "a");
    first.store();
    second.add(1, "b");
    second.beginSession();
    first.add(2, "c");
    first.store();
    second.add(1, "d");
    second.store();
    EXPECT_EQ(answer(first, R"({"hist_access_type":"tail"})"),
              R"([[1,1,"a"],[2,1,"b"],[1,2,"c"],[3,1,"d"]])");
    EXPECT_EQ(answer(second, R"({"hist_access_type":"range","session":-1})"), R"([[2,1,"b"]])");
    EXPECT_EQ(std::filesystem::status(file_).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    for (int i = 0; i < 6; ++i) first.add(3, std::string(1'000'000, static_cast<char>('e' + i)));
    first.add(4, std::string(jupyter::History::longestCell + 1, 'x'));
    const auto left = answer(second, R"({"hist_access_type":"tail"})");
    EXPECT_THAT(
        left,
        testing::AllOf(testing::SizeIs(testing::Lt(6'000'000)), testing::HasSubstr("jjj"),
                       testing::Not(testing::AnyOf(testing::HasSubstr("xxx"), testing::HasSubstr("eee")))));
}

TEST_F(HistoryFileTest, isInMemoryWhereTheFileIsNone) {
    std::filesystem::create_directories(file_.parent_path());
    std::ofstream(file_) << std::string(5'000, 'x');
    jupyter::History history(file_);
    history.add(1, "a");
    EXPECT_EQ(answer(history, R"({"hist_access_type":"tail"})"), R"([[1,1,"a"]])");
    EXPECT_EQ(std::filesystem::file_size(file_), 5'000U);
}

}  // namespace
