#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <Poco/Dynamic/Var.h>

#include "connector/json/parse.h"

namespace connector::json {

inline bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Goes through a JSON text token by token, and says where and why it is malformed.
///
/// Threads: one at a time.  Throws: ParseError, from every operation that moves on; std::bad_alloc.
class Scanner {
public:
    Scanner(std::string_view text, std::size_t maxDepth)
        : start_(text.data()), at_(text.data()), end_(text.data() + text.size()), maxDepth_(maxDepth) {}

    const char* place() const { return at_; }
    std::size_t offset() const { return static_cast<std::size_t>(at_ - start_); }
    bool isAtEnd() const { return at_ == end_; }
    /// The text from `first`, an earlier place, to here.
    std::string_view since(const char* first) const { return {first, static_cast<std::size_t>(at_ - first)}; }

    [[noreturn]] void fail(const std::string& reason) const { failAt(at_, reason); }
    /// Says that what stands in `wanted` must be here.
    [[noreturn]] void failExpecting(const char* wanted) const;

    char peek() const { return at_ == end_ ? '\0' : *at_; }
    void skipBlanks() {
        while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) ++at_;
    }
    /// Moves past blanks and then `c`, if that is next.
    bool next(char c) {
        skipBlanks();
        if (at_ == end_ || *at_ != c) return false;
        ++at_;
        return true;
    }

    /// Moves past the bracket that opens an array or an object.
    void enter() {
        if (++depth_ > maxDepth_) fail("arrays and objects are nested too deeply");
        ++at_;
    }
    void leave() { --depth_; }

    /// Moves past `word`, such as true.
    void skipWord(std::string_view word);
    /// Moves past a number. Returns whether it is an integer.
    bool skipNumber();
    /// The number that begins at `first` and ends here: Poco::Int64 or Poco::UInt64 where it fits, else
    /// double.
    Poco::Dynamic::Var integer(const char* first) const;
    double real(const char* first) const;
    /// Appends the string after whose opening quote this stands, and moves past the closing one.
    void readString(std::string& text);

private:
    [[noreturn]] void failAt(const char* place, const std::string& reason) const;
    void skipDigits();
    void appendPlain(std::string& text);
    void requireUtf8(std::string_view text, const char* place) const;
    void appendEscape(std::string& text);
    void appendCodePoint(std::string& text);
    char16_t readUnit();

    const char* const start_;
    const char* at_;
    const char* const end_;
    const std::size_t maxDepth_;
    std::size_t depth_ = 0;
};

}  // namespace connector::json
