#include <cstdint>
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>

#include "cmddistributor/detail.h"
#include "fl/i18n/messages.h"
#include "nmutil/cmddistributor/arrays.h"
#include "support/thrownText.h"

namespace {

using cmddistributor::detail::Bytes;
using cmddistributor::detail::deserializeMxArrays;
using cmddistributor::detail::serializeMxArrays;

/// A struct array with an array of each other class, of several shapes, and null, in its fields.
matrix::ArrayPtr everything() {
    std::vector<matrix::Field> fields;
    fields.push_back({"text", matrix::create(u"t\u00e9\U0001F600")});
    fields.push_back({"none", nullptr});
    fields.push_back(
        {"numbers", matrix::ArrayPtr(new mxArray({2, 1, 2}, std::vector<double>{1, -0.5, 1e300, 0}))});
    fields.push_back({"flags", matrix::ArrayPtr(new mxArray({3, 1}, std::vector<bool>{true, false, true}))});
    fields.push_back({"cells", matrix::detail::do_create_cell({1, 2})});
    mxSetCell(*fields.back().value, 1,
              matrix::detail::do_create_uninitnumeric({0, 7}, mxDOUBLE_CLASS, mxREAL));
    fields.push_back({"empty", matrix::ArrayPtr(new mxArray({1, 3}, mxArray::Fields{}))});
    return matrix::createStruct(std::move(fields));
}

TEST(ArraysTest, bytesBecomeTheSameArraysAgain) {
    const auto array = everything();
    const auto bytes = serializeMxArrays({array.get(), nullptr});
    const auto read = deserializeMxArrays(bytes);
    EXPECT_EQ(serializeMxArrays({read.at(0).get(), read.at(1).get()}), bytes);
    EXPECT_EQ(matrix::get_ustring(*mxGetField(*read[0], 0, "text")), u"t\u00e9\U0001F600");
    EXPECT_EQ(mxGetField(*read[0], 0, "numbers")->dimensions(), (matrix::Dimensions{2, 1, 2}));
    auto nested = matrix::createScalar(1);
    for (int i = 0; i < 300; ++i) {
        auto outer = matrix::detail::do_create_cell({1, 1});
        mxSetCell(*outer, 0, std::move(nested));
        nested = std::move(outer);
    }
    EXPECT_THROW(serializeMxArrays({nested.get()}), matrix::ArrayException);
}

TEST(ArraysTest, otherBytesAreRefusedOrAreOtherArrays) {
    const Bytes whole = serializeMxArrays({everything().get()}).front();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_THROW(deserializeMxArrays({cut}), matrix::ArrayException) << length;
    }
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int flip : {0x01, 0x80, 0xFF}) {
            Bytes changed = whole;
            changed[at] = static_cast<std::uint8_t>(changed[at] ^ flip);
            try {
                const auto read = deserializeMxArrays({changed});
                EXPECT_EQ(serializeMxArrays({read.at(0).get()}).front(), changed) << at;
            } catch (const matrix::ArrayException&) {
                continue;
            }
        }
    }
    Bytes longer = whole;
    longer.push_back(0);
    const Bytes size{0, 0, 0, 0, 1, 0, 0, 0};  // 2^32
    Bytes wrapping{1, mxDOUBLE_CLASS, 2};
    for (int i = 0; i < 2; ++i) wrapping.insert(wrapping.end(), size.begin(), size.end());
    Bytes nothings{1, mxSTRUCT_CLASS, 1};
    nothings.insert(nothings.end(), size.begin(), size.end());
    nothings.insert(nothings.end(), 4, 0);
    Bytes nested{1};
    for (int i = 0; i < 100'000; ++i) nested.insert(nested.end(), {mxCELL_CLASS, 0});
    for (const Bytes& hostile : {longer, wrapping, nothings, nested})
        EXPECT_THROW(deserializeMxArrays({hostile}), matrix::ArrayException);
    EXPECT_THROW(mxArray({std::size_t{1} << 32U, std::size_t{1} << 32U}, std::vector<double>()),
                 matrix::ArrayException);
}

TEST(ArraysTest, areVerified) {
    using namespace nmutil::cmddistributor::detail;
    const auto one = matrix::createScalar(1), two = matrix::create(u"ab");
    const auto refusal = [&](const mxArray* second) {
        return thrownText([&] { verifyMxArrayTypeAndSize(one.get(), second, mxDOUBLE_CLASS, 1, 1); });
    };
    EXPECT_EQ(refusal(one.get()), "nothing thrown");
    EXPECT_EQ(refusal(two.get()), "expected a 1x1 double array, found a 1x2 char array");
    EXPECT_EQ(refusal(nullptr), "expected a 1x1 double array, found none");
    EXPECT_NO_THROW(verifyMinimumOutputSize(2, 2));
    EXPECT_THROW(verifyMinimumOutputSize(1, 2), matrix::ArrayException);
}

TEST(MessageCatalogTest, putsArgumentsIntoTheirPlaces) {
    using fl::i18n::MessageCatalog;
    EXPECT_EQ(MessageCatalog::format(u"{1}, {0}{0} and {2} {", {u"a{1}", u"b"}), u"b, a{1}a{1} and {2} {");
    EXPECT_EQ(MessageCatalog::get_message(fl::i18n::MessageID("NUMORA:none")), u"NUMORA:none");
    setenv("HOST_INTERFACE_TEST", "\xC3\xA9\xFF", 1);
    EXPECT_EQ(fl::i18n::getenv("HOST_INTERFACE_TEST"), u"\u00e9\uFFFD");
    unsetenv("HOST_INTERFACE_TEST");
    EXPECT_EQ(fl::i18n::getenv("HOST_INTERFACE_TEST"), u"");
    EXPECT_EQ(cmddistributor::detail::demangle(typeid(mxArray)), "mxArray");
}

}  // namespace
