// The bundle that turns this host's events into JSON for clients.

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "event_json_converter/EventToJsonConverter.h"
#include "fitDisplay.h"
#include "fl/i18n/text.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "standalone/TaggedEvent.h"

namespace {

using cppmicroservices::ServiceProperties;
using event_json_converter::EventToJsonConverter;
using foundation::msg_svc::eventmgr::BaseEvent;
using standalone::TaggedEvent;
using Tags = std::vector<std::string>;

class MembersConverter : public EventToJsonConverter {
public:
    void convert(const BaseEvent& event, std::map<std::string, foundation::json::Value>& members) override {
        if (!event.isKindOf(TaggedEvent::typeName))
            throw std::invalid_argument("The event must be a standalone::TaggedEvent.");
        members = static_cast<const TaggedEvent&>(event).members;
    }
};

class DisplayConverter : public MembersConverter {
public:
    void convert(const BaseEvent& event, std::map<std::string, foundation::json::Value>& members) override {
        MembersConverter::convert(event, members);
        fitDisplay(members);
    }
};

/// Offers a converter for the tags of the interpreter's own events, and one for the other tags that events
/// had last. A converter is looked up while an event with its tag is delivered, so a few tags are enough for
/// any number of them, and a look-up takes the same time however many there have been.
class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        offer<MembersConverter>(context, {"clear", "comm", "error", "evaluation", "figure", "input",
                                          "payload", "progress", "status", "workspace"});
        offer<DisplayConverter>(context, {"display"});
        general_ = offer<MembersConverter>(context, recent_);
        // Before the bridge subscribes to any tag, so that this handler comes before the bridge's.
        connection_ = foundation::msg_svc::eventmgr::ScopedConnection(
            nmutil::eventmgr::createLocalEventMgr()->subscribe<TaggedEvent>([this](const TaggedEvent& event) {
                for (const auto& tag : event.getTypeInformation().getUserTags()) {
                    remember(fl::i18n::to_string(tag));
                }
            }));
    }
    // The framework withdraws the services.
    void Stop(cppmicroservices::BundleContext /*context*/) override { connection_.disconnect(); }

private:
    using Registration = cppmicroservices::ServiceRegistration<EventToJsonConverter>;

    // More than the events that handlers raise, one inside of another, while one is delivered; and more than
    // the tags that most programs use, which then cost nothing but the first time.
    static constexpr std::size_t mostTags = 64;

    template <class Converter>
    static Registration offer(cppmicroservices::BundleContext& context, const Tags& tags) {
        return context.RegisterService<EventToJsonConverter>(std::make_shared<Converter>(),
                                                             ServiceProperties{{"eventTag", tags}});
    }

    // On the event manager's thread.
    void remember(const std::string& tag) {
        const auto known = std::ranges::find(recent_, tag);
        if (known != recent_.end()) {
            std::rotate(known, known + 1, recent_.end());
            return;
        }
        if (recent_.size() == mostTags) recent_.erase(recent_.begin());
        recent_.push_back(tag);
        general_.SetProperties(ServiceProperties{{"eventTag", recent_}});
    }

    Registration general_;
    Tags recent_;  // the latest last
    foundation::msg_svc::eventmgr::ScopedConnection connection_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
