#pragma once

#include "LineSource.h"

namespace app {

/// Lines from a file or a pipe, without prompts.
class PlainLines : public LineSource {
public:
    /// Owns: borrows the descriptor.
    explicit PlainLines(int descriptor) : descriptor_(descriptor) {}

    bool isInteractive() const override { return false; }
    /// Throws: InputError for a line that is not UTF-8; std::system_error.
    Line read(const std::string& prompt) override;
    void remember(const std::string&) override {}

private:
    const int descriptor_;
    std::string pending_;  ///< read already, not yet returned
    std::size_t count_ = 0;
};

}  // namespace app
