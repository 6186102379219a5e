#include "output/PlacedEvents.h"

#include <algorithm>
#include <array>
#include <utility>

#include "connector/common/RequestOrigin.h"

namespace standalone {

namespace {

using connector::common::RequestOrigin;

constexpr std::array<std::u16string_view, 5> tagsWithRequest = {u"clear", u"display", u"error", u"evaluation",
                                                                u"input"};

}  // namespace

void PlacedEvents::raise(std::u16string tag, TaggedEvent::Members members) {
    if (!hasSubscribers(tag)) return;
    if (std::ranges::find(tagsWithRequest, tag) != tagsWithRequest.end()) {
        const auto context = running_.contextOfThisThread();
        const auto origin = context ? RequestOrigin::of(*context) : nullptr;
        members.emplace("request", origin ? foundation::json::Value(origin->request) : nullptr);
    }
    window_.sendPrinted();
    announcements_.raise(TaggedEvent(std::move(tag), std::move(members)));
}

}  // namespace standalone
