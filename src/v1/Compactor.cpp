#include "v1/Compactor.h"

#include <Poco/JSON/Stringifier.h>
#include <Poco/NumberFormatter.h>

#include "fl/i18n/text.h"
#include "v1/jsonFields.h"

namespace connector::interpreter::v1 {

using Poco::Dynamic::Var;
using Poco::JSON::Array;

std::u16string Compactor::operator()(const Var& value) {
    text_.clear();
    append(value);
    return fl::i18n::to_ustring(text_);
}

void Compactor::append(const Var& value) {
    if (value.type() == typeid(double)) {
        Poco::NumberFormatter::append(text_, value.extract<double>());
    } else if (value.type() == typeid(Poco::Int64)) {
        Poco::NumberFormatter::append(text_, value.extract<Poco::Int64>());
    } else if (holds<Array>(value)) {
        appendArray(containerIn<Array>(value));
    } else {
        stream_.str(std::string());
        Poco::JSON::Stringifier::condense(value, stream_);
        text_ += stream_.view();
    }
}

void Compactor::appendArray(const Array& array) {
    const char* separator = "[";
    for (const Var& element : array) {
        text_ += separator;
        append(element);
        separator = ",";
    }
    text_ += array.size() == 0 ? "[]" : "]";
}

}  // namespace connector::interpreter::v1
