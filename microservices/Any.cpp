#include "cppmicroservices/Any.h"

#include "asciiCase.h"
#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceInterface.h"

namespace cppmicroservices {

detail::AnyContent::~AnyContent() = default;

void detail::throwBadAnyCast(const std::type_info& from, const std::type_info& to) {
    throw BadAnyCastException("a value of type " + readableName(from) + " is no " + readableName(to));
}

std::string Any::ToString() const {
    if (Empty()) throw std::logic_error("an empty value has no text");
    std::ostringstream out;
    content_->write(out);
    return out.str();
}

bool AnyMap::KeyOrder::operator()(const std::string& left, const std::string& right) const {
    if (!ignoresCase) return left < right;
    return std::ranges::lexicographical_compare(left, right, {}, detail::lowered, detail::lowered);
}

std::ostream& operator<<(std::ostream& out, const AnyMap& map) {
    const char* separator = "{";
    for (const auto& [key, value] : map) {
        out << std::exchange(separator, ", ") << key << " : ";
        detail::writeText(out, value);
    }
    return out << (map.empty() ? "{}" : "}");
}

}  // namespace cppmicroservices
