#include "output/Announcements.h"

#include <exception>

#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "nmutil/events.h"

namespace standalone {

void Announcements::announceText(nmutil::io::StreamTypeEnum stream, std::u16string_view text,
                                 bool isOfRequest) {
    static const foundation::msg_svc::eventmgr::TypeInformation type(nmutil::io::SinkTextEvent::typeName);
    if (!events_->hasSubscriptions(type)) return;
    announceLostText();
    if (!postText(stream, text, isOfRequest)) lostText_ += text.size();
}

bool Announcements::postText(nmutil::io::StreamTypeEnum stream, std::u16string_view text, bool isOfRequest) {
    const auto event = std::make_shared<nmutil::io::SinkTextEvent>(std::u16string(text), stream);
    const std::size_t bytes = text.size() * sizeof(char16_t);
    const auto events = events_;  // see raise
    const connector::common::CurrentContext context(isOfRequest ? running_.contextOfThisThread() : nullptr);
    return KeepsInterpreterLock::isHere() ? events->post(event, bytes)
                                          : events->postBlocking(event, bytes, withoutInterpreterLock);
}

void Announcements::announceLostText() {
    const std::size_t lost = std::exchange(lostText_, 0);
    if (lost == 0) return;
    const auto notice =
        fl::i18n::to_ustring("\n[" + std::to_string(lost) + " characters of output were lost]\n");
    if (!postText(nmutil::io::STANDARD_ERROR, notice)) lostText_ += lost;
}

void Announcements::announcePrompt(const ShownPrompt& prompt, bool isBaseLevel) {
    try {
        announceLostText();
        if (isBaseLevel) {
            raise(nmutil::utils::IqmInputRequestEvent(prompt.requester));
        } else {
            raise(nmutil::utils::InputRequestEvent(prompt.requester, prompt.number, prompt.isEchoed));
        }
    } catch (const std::exception& error) {
        foundation::log::DiagnosticLogger("standalone::interpreter")
            .error("A prompt could not be announced: " + std::string(error.what()));
    }
}

void Announcements::post(std::u16string tag, TaggedEvent::Members members, std::size_t bytes, bool hasOwner) {
    const auto events = events_;  // see raise
    const connector::common::CurrentContext context(running_.contextOfThisThread());
    events->postBlocking(std::make_shared<TaggedEvent>(std::move(tag), std::move(members)), bytes,
                         withoutInterpreterLock, hasOwner);
}

}  // namespace standalone
