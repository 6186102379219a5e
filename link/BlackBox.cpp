#include "link/BlackBox.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace links {

namespace {

constexpr std::size_t ringBytes = std::size_t{64} << 10;
// Text is stored and counted in steps: while one is stored, what it overwrites is older than what the reader
// returns.
constexpr std::size_t stepBytes = ringBytes / 4;
constexpr std::size_t maxOutput = ringBytes - stepBytes;

constexpr std::array<std::size_t, 3> limits{256, 128, 4096};  // of type, uuid and code

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80; }

// `text` without what is beyond `limit`, and without the part of a character before that.
std::string_view cutTo(std::string_view text, std::size_t limit) noexcept {
    if (text.size() <= limit) return text;
    while (limit > 0 && isContinuation(text[limit])) --limit;
    return text.substr(0, limit);
}

// Two requests, of which one is the newest: the other is overwritten next.
struct Slot {
    std::array<std::uint32_t, limits.size()> sizes;
    std::array<char, limits[0] + limits[1] + limits[2]> text;
};

struct Box {
    std::atomic<std::uint64_t>
        requests;                        // how many there have been; the newest is in the slot of that number
    std::atomic<std::uint64_t> written;  // bytes of output; the ring holds the last of them
    std::array<Slot, 2> slots;
    std::array<char, ringBytes> ring;
};
static_assert(sizeof(Box) <= blackBoxBytes && std::atomic<std::uint64_t>::is_always_lock_free);

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

}  // namespace

struct BlackBox::Layout : Box {};

int createBlackBox() {
    const int fd = ::memfd_create("black box", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) fail("memfd_create");
    if (::ftruncate(fd, blackBoxBytes) != 0 ||
        ::fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        fail("the black box");
    }
    return fd;
}

BlackBox::BlackBox(int fd) {
    void* const place = ::mmap(nullptr, blackBoxBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (place == MAP_FAILED) fail("mmap");
    layout_ = static_cast<Layout*>(place);
}

BlackBox::~BlackBox() { ::munmap(layout_, blackBoxBytes); }

void BlackBox::setRequest(std::string_view type, std::string_view uuid, std::string_view code) noexcept {
    const std::uint64_t number = layout_->requests.load(std::memory_order_relaxed) + 1;
    Slot& slot = layout_->slots[number % 2];
    const std::array<std::string_view, limits.size()> texts{type, uuid, code};
    std::size_t at = 0;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string_view text = cutTo(texts[i], limits[i]);
        std::copy(text.begin(), text.end(), slot.text.data() + at);
        slot.sizes[i] = static_cast<std::uint32_t>(text.size());
        at += text.size();
    }
    layout_->requests.store(number, std::memory_order_release);
}

void BlackBox::clearRequest() noexcept { setRequest({}, {}, {}); }

void BlackBox::addOutput(std::string_view text) noexcept {
    while (!text.empty()) {
        const std::uint64_t written = layout_->written.load(std::memory_order_relaxed);
        const std::size_t at = written % ringBytes;
        const std::size_t count = std::min(text.size(), stepBytes);
        const std::size_t toEnd = std::min(count, ringBytes - at);
        std::copy_n(text.data(), toEnd, layout_->ring.data() + at);
        std::copy_n(text.data() + toEnd, count - toEnd, layout_->ring.data());
        layout_->written.store(written + count, std::memory_order_release);
        text.remove_prefix(count);
    }
}

namespace {

void readRequest(const Box& box, LastWords& words) {
    const Slot& slot = box.slots[box.requests.load(std::memory_order_relaxed) % 2];
    for (std::size_t i = 0; i < limits.size(); ++i) {
        if (slot.sizes[i] > limits[i]) return;
    }
    const char* at = slot.text.data();
    std::size_t i = 0;
    for (std::string* text : {&words.type, &words.uuid, &words.code}) {
        text->assign(at, slot.sizes[i]);
        at += slot.sizes[i++];
    }
}

void readOutput(const Box& box, LastWords& words) {
    const std::uint64_t written = box.written.load(std::memory_order_relaxed);
    const std::size_t count = std::min<std::uint64_t>(written, maxOutput);
    const std::size_t from = (written - count) % ringBytes;
    const std::size_t atEnd = std::min(count, ringBytes - from);
    words.output.assign(box.ring.data() + from, atEnd);
    words.output.append(box.ring.data(), count - atEnd);
    if (written > count) {
        const auto begin = std::find_if_not(words.output.begin(), words.output.end(), isContinuation);
        words.output.erase(words.output.begin(), begin);
    }
}

}  // namespace

LastWords readBlackBox(int fd) {
    const auto box = std::make_unique<Box>();
    auto* const bytes = reinterpret_cast<char*>(box.get());
    std::size_t have = 0;
    while (have < sizeof(Box)) {
        const ssize_t got = ::pread(fd, bytes + have, sizeof(Box) - have, static_cast<off_t>(have));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        have += static_cast<std::size_t>(got);
    }
    LastWords words;
    readRequest(*box, words);
    readOutput(*box, words);
    return words;
}

}  // namespace links
