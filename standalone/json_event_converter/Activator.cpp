// The bundle that turns this host's events into JSON for clients.

#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>

#include "event_json_converter/EventToJsonConverter.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "standalone/TaggedEvent.h"

namespace {

using event_json_converter::EventToJsonConverter;
using foundation::msg_svc::eventmgr::BaseEvent;
using standalone::TaggedEvent;
using Tags = std::vector<std::string>;

class MembersConverter : public EventToJsonConverter {
public:
    void convert(const BaseEvent& event, std::map<std::string, foundation::json::Value>& members) override {
        if (!event.isKindOf(TaggedEvent::typeName))
            throw std::invalid_argument("It is no event of this host.");
        members = static_cast<const TaggedEvent&>(event).members;
    }
};

/// Offers converters: one for each tag of the interpreter's own events, and one for all others, which it gets
/// to know when an event with them is on its way for the first time.
class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        for (const char* tag : {"status", "workspace", "figure", "progress"}) {
            offer(context, std::string(tag));
            known_.insert(tag);
        }
        general_ = offer(context, Tags());
        // Before the bridge subscribes to the tag, so it is known by then.
        connection_ = foundation::msg_svc::eventmgr::ScopedConnection(
            nmutil::eventmgr::createLocalEventMgr()->subscribe<TaggedEvent>(
                [this](const TaggedEvent& event) { learn(event); }));
    }
    // The framework withdraws the services.
    void Stop(cppmicroservices::BundleContext /*context*/) override { connection_.disconnect(); }

private:
    using Registration = cppmicroservices::ServiceRegistration<EventToJsonConverter>;

    static constexpr std::size_t mostTags = 10'000;

    Registration offer(cppmicroservices::BundleContext& context, const cppmicroservices::Any& tag) {
        return context.RegisterService<EventToJsonConverter>(std::make_shared<MembersConverter>(),
                                                             {{"eventTag", tag}});
    }

    // On the event manager's thread.
    void learn(const TaggedEvent& event) {
        for (const auto& userTag : event.getTypeInformation().getUserTags()) {
            std::string tag = fl::i18n::to_string(userTag);
            if (known_.size() >= mostTags || !known_.insert(tag).second) continue;
            if (known_.size() == mostTags) {
                foundation::log::DiagnosticLogger("json_event_converter")
                    .warning("There are too many tags; events with further ones are not converted.");
            }
            others_.push_back(std::move(tag));
            general_.SetProperties({{"eventTag", others_}});
        }
    }

    Registration general_;
    std::set<std::string> known_;
    Tags others_;
    foundation::msg_svc::eventmgr::ScopedConnection connection_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
