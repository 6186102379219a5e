#include "bayeux/channelRules.h"

#include <algorithm>

#include "connector/wireWords.h"
#include "messages/channelNames.h"

namespace gateway::bayeux {

namespace {

namespace words = connector::wire::channel;

bool hasPortableForm(std::string_view text) {
    return text.size() <= 255 && std::count(text.begin(), text.end(), '/') <= 16 &&
           text.find('.') == std::string_view::npos;
}

bool isIn(std::string_view channel, std::string_view place) {
    return channel.starts_with(place) && (channel.size() == place.size() || channel[place.size()] == '/');
}

}  // namespace

bool isPortableName(std::string_view channel) {
    return hasPortableForm(channel) && messages::isChannelName(channel);
}

bool isPortablePattern(std::string_view pattern) {
    return hasPortableForm(pattern) && messages::isChannelPattern(pattern) &&
           pattern.find("*/") == std::string_view::npos;
}

bool isMeta(std::string_view channel) { return isIn(channel, "/meta"); }

bool isService(std::string_view channel) { return isIn(channel, "/service"); }

bool isOfNoInterpreter(std::string_view channel) {
    constexpr std::string_view events = words::events;
    if (!channel.starts_with(events) || !channel.substr(events.size()).starts_with('/')) return false;
    channel.remove_prefix(events.size() + 1);
    const std::string_view number = channel.substr(0, channel.find('/'));
    return number.find_first_not_of("0123456789") == std::string_view::npos &&
           number.find_first_not_of('0') != std::string_view::npos;
}

bool isServersOwn(std::string_view channel) {
    return isIn(channel, words::evalResponse) || isIn(channel, words::events) ||
           isIn(channel, words::notices);
}

}  // namespace gateway::bayeux
