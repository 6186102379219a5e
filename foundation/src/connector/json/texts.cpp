// What is done with arrays and objects that were read as texts.

#include <utility>
#include <vector>

#include <Poco/JSON/Array.h>

#include "connector/json/parse.h"

namespace connector::json {

using Poco::Dynamic::Var;

namespace {

void expandWithin(const Var& value);

Var expanded(const Text& text) { return parse(*text.json); }

void expandWithin(Poco::JSON::Array::Ptr array) {
    for (unsigned i = 0; i < array->size(); ++i) {
        const Var element = array->get(i);
        if (element.type() == typeid(Text)) array->set(i, expanded(element.extract<Text>()));
        expandWithin(element);
    }
}

void expandWithin(const Var& value) {
    if (value.type() == typeid(Poco::JSON::Array::Ptr)) expandWithin(value.extract<Poco::JSON::Array::Ptr>());
    if (value.type() == typeid(Poco::JSON::Object::Ptr))
        expandTexts(value.extract<Poco::JSON::Object::Ptr>());
}

}  // namespace

void expandTexts(Poco::JSON::Object::Ptr object) {
    std::vector<std::string> texts;
    for (const auto& [name, value] : std::as_const(*object)) {
        if (value.type() == typeid(Text)) texts.push_back(name);
        expandWithin(value);
    }
    for (const auto& name : texts) object->set(name, expanded(object->get(name).extract<Text>()));
}

void forEachElement(const Text& array, const std::function<void(std::string_view)>& action) {
    const std::string_view json = *array.json;
    std::size_t depth = 0;
    std::size_t begin = 1;
    for (std::size_t at = 0; at < json.size(); ++at) {
        const char c = json[at];
        if (c == '"') {
            for (++at; json[at] != '"'; ++at) at += json[at] == '\\' ? 1 : 0;
        } else if (c == '[' || c == '{') {
            ++depth;
        } else if (c == ']' || c == '}') {
            --depth;
        }
        const bool isEnd = depth == 0;
        if (isEnd ? at > begin : (depth == 1 && c == ',')) {
            action(json.substr(begin, at - begin));
            begin = at + 1;
        }
    }
}

}  // namespace connector::json
