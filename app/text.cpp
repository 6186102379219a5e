#include "text.h"

#include <Poco/UTF8Encoding.h>

namespace app {

namespace {

// 0 for a byte that begins no sequence.
std::size_t sequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    if (lead < 0xE0) return 2;
    return lead < 0xF0 ? 3 : 4;
}

}  // namespace

void requireUtf8(const std::string& what, std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(text.data() + at);
        const std::size_t length = sequenceLength(*bytes);
        if (length == 0 || length > text.size() - at ||
            !Poco::UTF8Encoding::isLegal(bytes, static_cast<int>(length))) {
            throw InputError(what + " is not valid UTF-8: wrong byte at offset " + std::to_string(at));
        }
        at += length;
    }
}

std::string withFinalNewline(std::string text) {
    if (!text.ends_with('\n')) text += '\n';
    return text;
}

}  // namespace app
