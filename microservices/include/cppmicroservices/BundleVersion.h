#pragma once

#include <compare>
#include <string>

namespace cppmicroservices {

/// The version of a bundle: up to three numbers and a text, "1.2.3.rc1"; what is left out is 0 or empty.
class BundleVersion {
public:
    explicit BundleVersion(unsigned major, unsigned minor = 0, unsigned micro = 0,
                           std::string qualifier = {});
    /// Throws: std::invalid_argument, when `text` is no version.
    explicit BundleVersion(const std::string& text);

    unsigned GetMajor() const { return majorNumber_; }
    unsigned GetMinor() const { return minorNumber_; }
    unsigned GetMicro() const { return microNumber_; }
    std::string GetQualifier() const { return qualifier_; }
    std::string ToString() const;

    auto operator<=>(const BundleVersion&) const = default;

private:
    unsigned majorNumber_ = 0;
    unsigned minorNumber_ = 0;
    unsigned microNumber_ = 0;
    std::string qualifier_;
};

}  // namespace cppmicroservices
