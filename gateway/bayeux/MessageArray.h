#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace gateway::bayeux {

/// An array of messages on its way to a client, in pieces that other clients may share: the text of a
/// message to many clients is there once.
///
/// Threads: as a plain value.
class MessageArray {
public:
    /// One message, or several with commas between them.
    using Piece = std::shared_ptr<const std::string>;

    bool empty() const { return pieces_.empty(); }
    /// How long the text is.
    std::size_t size() const { return size_; }
    const std::vector<Piece>& pieces() const { return pieces_; }

    void add(Piece piece) {
        size_ += piece->size() + (pieces_.empty() ? 0 : 1);
        pieces_.push_back(std::move(piece));
    }
    void add(std::string messages) {
        if (!messages.empty()) add(std::make_shared<const std::string>(std::move(messages)));
    }
    void add(const MessageArray& other) {
        for (const auto& piece : other.pieces_) add(piece);
    }

    std::string text() const {
        std::string text = "[";
        text.reserve(size_);
        for (const auto& piece : pieces_) text.append(text.size() > 1 ? "," : "").append(*piece);
        return text.append("]");
    }

private:
    std::vector<Piece> pieces_;
    std::size_t size_ = 2;
};

}  // namespace gateway::bayeux
