#pragma once

#include <string>
#include <utility>
#include <vector>

namespace app {

/// The arguments of a program in the form that exec takes.
class Arguments {
public:
    explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {
        for (auto& word : words_) pointers_.push_back(word.data());
        pointers_.push_back(nullptr);
    }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    /// Owns: valid as long as this is.
    char* const* get() const { return pointers_.data(); }

private:
    std::vector<std::string> words_;
    std::vector<char*> pointers_;
};

}  // namespace app
