#include "zmq/IopubQueue.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "foundation/log/diagnostic_logger.h"

namespace jupyter {

namespace {

constexpr std::string_view streamType = R"("msg_type":"stream")";
constexpr std::string_view textEnd = R"("})";

// Where the text begins in the content of a stream message in the form in which they are written here; 0 for
// others.
std::size_t textBeginOf(const Message& message) {
    if (message.header.find(streamType) == std::string::npos || !message.content.ends_with(textEnd)) return 0;
    for (const std::string_view begin : {std::string_view(R"({"name":"stdout","text":")"),
                                         std::string_view(R"({"name":"stderr","text":")")}) {
        if (message.content.starts_with(begin)) return begin.size();
    }
    return 0;
}

// Of a string in JSON; one for each half of a pair of surrogates that is escaped.
std::size_t charactersIn(std::string_view escaped) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] == '\\') i += escaped.substr(i).starts_with("\\u") ? 5 : 1;
        if (i < escaped.size() && (static_cast<unsigned char>(escaped[i]) & 0xC0) != 0x80) ++count;
    }
    return count;
}

std::string noticeOf(std::size_t lost) {
    return R"({"name":"stderr","text":"[)" + std::to_string(lost) +
           R"( characters of output are lost here: they were not taken in time.]\n"})";
}

}  // namespace

void IopubQueue::add(Message message) {
    const std::size_t textBegin = textBeginOf(message);
    if (textBegin != 0 && merge(message, textBegin)) return;
    bytes_ += bytesOf(message);
    entries_.push_back({.message = std::move(message), .textBegin = textBegin});
    if (textBegin != 0) texts_.push_back(std::prev(entries_.end()));
    while (bytes_ > options_.bytes && !texts_.empty()) dropOldestText();
}

bool IopubQueue::merge(const Message& message, std::size_t textBegin) {
    if (entries_.empty()) return false;
    Entry& last = entries_.back();
    std::string& content = last.message.content;
    const std::string_view head = std::string_view(message.content).substr(0, textBegin);
    const std::string_view text = std::string_view(message.content).substr(textBegin);
    if (last.textBegin != textBegin || !content.starts_with(head) || last.message.parent != message.parent ||
        content.size() + text.size() > options_.mergedBytes)
        return false;
    content.resize(content.size() - textEnd.size());
    content += text;
    bytes_ += text.size() - textEnd.size();
    return true;
}

// Its place is that of the notice, unless there is one just before it.
void IopubQueue::dropOldestText() {
    const auto text = texts_.front();
    texts_.pop_front();
    std::string_view content = text->message.content;
    content.remove_prefix(text->textBegin);
    content.remove_suffix(textEnd.size());
    const std::size_t lost = charactersIn(content);
    auto notice = text;
    if (text != entries_.begin() && std::prev(text)->lost != 0 &&
        std::prev(text)->message.parent == text->message.parent)
        notice = std::prev(text);
    bytes_ -= bytesOf(notice->message);
    notice->lost += lost;
    notice->textBegin = 0;
    notice->message.content = noticeOf(notice->lost);
    bytes_ += bytesOf(notice->message);
    if (notice == text) return;
    bytes_ -= bytesOf(text->message);
    entries_.erase(text);
}

void IopubQueue::removeFirst() {
    if (!texts_.empty() && texts_.front() == entries_.begin()) texts_.pop_front();
    bytes_ -= bytesOf(entries_.front().message);
    entries_.pop_front();
}

std::optional<IopubQueue::Time> IopubQueue::send(Time now) {
    if (!isLossless_) return sendPaced(now);
    while (!entries_.empty()) {
        if (!socket_.trySend(entries_.front().message)) return wait(now);
        stuckSince_.reset();
        removeFirst();
    }
    return std::nullopt;
}

std::optional<IopubQueue::Time> IopubQueue::wait(Time now) {
    if (!stuckSince_) stuckSince_ = now;
    if (now - *stuckSince_ < options_.patience && bytes_ <= options_.mostBytes) return now + options_.retry;
    foundation::log::DiagnosticLogger("jupyter::sockets")
        .warning("A client reads too little of iopub: until it reads, it may miss messages.");
    stuckSince_.reset();
    isLossless_ = false;
    socket_.setLossless(false);
    nextPace_ = now;
    return sendPaced(now);
}

std::optional<IopubQueue::Time> IopubQueue::sendPaced(Time now) {
    std::size_t count = 0;
    if (now >= nextPace_) {
        nextPace_ = now + options_.pace;
        count = options_.messagesPerPace;
    }
    while (!entries_.empty() && (count > 0 || bytes_ > options_.mostBytes)) {
        if (!socket_.trySend(entries_.front().message)) break;
        removeFirst();
        if (count > 0) --count;
    }
    if (!entries_.empty()) return nextPace_;
    isLossless_ = true;
    socket_.setLossless(true);
    return std::nullopt;
}

}  // namespace jupyter
