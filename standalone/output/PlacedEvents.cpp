#include "output/PlacedEvents.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace standalone {

namespace {

constexpr std::array<std::u16string_view, 7> tagsWithRequest = {u"clear",      u"comm",  u"display", u"error",
                                                                u"evaluation", u"input", u"payload"};

}  // namespace

void PlacedEvents::raise(std::u16string tag, TaggedEvent::Members members) {
    if (!hasSubscribers(tag)) return;
    if (std::ranges::find(tagsWithRequest, tag) != tagsWithRequest.end()) {
        const std::string name = running_.nameOfThisThread();
        members.emplace("request", name.empty() ? nullptr : foundation::json::Value(name));
    }
    window_.sendPrinted();
    announcements_.raise(TaggedEvent(std::move(tag), std::move(members)));
}

}  // namespace standalone
