#include <ostream>
#include <string>

#include "CoalescingTextBufferFixture.h"
#include "connector/interpreter/v1/AsyncEvalStreamBuf.h"

namespace connector::interpreter::v1 {
namespace {

class AsyncEvalStreamBufTest : public testing::Test {
protected:
    AsyncEvalStreamBufTest() { text_.setCallback(batches_.callback()); }

    Batches batches_;
    ManualTextBuffer text_;
    AsyncEvalStreamBuf outBuffer_{text_, out};
    AsyncEvalStreamBuf errBuffer_{text_, err};
    std::basic_ostream<char16_t> out_{&outBuffer_};
    std::basic_ostream<char16_t> err_{&errBuffer_};
};

TEST_F(AsyncEvalStreamBufTest, leadsTextToItsStreamAndLeavesItPending) {
    out_.write(u"ab", 2).put(u'c').flush();
    EXPECT_THAT(batches_.all(), testing::IsEmpty());
    err_.write(u"d", 1);
    text_.flush();
    EXPECT_THAT(batches_.all(), testing::ElementsAre(Batch("\"abc\"", out), Batch("\"d\"", err)));
}

TEST_F(AsyncEvalStreamBufTest, swallowsTextAfterItWasStopped) {
    out_.write(u"a", 1);
    outBuffer_.stop();
    outBuffer_.stop();
    EXPECT_TRUE(out_.write(u"bc", 2).put(u'd').flush().good());
    EXPECT_EQ(outBuffer_.sputn(u"ef", 2), 2);
    EXPECT_EQ(outBuffer_.sputc(u'g'), u'g');
    err_.write(u"still", 5);
    text_.flush();
    EXPECT_THAT(batches_.all(), testing::ElementsAre(Batch("\"a\"", out), Batch("\"still\"", err)));
}

}  // namespace
}  // namespace connector::interpreter::v1
