#include "cppmicroservices/BundleVersion.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <stdexcept>
#include <utility>

namespace cppmicroservices {

BundleVersion::BundleVersion(unsigned major, unsigned minor, unsigned micro, std::string qualifier)
    : majorNumber_(major), minorNumber_(minor), microNumber_(micro), qualifier_(std::move(qualifier)) {}

BundleVersion::BundleVersion(const std::string& text) {
    const std::array numbers{&majorNumber_, &minorNumber_, &microNumber_};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (unsigned* number : numbers) {
        const auto [next, error] = std::from_chars(at, end, *number);
        if (error != std::errc{} || (next != end && *next != '.') || next + 1 == end) {
            throw std::invalid_argument("\"" + text + "\" is no version");
        }
        if (next == end) return;
        at = next + 1;
    }
    qualifier_.assign(at, end);
}

std::string BundleVersion::ToString() const {
    return std::to_string(majorNumber_) + '.' + std::to_string(minorNumber_) + '.' +
           std::to_string(microNumber_) + (qualifier_.empty() ? "" : '.' + qualifier_);
}

}  // namespace cppmicroservices
