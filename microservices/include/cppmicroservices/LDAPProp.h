#pragma once

#include <sstream>
#include <string>
#include <utility>

#include "cppmicroservices/Any.h"

namespace cppmicroservices {

/// The text of a filter, as it is put together from `LDAPProp`s with `&&`, `||` and `!`.
///
/// Threads: as a plain value.
class LDAPPropExpr {
public:
    LDAPPropExpr() = default;
    explicit LDAPPropExpr(std::string filter) : filter_(std::move(filter)) {}

    operator std::string() const { return filter_; }
    /// Whether it has no text, and so is left out of what it is joined with.
    bool IsNull() const { return filter_.empty(); }

    LDAPPropExpr operator!() const;
    LDAPPropExpr& operator&=(const LDAPPropExpr& other);
    LDAPPropExpr& operator|=(const LDAPPropExpr& other);

private:
    std::string filter_;
};

/// A property by its name, to be compared with values. Values are taken as they stand: whoever means `(`,
/// `)`,
/// `*` or `\` itself puts a `\` before it.
///
///     LDAPProp("eventTag") == tag && !LDAPProp("hidden")      (&(eventTag=...)(!(hidden=*)))
///
/// Threads: as a plain value.
class LDAPProp {
public:
    /// Throws: std::invalid_argument, when `name` is empty.
    explicit LDAPProp(std::string name);

    /// By itself: whether the property is present.
    operator LDAPPropExpr() const { return test("=", "*"); }
    LDAPPropExpr operator!() const { return !static_cast<LDAPPropExpr>(*this); }

    template <class T>
    LDAPPropExpr operator==(const T& value) const {
        return test("=", text(value));
    }
    template <class T>
    LDAPPropExpr operator!=(const T& value) const {
        return !(*this == value);
    }
    template <class T>
    LDAPPropExpr operator>=(const T& value) const {
        return test(">=", text(value));
    }
    template <class T>
    LDAPPropExpr operator<=(const T& value) const {
        return test("<=", text(value));
    }
    template <class T>
    LDAPPropExpr Approx(const T& value) const {
        return test("~=", text(value));
    }

private:
    template <class T>
    static std::string text(const T& value) {
        std::ostringstream out;
        detail::writeText(out, value);
        return out.str();
    }
    LDAPPropExpr test(const char* comparison, const std::string& value) const;

    std::string name_;
};

}  // namespace cppmicroservices

cppmicroservices::LDAPPropExpr operator&&(const cppmicroservices::LDAPPropExpr& left,
                                          const cppmicroservices::LDAPPropExpr& right);
cppmicroservices::LDAPPropExpr operator||(const cppmicroservices::LDAPPropExpr& left,
                                          const cppmicroservices::LDAPPropExpr& right);
