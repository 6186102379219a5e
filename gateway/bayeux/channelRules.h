#pragma once

/// What clients may do with which channel. Beside what channelNames.h of the message service asks for, the
/// libraries that clients use take no "." in a segment, a wildcard as the last segment only, 255 characters
/// and 16 segments at the most.
///
/// Threads: any.

#include <algorithm>
#include <string_view>

#include "connector/wireWords.h"
#include "messages/channelNames.h"

namespace gateway::bayeux {

inline constexpr std::string_view handshakeChannel = "/meta/handshake";
inline constexpr std::string_view connectChannel = "/meta/connect";
inline constexpr std::string_view disconnectChannel = "/meta/disconnect";
inline constexpr std::string_view subscribeChannel = "/meta/subscribe";
inline constexpr std::string_view unsubscribeChannel = "/meta/unsubscribe";
/// Where remote calls go; the type of the request follows.
inline constexpr std::string_view servicePrefix = "/service/";

namespace detail {

inline bool isPortable(std::string_view text) {
    return text.size() <= 255 && std::count(text.begin(), text.end(), '/') <= 16 &&
           text.find('.') == std::string_view::npos;
}

inline bool isBelow(std::string_view channel, std::string_view root) {
    return channel.starts_with(root) && (channel.size() == root.size() || channel[root.size()] == '/');
}

}  // namespace detail

inline bool isPortableName(std::string_view channel) {
    return detail::isPortable(channel) && messages::isChannelName(channel);
}
inline bool isPortablePattern(std::string_view pattern) {
    return detail::isPortable(pattern) && messages::isChannelPattern(pattern) &&
           pattern.find("*/") == std::string_view::npos;
}

inline bool isMeta(std::string_view channel) { return detail::isBelow(channel, "/meta"); }
inline bool isService(std::string_view channel) { return detail::isBelow(channel, "/service"); }

/// Whether it is for the events of an interpreter that does not exist: this host has the one with the number
/// 0.
inline bool isOfUnknownInterpreter(std::string_view channel) {
    constexpr std::string_view events = connector::wire::channel::events;
    if (!channel.starts_with(events) || !channel.substr(events.size()).starts_with('/')) return false;
    channel.remove_prefix(events.size() + 1);
    const std::string_view number = channel.substr(0, channel.find('/'));
    return number.find_first_not_of("0123456789") == std::string_view::npos &&
           number.find_first_not_of('0') != std::string_view::npos;
}

/// Whether only services in this process may publish there.
inline bool isReservedForServices(std::string_view channel) {
    namespace words = connector::wire::channel;
    using detail::isBelow;
    return isBelow(channel, words::evalResponse) || isBelow(channel, words::events) ||
           isBelow(channel, words::notices);
}

}  // namespace gateway::bayeux
