#pragma once

/// The one way in which text becomes a JSON string. Beside what JSON itself asks for, `&`, `'`, `<`, `=` and
/// `>` are written as `\u` and four digits, so that a string can stand inside markup.
///
/// Threads: any, each with a buffer of its own.  Throws: connector::common::OutOfMemory or std::bad_alloc;
/// the buffer's content is what it was then.

#include <string>
#include <string_view>

#include "connector/common/DataBuffer.h"

namespace connector::json {

/// Appends `utf8` as the body of a JSON string, without the quotes around it.
///
/// What is appended is well-formed UTF-8 whatever `utf8` holds. One U+FFFD stands for each of:
/// - a byte that starts no sequence: a continuation byte, FE or FF;
/// - a sequence that is cut short, by the end or by a byte that is no continuation byte, which is read again:
///   C3 28 becomes EF BF BD 28;
/// - a whole sequence that must not be there: an overlong form (one of C0 BC is not a `<`), a surrogate, a
///   number above U+10FFFF. The lead bytes F8 to FD count as those of 5 and 6 bytes.
void appendEscaped(connector::common::DataBuffer& out, std::string_view utf8);

/// The same for text in UTF-16; one U+FFFD stands for each unpaired surrogate.
void appendEscaped(connector::common::DataBuffer& out, std::u16string_view text);

/// `utf8` as a JSON string, with the quotes.
std::string quoted(std::string_view utf8);

}  // namespace connector::json
