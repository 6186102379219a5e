#include "fl/i18n/messages.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "fl/i18n/text.h"

namespace fl::i18n {

namespace {

struct CatalogEntry {
    std::string_view identifier;
    const char16_t* text;
};

constexpr std::array<CatalogEntry, 4> messages{{
    {"NUMORA:services:MissingRequiredCapability",
     u"The client lacks the capability '{0}', which is needed by: {1}"},
    {"NUMORA:services:MissingRequiredCapability_ForUnknownProduct",
     u"The client lacks the capability '{0}', which is needed by: {1}"},
    {"NUMORA:services:MissingRequiredCapability_ForProduct",
     u"{2} lacks the capability '{0}', which is needed by: {1}"},
    {"NUMORA:services:MissingRequiredCapability_Tripwire",
     u"The capability '{0}' should not be needed, but is needed by: {1}"},
}};

}  // namespace

std::u16string MessageCatalog::get_message(const MessageID& id, const std::locale& /*locale*/) {
    const auto found =
        std::ranges::find(messages, std::string_view(id.identifier()), &CatalogEntry::identifier);
    return found == messages.end() ? to_ustring(id.identifier()) : found->text;
}

std::u16string MessageCatalog::GetFormattedMessage(const MessageID& id,
                                                   const std::vector<std::u16string>& arguments) {
    return format(get_message(id), arguments);
}

std::u16string MessageCatalog::format(std::u16string_view text,
                                      const std::vector<std::u16string>& arguments) {
    std::u16string formatted;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isPlace = text.size() - at > 2 && text[at] == u'{' && text[at + 1] >= u'0' &&
                             text[at + 1] <= u'9' && text[at + 2] == u'}';
        const std::size_t index = isPlace ? static_cast<std::size_t>(text[at + 1] - u'0') : arguments.size();
        if (index < arguments.size()) {
            formatted += arguments[index];
            at += 2;
        } else {
            formatted += text[at];
        }
    }
    return formatted;
}

std::u16string getenv(const std::string& name) {
    const char* const value = std::getenv(name.c_str());
    return value != nullptr ? codecvt_string_to_ustring("UTF-8", true)(value) : std::u16string();
}

}  // namespace fl::i18n
