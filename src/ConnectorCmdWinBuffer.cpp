#include "connector/interpreter/ConnectorCmdWinBuffer.h"

#include <algorithm>

namespace connector::interpreter {

namespace {

constexpr char16_t backspace = u'\b';

// Gives what this gives: at each index from 1 on, if a backspace stands there, erase it and the unit before
// it and go on with the next index. The two units that move up into the erased places are thus never looked
// at. Done in one pass, because erasing in place is quadratic, and progress displays consist of backspaces.
void carryOutBackspaces(std::u16string& text) {
    std::size_t kept = text.find(backspace, 1);
    if (kept == std::u16string::npos) return;
    const std::size_t size = text.size();
    for (std::size_t next = kept; next < size;) {
        if (text[next] != backspace) {
            text[kept++] = text[next++];
            continue;
        }
        --kept;
        const std::size_t unseenEnd = std::min(++next + 2, size);
        while (next < unseenEnd) text[kept++] = text[next++];
    }
    text.resize(kept);
}

}  // namespace

ConnectorCmdWinBuffer::ConnectorCmdWinBuffer(std::size_t size) : storage_(size), start_(storage_.data()) {
    resetPutArea();
}

void ConnectorCmdWinBuffer::clear() {
    resetPutArea();
    start_ = pbase();
    truncated_ = false;
    wrapped_ = false;
}

// Reads through the put area and not through storage_, so that a copy that was not cleared yet still reads
// one storage.
std::u16string ConnectorCmdWinBuffer::getString() const {
    std::u16string text;
    if (wrapped_) {
        text.reserve(static_cast<std::size_t>(epptr() - pbase()));
        // start_ is the put position, unless sputc() has written since, which goes past xsputn().
        const char16_t* const oldest = std::max<const char16_t*>(start_, pptr());
        text.append(oldest, static_cast<std::size_t>(epptr() - oldest));
    }
    text.append(pbase(), pptr());
    carryOutBackspaces(text);
    return text;
}

std::streamsize ConnectorCmdWinBuffer::xsputn(const char16_t* text, std::streamsize count) {
    if (count < 1) return count;
    const auto length = static_cast<std::size_t>(count);
    const auto room = static_cast<std::size_t>(epptr() - pptr());
    if (length <= room) {
        append(text, length);
        if (wrapped_) start_ = pptr();
    } else if (length > storage_.size()) {
        clear();
        truncated_ = true;
        append(text + (length - storage_.size()), storage_.size());
    } else {
        append(text, room);
        resetPutArea();
        append(text + room, length - room);
        truncated_ = true;
        wrapped_ = true;
        start_ = pptr();
    }
    return count;
}

ConnectorCmdWinBuffer::int_type ConnectorCmdWinBuffer::overflow(int_type unit) {
    const char16_t text = traits_type::to_char_type(unit);
    xsputn(&text, 1);
    return 0;
}

void ConnectorCmdWinBuffer::resetPutArea() { setp(storage_.data(), storage_.data() + storage_.size()); }

void ConnectorCmdWinBuffer::append(const char16_t* text, std::size_t count) {
    traits_type::copy(pptr(), text, count);
    pbump(static_cast<int>(count));
}

}  // namespace connector::interpreter
