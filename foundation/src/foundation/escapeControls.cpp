#include "foundation/escapeControls.h"

namespace foundation::log {

namespace {

/// The separators of lines and the controls beyond ASCII, by the bytes of their UTF-8; 0 for other text.
unsigned controlBeyondAscii(std::string_view rest) {
    const auto byte = [rest](std::size_t i) { return static_cast<unsigned char>(rest[i]); };
    if (rest.size() >= 2 && byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0) return byte(1);
    if (rest.starts_with("\xE2\x80\xA8")) return 0x2028;
    if (rest.starts_with("\xE2\x80\xA9")) return 0x2029;
    return 0;
}

void appendHex(std::string& to, unsigned value, int digits) {
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        to.push_back("0123456789abcdef"[(value >> static_cast<unsigned>(shift)) & 15U]);
    }
}

void appendEscape(std::string& to, unsigned char control) {
    constexpr std::string_view known = "\n\r\t";
    to.push_back('\\');
    if (const auto which = known.find(static_cast<char>(control)); which != std::string_view::npos) {
        to.push_back("nrt"[which]);
    } else {
        to.push_back('x');
        appendHex(to, control, 2);
    }
}

}  // namespace

std::string escapeControls(std::string_view utf8, std::size_t longest) {
    while (utf8.ends_with('\n') || utf8.ends_with('\r')) utf8.remove_suffix(1);
    std::string line;
    while (!utf8.empty()) {
        const auto byte = static_cast<unsigned char>(utf8.front());
        const bool isContinuation = (byte & 0xC0U) == 0x80;
        if (line.size() >= longest && !isContinuation) {
            return line + " ... and " + std::to_string(utf8.size()) + " bytes more";
        }
        std::size_t taken = 1;
        if (byte < 0x20) {
            appendEscape(line, byte);
        } else if (byte == 0x7F) {
            line += "\\u007f";  // in JSON, too, in which it may stand as it is
        } else if (const unsigned control = byte < 0x80 ? 0 : controlBeyondAscii(utf8)) {
            line += "\\u";
            appendHex(line, control, 4);
            taken = control < 0x100 ? 2 : 3;
        } else {
            line.push_back(utf8.front());
        }
        utf8.remove_prefix(taken);
    }
    return line;
}

}  // namespace foundation::log
