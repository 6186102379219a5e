#include "link/messages.h"

#include <type_traits>

#include "littleEndian.h"

namespace links {

namespace {

class Encoder {
public:
    void add(std::uint64_t value) { addNumber(value); }
    void add(bool value) { text_ += value ? '\1' : '\0'; }
    void add(const std::string& value) {
        addNumber(static_cast<std::uint32_t>(value.size()));
        text_ += value;
    }
    void add(const std::vector<std::string>& values) {
        addNumber(static_cast<std::uint32_t>(values.size()));
        for (const auto& value : values) add(value);
    }
    void add(const std::map<std::string, std::string>& values) {
        addNumber(static_cast<std::uint32_t>(values.size()));
        for (const auto& [key, value] : values) {
            add(key);
            add(value);
        }
    }

    std::string take() { return std::move(text_); }

private:
    template <class T>
    void addNumber(T value) {
        char bytes[sizeof value];
        putLittleEndian(bytes, value);
        text_.append(bytes, sizeof value);
    }

    std::string text_;
};

class Decoder {
public:
    explicit Decoder(std::string_view text) : text_(text) {}

    void read(std::uint64_t& value) { value = number<std::uint64_t>(); }
    void read(bool& value) {
        const char byte = bytes(1)[0];
        if (byte != '\0' && byte != '\1')
            throw BadFrame("a truth value in the head of a frame is neither 0 nor 1");
        value = byte == '\1';
    }
    void read(std::string& value) { value = bytes(number<std::uint32_t>()); }
    void read(std::vector<std::string>& values) {
        // No more is reserved than there can be.
        for (auto count = number<std::uint32_t>(); count > 0; --count) read(values.emplace_back());
    }
    void read(std::map<std::string, std::string>& values) {
        for (auto count = number<std::uint32_t>(); count > 0; --count) {
            std::string key;
            read(key);
            read(values[key]);
        }
    }

    bool isAtEnd() const { return text_.empty(); }

private:
    std::string_view bytes(std::size_t count) {
        if (text_.size() < count) throw BadFrame("the head of a frame is too short");
        const auto result = text_.substr(0, count);
        text_.remove_prefix(count);
        return result;
    }

    template <class T>
    T number() {
        return getLittleEndian<T>(bytes(sizeof(T)).data());
    }

    std::string_view text_;
};

template <class Head>
std::string encoded(const Head& head) {
    Encoder encoder;
    std::apply([&](const auto&... field) { (encoder.add(field), ...); }, Head::fields(head));
    return encoder.take();
}

template <class Head>
Head decoded(std::string_view text) {
    Head head;
    Decoder decoder(text);
    std::apply([&](auto&... field) { (decoder.read(field), ...); }, Head::fields(head));
    if (!std::is_same_v<Head, Hello> && !decoder.isAtEnd()) throw BadFrame("the head of a frame is too long");
    return head;
}

}  // namespace

std::string Hello::encode() const { return encoded(*this); }
Hello Hello::decode(std::string_view head) { return decoded<Hello>(head); }

std::string Start::encode() const { return encoded(*this); }
Start Start::decode(std::string_view head) { return decoded<Start>(head); }

std::string RequestHead::encode() const { return encoded(*this); }
RequestHead RequestHead::decode(std::string_view head) { return decoded<RequestHead>(head); }

std::string ResponseHead::encode() const { return encoded(*this); }
ResponseHead ResponseHead::decode(std::string_view head) { return decoded<ResponseHead>(head); }

std::string MessageHead::encode() const { return encoded(*this); }
MessageHead MessageHead::decode(std::string_view head) { return decoded<MessageHead>(head); }

std::string ReplyHead::encode() const { return encoded(*this); }
ReplyHead ReplyHead::decode(std::string_view head) { return decoded<ReplyHead>(head); }

std::string NoticeHead::encode() const { return encoded(*this); }
NoticeHead NoticeHead::decode(std::string_view head) { return decoded<NoticeHead>(head); }

std::string PaceHead::encode() const { return encoded(*this); }
PaceHead PaceHead::decode(std::string_view head) { return decoded<PaceHead>(head); }

std::string PublishHead::encode() const { return encoded(*this); }
PublishHead PublishHead::decode(std::string_view head) { return decoded<PublishHead>(head); }

std::string StateHead::encode() const { return encoded(*this); }
StateHead StateHead::decode(std::string_view head) { return decoded<StateHead>(head); }

std::string LogHead::encode() const { return encoded(*this); }
LogHead LogHead::decode(std::string_view head) { return decoded<LogHead>(head); }

std::string PingHead::encode() const { return encoded(*this); }
PingHead PingHead::decode(std::string_view head) { return decoded<PingHead>(head); }

std::string PongHead::encode() const { return encoded(*this); }
PongHead PongHead::decode(std::string_view head) { return decoded<PongHead>(head); }

std::string StopHead::encode() const { return encoded(*this); }
StopHead StopHead::decode(std::string_view head) { return decoded<StopHead>(head); }

}  // namespace links
