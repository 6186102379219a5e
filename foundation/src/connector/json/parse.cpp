#include "connector/json/parse.h"

#include <utility>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "connector/json/Rewriter.h"
#include "connector/json/Scanner.h"

namespace connector::json {

namespace {

using Poco::Dynamic::Var;

class TreeReader {
public:
    TreeReader(std::string_view text, std::size_t maxDepth, std::size_t maxValues, std::string_view asText)
        : scan_(text, maxDepth), valuesLeft_(maxValues), asText_(asText) {}

    Var read() {
        Var value = readValue();
        scan_.skipBlanks();
        if (!scan_.isAtEnd()) scan_.fail("unexpected text after the value");
        return value;
    }

private:
    Var readValue() {
        scan_.skipBlanks();
        if (valuesLeft_-- == 0) throw TooManyValues(scan_.offset(), "too many values");
        switch (scan_.peek()) {
            case '{':
                return readObject();
            case '[':
                return readArray();
            case '"':
                scan_.next('"');
                return readString();
            case 't':
                return readWord("true", true);
            case 'f':
                return readWord("false", false);
            case 'n':
                return readWord("null", Var());
            default:
                if (scan_.peek() == '-' || isDigit(scan_.peek())) return readNumber();
                scan_.failExpecting("a value");
        }
    }

    Var readArray() {
        scan_.enter();
        Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
        if (!scan_.next(']')) {
            do array->add(readValue());
            while (scan_.next(','));
            if (!scan_.next(']')) scan_.failExpecting("',' or ']'");
        }
        scan_.leave();
        return array;
    }

    Var readObject() {
        scan_.enter();
        Poco::JSON::Object::Ptr object = new Poco::JSON::Object;
        if (!scan_.next('}')) {
            do {
                if (!scan_.next('"')) scan_.failExpecting("a key in quotes");
                std::string key = readString();
                if (!scan_.next(':')) scan_.failExpecting("':'");
                object->set(key, readMember(key));
            } while (scan_.next(','));
            if (!scan_.next('}')) scan_.failExpecting("',' or '}'");
        }
        scan_.leave();
        return object;
    }

    Var readMember(const std::string& key) {
        scan_.skipBlanks();
        const bool isContainer = scan_.peek() == '[' || scan_.peek() == '{';
        if (asText_.empty() || key != asText_ || !isContainer) return readValue();
        auto json = std::make_shared<std::string>();
        rewriter_.write(*json);
        json->shrink_to_fit();
        return Text{std::move(json)};
    }

    Var readWord(std::string_view word, Var value) {
        scan_.skipWord(word);
        return value;
    }

    Var readNumber() {
        const char* const first = scan_.place();
        if (scan_.skipNumber()) return scan_.integer(first);
        return scan_.real(first);
    }

    std::string readString() {
        std::string text;
        scan_.readString(text);
        return text;
    }

    Scanner scan_;
    Rewriter rewriter_{scan_};
    std::size_t valuesLeft_;
    const std::string_view asText_;
};

}  // namespace

Var parse(std::string_view text, std::size_t depth, std::size_t values, std::string_view asText) {
    return TreeReader(text, depth, values, asText).read();
}

}  // namespace connector::json
