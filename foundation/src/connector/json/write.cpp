#include "connector/json/write.h"

#include <cmath>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/NumberFormatter.h>

#include "connector/json/escape.h"
#include "connector/json/parse.h"

namespace connector::json {

namespace {

using common::DataBuffer;
using Poco::Dynamic::Var;
using Poco::JSON::Array;
using Poco::JSON::Object;

void writeString(const std::string& text, DataBuffer& out) {
    out.push_back('"');
    appendEscaped(out, text);
    out.push_back('"');
}

void writeArray(const Array& array, DataBuffer& out) {
    out.push_back('[');
    bool isFirst = true;
    for (const Var& element : array) {
        if (!isFirst) out.push_back(',');
        isFirst = false;
        write(element, out);
    }
    out.push_back(']');
}

void writeObject(const Object& object, DataBuffer& out) {
    out.push_back('{');
    bool isFirst = true;
    // The names are in the object's own order, which its iterators do not know. As a rule it is theirs, and
    // then no value has to be looked up, nor copied.
    auto next = object.begin();
    for (const std::string& name : object.getNames()) {
        if (!isFirst) out.push_back(',');
        isFirst = false;
        writeString(name, out);
        out.push_back(':');
        if (next != object.end() && next->first == name) {
            write((next++)->second, out);
        } else {
            write(object.get(name), out);
        }
    }
    out.push_back('}');
}

// Such characters stand in strings only.
void writeText(std::string_view json, DataBuffer& out) {
    constexpr std::string_view markup = "&'<=>";
    while (!json.empty()) {
        const auto plain = json.substr(0, json.find_first_of(markup));
        out.append(plain);
        json.remove_prefix(plain.size());
        if (json.empty()) return;
        appendEscaped(out, json.substr(0, 1));
        json.remove_prefix(1);
    }
}

void writeReal(double value, DataBuffer& out) {
    out.append(std::isfinite(value) ? Poco::NumberFormatter::format(value) : "null");
}

}  // namespace

void write(const Var& value, DataBuffer& out) {
    const std::type_info& type = value.type();
    if (value.isEmpty()) {
        out.append("null");
    } else if (type == typeid(std::string)) {
        writeString(value.extract<std::string>(), out);
    } else if (type == typeid(bool)) {
        out.append(value.extract<bool>() ? "true" : "false");
    } else if (type == typeid(double) || type == typeid(float)) {
        writeReal(value.convert<double>(), out);
    } else if (value.isInteger()) {
        out.append(value.convert<std::string>());
    } else if (type == typeid(Text)) {
        writeText(*value.extract<Text>().json, out);
    } else if (type == typeid(Array::Ptr)) {
        writeArray(*value.extract<Array::Ptr>(), out);
    } else if (type == typeid(Array)) {
        writeArray(value.extract<Array>(), out);
    } else if (type == typeid(Object::Ptr)) {
        writeObject(*value.extract<Object::Ptr>(), out);
    } else {
        writeObject(value.extract<Object>(), out);
    }
}

std::string written(const Var& value) {
    DataBuffer out;
    write(value, out);
    return std::string(out.view());
}

}  // namespace connector::json
