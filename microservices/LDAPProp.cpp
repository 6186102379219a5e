#include "cppmicroservices/LDAPProp.h"

#include <stdexcept>

namespace cppmicroservices {

namespace {

LDAPPropExpr join(const char* how, const LDAPPropExpr& left, const LDAPPropExpr& right) {
    if (left.IsNull()) return right;
    if (right.IsNull()) return left;
    return LDAPPropExpr("(" + (how + std::string(left)) + std::string(right) + ")");
}

}  // namespace

LDAPPropExpr LDAPPropExpr::operator!() const { return IsNull() ? *this : LDAPPropExpr("(!" + filter_ + ")"); }
LDAPPropExpr& LDAPPropExpr::operator&=(const LDAPPropExpr& other) { return *this = join("&", *this, other); }
LDAPPropExpr& LDAPPropExpr::operator|=(const LDAPPropExpr& other) { return *this = join("|", *this, other); }

LDAPProp::LDAPProp(std::string name) : name_(std::move(name)) {
    if (name_.empty()) throw std::invalid_argument("a property has a name");
}

LDAPPropExpr LDAPProp::test(const char* comparison, const std::string& value) const {
    return LDAPPropExpr("(" + name_ + comparison + value + ")");
}

}  // namespace cppmicroservices

cppmicroservices::LDAPPropExpr operator&&(const cppmicroservices::LDAPPropExpr& left,
                                          const cppmicroservices::LDAPPropExpr& right) {
    return cppmicroservices::join("&", left, right);
}

cppmicroservices::LDAPPropExpr operator||(const cppmicroservices::LDAPPropExpr& left,
                                          const cppmicroservices::LDAPPropExpr& right) {
    return cppmicroservices::join("|", left, right);
}
