#pragma once

#include <locale>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fl::i18n {

/// Names a message: the identifier of an error.
class MessageID {
public:
    explicit MessageID(std::string identifier) : identifier_(std::move(identifier)) {}
    const std::string& identifier() const { return identifier_; }

private:
    std::string identifier_;
};

/// The texts of the host's messages. They are there in English, which every locale gets.
///
/// Threads: any.
class MessageCatalog {
public:
    /// The text, with "{0}", "{1}" and so on where its arguments go; the identifier itself for a message that
    /// the catalog does not have.
    static std::u16string get_message(const MessageID& id, const std::locale& locale = std::locale());

    /// The same with the arguments in their places. A place without an argument stays as it is.
    static std::u16string GetFormattedMessage(const MessageID& id,
                                              const std::vector<std::u16string>& arguments);

    /// `text` with the arguments in their places.
    static std::u16string format(std::u16string_view text, const std::vector<std::u16string>& arguments);
};

/// The value of an environment variable; empty when it is not set. Malformed bytes become U+FFFD.
/// Threads: any, as long as none changes the environment.
std::u16string getenv(const std::string& name);

}  // namespace fl::i18n
