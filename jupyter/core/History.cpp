#include "History.h"

#include <algorithm>
#include <set>

#include "connector/json/escape.h"

namespace jupyter {

using Kind = dispatch::Member::Kind;

namespace {

// A search takes the product of its length and that of all code.
constexpr std::size_t longestPattern = 1'000;

constexpr dispatch::Member members[] = {{"hist_access_type", Kind::String, true},
                                        {"output", Kind::Boolean},
                                        {"raw", Kind::Boolean},
                                        {"session", Kind::Integer, false, -dispatch::unlimited},
                                        {"start", Kind::Integer, false, -dispatch::unlimited},
                                        {"stop", Kind::Integer, false, -dispatch::unlimited},
                                        {"n", Kind::Integer},
                                        {"pattern", Kind::String},
                                        {"unique", Kind::Boolean}};

void keepLast(auto& entries, const Poco::JSON::Object& request) {
    const auto n = memberOr<std::size_t>(request, "n", SIZE_MAX);
    if (entries.size() > n) entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(n));
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

std::size_t afterCharacter(std::string_view text, std::size_t at) {
    for (++at; at < text.size() && isContinuation(text[at]);) ++at;
    return at;
}

}  // namespace

void History::add(std::uint64_t count, const std::string& code) {
    entries_.push_back({count, code});
    bytes_ += code.size();
    while (entries_.size() > most || (bytes_ > mostBytes && entries_.size() > 1)) {
        bytes_ -= entries_.front().code.size();
        entries_.pop_front();
    }
}

void History::clear() {
    entries_.clear();
    bytes_ = 0;
}

std::string History::answer(const Request& message) const {
    const auto request = message.content(members);
    const auto type = request->getValue<std::string>("hist_access_type");
    Entries found;
    if (type == "range") {
        found = range(*request);
    } else if (type == "search") {
        found = search(*request);
    } else if (type == "tail") {
        for (const auto& entry : entries_) found.push_back(&entry);
        keepLast(found, *request);
    } else {
        throw dispatch::BadMessage(R"(hist_access_type must be "range", "tail" or "search")");
    }
    const bool hasOutput = memberOr(*request, "output", false);
    std::string json = "[";
    for (const auto* entry : found) {
        const std::string code = connector::json::quoted(entry->code);
        json.append(json.size() > 1 ? ",[1," : "[1,").append(std::to_string(entry->count)).append(",");
        json.append(hasOutput ? '[' + code + ",null]" : code).append("]");
    }
    return json + ']';
}

// Lines are counted from 1, and negative numbers from the end; `stop` is not among them.
History::Entries History::range(const Poco::JSON::Object& request) const {
    Entries found;
    const auto session = memberOr<std::int64_t>(request, "session", 0);
    if ((session != 0 && session != 1) || entries_.empty()) return found;
    const auto end = static_cast<std::int64_t>(entries_.back().count) + 1;
    auto start = memberOr<std::int64_t>(request, "start", 0);
    auto stop = memberOr<std::int64_t>(request, "stop", end);
    if (start < 0) start = std::max(start, -end) + end;
    if (stop < 0) stop = std::max(stop, -end) + end;
    for (const auto& entry : entries_) {
        const auto count = static_cast<std::int64_t>(entry.count);
        if (count >= start && count < stop) found.push_back(&entry);
    }
    return found;
}

History::Entries History::search(const Poco::JSON::Object& request) const {
    const auto pattern = memberOr<std::string>(request, "pattern", "*");
    if (pattern.size() > longestPattern) {
        throw dispatch::BadMessage("pattern must have at most " + std::to_string(longestPattern) + " bytes");
    }
    const bool isUnique = memberOr(request, "unique", false);
    Entries found;
    std::set<std::string_view> seen;
    for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
        if (!matchesGlob(pattern, entry->code)) continue;
        if (!isUnique || seen.insert(entry->code).second) found.push_back(&*entry);
    }
    std::ranges::reverse(found);
    keepLast(found, request);
    return found;
}

// After a mismatch the last star takes one character more: the time is the product of the lengths at most.
bool matchesGlob(std::string_view pattern, std::string_view text) {
    std::size_t at = 0, inText = 0, star = std::string_view::npos, taken = 0;
    while (inText < text.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = ++at;
            taken = inText;
        } else if (at < pattern.size() && pattern[at] == '?') {
            ++at;
            inText = afterCharacter(text, inText);
        } else if (at < pattern.size() && pattern[at] == text[inText]) {
            ++at;
            ++inText;
        } else if (star != std::string_view::npos) {
            at = star;
            inText = taken = afterCharacter(text, taken);
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

}  // namespace jupyter
