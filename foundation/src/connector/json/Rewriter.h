#pragma once

#include <string>

#include "connector/json/Scanner.h"

namespace connector::json {

/// Copies JSON values in the form that a Text has, without making a tree of them.
///
/// Threads: one at a time.
class Rewriter {
public:
    /// Owns: borrows `scanner`.
    explicit Rewriter(Scanner& scanner) : scan_(scanner) {}

    /// Appends the value that comes next.  Throws: as Scanner.
    void write(std::string& out);

private:
    void rewriteArray(std::string& out);
    void rewriteObject(std::string& out);
    void rewriteKey(std::string& out);
    void rewriteNumber(std::string& out);
    void skipString();

    Scanner& scan_;
    std::string scratch_;  ///< the last string, without its escapes
};

}  // namespace connector::json
