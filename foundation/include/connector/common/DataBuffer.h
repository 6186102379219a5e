#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace connector::common {

/// There was no memory for the bytes of a buffer.
class OutOfMemory : public std::bad_alloc {
public:
    const char* what() const noexcept override { return "Out of memory!"; }
};

/// A growable buffer of bytes: a pointer, a capacity and a size. Its storage comes from `malloc`, so that it
/// can be handed over to code that frees it.
///
/// Threads: one at a time.  Throws: OutOfMemory, from whatever grows the buffer; its content stays.
class DataBuffer {
public:
    DataBuffer() = default;
    explicit DataBuffer(std::string_view bytes) { append(bytes.data(), bytes.size()); }
    ~DataBuffer() { std::free(data_); }
    DataBuffer(DataBuffer&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)),
          capacity_(std::exchange(other.capacity_, 0)),
          size_(std::exchange(other.size_, 0)) {}
    DataBuffer& operator=(DataBuffer&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
        return *this;
    }

    const char* data() const { return data_; }
    char* data() { return data_; }
    std::size_t size() const { return size_; }
    std::size_t capacity() const { return capacity_; }
    bool empty() const { return size_ == 0; }
    std::string_view view() const { return {data_, size_}; }

    void append(const char* bytes, std::size_t count) {
        if (count == 0) return;
        std::memcpy(room(count), bytes, count);
        size_ += count;
    }
    void append(std::string_view bytes) { append(bytes.data(), bytes.size()); }
    void push_back(char byte) { append(&byte, 1); }

    /// Makes room for `count` bytes after the content and returns where they go; `advance` takes them in.
    char* room(std::size_t count) {
        if (data_ == nullptr || capacity_ - size_ < count) {
            if (count > static_cast<std::size_t>(-1) - size_) throw OutOfMemory();
            grow(std::max(capacity_ * 2, size_ + count));
        }
        return data_ + size_;
    }
    /// Counts `count` bytes that were written after the content, into the room made there.
    void advance(std::size_t count) { size_ += count; }
    /// Makes the capacity at least `capacity`.
    void reserve(std::size_t capacity) {
        if (capacity > capacity_) grow(capacity);
    }
    /// Forgets the content and keeps the storage.
    void clear() { size_ = 0; }
    /// Gives the storage away; the caller frees it with `free`.
    char* release() {
        capacity_ = size_ = 0;
        return std::exchange(data_, nullptr);
    }

private:
    void grow(std::size_t capacity) {
        void* const grown = std::realloc(data_, capacity);
        if (grown == nullptr) throw OutOfMemory();
        data_ = static_cast<char*>(grown);
        capacity_ = capacity;
    }

    char* data_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
};

}  // namespace connector::common
