#include "connector/common/RequestOrigin.h"

#include <algorithm>
#include <atomic>
#include <string_view>
#include <utility>

#include "connector/common/ContextState.h"
#include "connector/identifiers.h"

namespace connector::common {

bool RequestOrigin::isName(const std::string& name) {
    constexpr std::string_view marks = "-_.:~";
    return !name.empty() && name.size() <= longestName && std::ranges::all_of(name, [marks](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               marks.find(c) != std::string_view::npos;
    });
}

std::string RequestOrigin::newName() {
    static const std::string process = randomIdentifier().substr(0, 16) + "-";
    static std::atomic<std::uint64_t> count{0};
    return process + std::to_string(++count);
}

std::shared_ptr<const RequestOrigin> RequestOrigin::of(const ContextState& context) {
    return context.getOr<std::shared_ptr<const RequestOrigin>>(contextKey, nullptr);
}

std::shared_ptr<const RequestOrigin> RequestOrigin::current() {
    const auto context = ContextState::currentOrNull();
    return context ? of(*context) : nullptr;
}

void RequestOrigin::set(ContextState& context, RequestOrigin origin) {
    context.set(contextKey,
                std::shared_ptr<const RequestOrigin>(std::make_shared<RequestOrigin>(std::move(origin))),
                ContextScope::Client);
}

}  // namespace connector::common
