#include <array>
#include <charconv>
#include <cmath>

#include "connector/common/DataBuffer.h"
#include "connector/json/escape.h"
#include "foundation/json/Value.h"

namespace foundation::json {

namespace {

class ValueWriter {
public:
    explicit ValueWriter(connector::common::DataBuffer& out) : out_(out) {}

    void write(const Value& value) { std::visit(*this, value.content()); }

    void operator()(std::nullptr_t) { out_.append("null"); }
    void operator()(bool value) { out_.append(value ? "true" : "false"); }
    void operator()(std::int64_t value) { writeNumber(value); }
    void operator()(std::uint64_t value) { writeNumber(value); }
    void operator()(double value) {
        if (!std::isfinite(value)) return out_.append("null");
        writeNumber(value);
    }
    void operator()(const std::string& text) {
        out_.push_back('"');
        connector::json::appendEscaped(out_, text);
        out_.push_back('"');
    }
    void operator()(const Value::Json& json) { out_.append(json.text); }
    void operator()(const Value::Array& elements) {
        out_.push_back('[');
        for (const Value& element : elements) {
            if (&element != elements.data()) out_.push_back(',');
            write(element);
        }
        out_.push_back(']');
    }
    void operator()(const Value::Object& members) {
        char separator = '{';
        for (const auto& [key, value] : members) {
            out_.push_back(std::exchange(separator, ','));
            (*this)(key);
            out_.push_back(':');
            write(value);
        }
        out_.append(members.empty() ? "{}" : "}");
    }

private:
    template <class T>
    void writeNumber(T value) {
        std::array<char, 32> text;
        const char* end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
        out_.append({text.data(), static_cast<std::size_t>(end - text.data())});
    }

    connector::common::DataBuffer& out_;
};

}  // namespace

std::string serialize(const Value& value) {
    connector::common::DataBuffer out;
    ValueWriter(out).write(value);
    return std::string(out.view());
}

}  // namespace foundation::json
