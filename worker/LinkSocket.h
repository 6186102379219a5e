#pragma once

#include <memory>
#include <string_view>

#include <sys/types.h>

namespace worker {

/// One socket of the link, for reading. User code may close any descriptor of its process, and open others
/// that get its number; nothing is read from those.
///
/// Threads: one at a time.  Owns: borrows the descriptors.
class LinkSocket {
public:
    explicit LinkSocket(int descriptor);

    int descriptor() const { return descriptor_; }

    /// What has come; empty when `stopEvent` is readable instead.  Blocks: until then.
    /// Throws: links::BadFrame, when the link is broken.
    std::string_view read(int stopEvent);

    /// Whether the other process has closed its end.  Threads: any.
    bool isPeerGone() const;

private:
    bool isSame() const;

    const int descriptor_;
    dev_t device_{};
    ino_t inode_{};
    const std::unique_ptr<char[]> buffer_;  // what has never been used takes no memory
};

}  // namespace worker
