#include "python/ArrayReader.h"

#include <charconv>
#include <limits>
#include <system_error>

namespace standalone {

namespace {

constexpr std::size_t maximumDimensions = 32;  // as many as NumPy has
constexpr int safeDigits = 18;                 // that many always fit into 64 bits

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

class Reader {
public:
    Reader(std::string_view json, NumberArray& array)
        : at_(json.data()), end_(json.data() + json.size()), array_(array) {}

    bool read() {
        if (!next('[') || !readItems(0) || hasMore()) return false;
        if (isFloat_ || count_ == 0) {
            array_.elements = std::move(floats_);
        } else if (isBoolean_) {
            array_.elements = std::move(booleans_);
        } else {
            array_.elements = std::move(integers_);
        }
        return true;
    }

private:
    // Whether the text goes on after the array, which it must not.
    bool hasMore() {
        skipBlanks();
        return at_ != end_;
    }

    void skipBlanks() {
        while (at_ != end_ && isBlank(*at_)) ++at_;
    }
    bool next(char c) {
        skipBlanks();
        if (at_ == end_ || *at_ != c) return false;
        ++at_;
        return true;
    }

    // From after the opening bracket of an array in dimension `level` to after the closing one.
    bool readItems(std::size_t level) {
        const bool isFirst = level == array_.shape.size();
        if (isFirst) {
            if (level == maximumDimensions || isLeafKnown_) return false;
            array_.shape.push_back(0);
        }
        std::int64_t count = 0;
        if (!next(']')) {
            do {
                if (!readItem(level)) return false;
                ++count;
            } while (next(','));
            if (!next(']')) return false;
        } else if (isFirst) {
            isLeafKnown_ = true;  // an empty array has no dimension below it
        }
        // The inner arrays have set their own, when this was the first.
        if (isFirst) array_.shape[level] = count;
        return array_.shape[level] == count;
    }

    bool readItem(std::size_t level) {
        if (next('[')) return readItems(level + 1);
        if (level + 1 != array_.shape.size()) return false;
        isLeafKnown_ = true;
        ++count_;
        return readElement();
    }

    bool readElement() {
        if (at_ == end_) return false;
        switch (*at_) {
            case 't':
                return word("true") && addBoolean(true);
            case 'f':
                return word("false") && addBoolean(false);
            case 'n':
                return word("null") && addFloat(std::numeric_limits<double>::quiet_NaN());
            default:
                return readNumber();
        }
    }
    bool word(std::string_view text) {
        if (static_cast<std::size_t>(end_ - at_) < text.size() ||
            std::string_view(at_, text.size()) != text) {
            return false;
        }
        at_ += text.size();
        return true;
    }

    bool readNumber() {
        const char* const start = at_;
        if (*at_ == '-') ++at_;
        const char* const digits = at_;
        std::int64_t value = 0;
        while (at_ != end_ && isDigit(*at_)) {
            if (at_ - digits < safeDigits) value = value * 10 + (*at_ - '0');
            ++at_;
        }
        const auto count = at_ - digits;
        if (count == 0 || (*digits == '0' && count > 1)) return false;
        if (at_ == end_ || (*at_ != '.' && *at_ != 'e' && *at_ != 'E')) {
            if (count > safeDigits && std::from_chars(start, at_, value).ec != std::errc()) return false;
            if (count <= safeDigits && *start == '-') value = -value;
            return addInteger(value);
        }
        if (*at_ == '.' && !skipDigits()) return false;
        if (at_ != end_ && (*at_ == 'e' || *at_ == 'E')) {
            if (end_ - at_ > 1 && (at_[1] == '+' || at_[1] == '-')) ++at_;
            if (!skipDigits()) return false;
        }
        double number = 0;
        // A number beyond the range of a double is left to the general reader, which has a word for it.
        return std::from_chars(start, at_, number).ec == std::errc() && addFloat(number);
    }
    // The digits after the character at this place; there has to be one.
    bool skipDigits() {
        const char* const first = ++at_;
        while (at_ != end_ && isDigit(*at_)) ++at_;
        return at_ != first;
    }

    bool addBoolean(bool value) {
        if (count_ > 1 && !isBoolean_) return false;
        isBoolean_ = true;
        booleans_.push_back(value ? 1 : 0);
        return true;
    }
    bool addInteger(std::int64_t value) {
        if (isBoolean_) return false;
        if (isFloat_) {
            floats_.push_back(static_cast<double>(value));
        } else {
            integers_.push_back(value);
        }
        return true;
    }
    bool addFloat(double value) {
        if (isBoolean_) return false;
        if (!isFloat_) {
            isFloat_ = true;
            floats_.assign(integers_.begin(), integers_.end());
            integers_ = {};
        }
        floats_.push_back(value);
        return true;
    }

    const char* at_;
    const char* const end_;
    NumberArray& array_;
    std::vector<double> floats_;
    std::vector<std::int64_t> integers_;
    std::vector<std::uint8_t> booleans_;
    std::size_t count_ = 0;
    bool isFloat_ = false;
    bool isBoolean_ = false;
    bool isLeafKnown_ = false;  // the innermost dimension has been seen
};

}  // namespace

bool readNumberArray(std::string_view json, NumberArray& array) { return Reader(json, array).read(); }

}  // namespace standalone
